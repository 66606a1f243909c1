// Every camera route over HTTP: the reply, the files, and the bytes that the camera sees.
#include <cstring>

#include "base/thread.h"
#include "base/value_file.h"
#include "camera/controller.h"
#include "camera/image_settings.h"
#include "camera/visca_thread.h"
#include "http/routes.h"
#include "store/settings.h"
#include "tests/camera/fake_camera.h"

namespace {

void* serve(void*) { return http_server_thread(), nullptr; }

// The whole reply, read until the server closes; "" when nobody listens.
std::string ask(const std::string& method, const std::string& path, const std::string& body = "") {
  const unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(addresses::kApiPort);
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) return "";
  const std::string request =
      method + " " + path + " HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string reply;
  char buffer[4096];
  for (ssize_t count; (count = recv(fd.get(), buffer, sizeof buffer, 0)) > 0;) {
    reply.append(buffer, static_cast<size_t>(count));
  }
  return reply;
}

std::string reply(const std::string& body, const char* more = "") {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: application/json\r\n" + more + "\r\n" + body;
}

void start_api() {
  orb_init_nv();
  load_image_settings();
  orb_create_zoom_loop();
  orb_create_focus_loop();
  start_detached_thread("http", serve, nullptr);
  ASSERT_TRUE(eventually([] { return !ask("GET", "/api/camera/defog").empty(); }));
}

struct call {
  const char *method, *path, *body, *answer;  // the body's and the answer's quotes are written as '
  const char* bytes;                          // that the camera sees, without 8x 01 04 and FF; "" none
};

std::string quoted(std::string text) {
  std::replace(text.begin(), text.end(), '\'', '"');
  return text;
}

#define OK "{'status':'OK'}"
#define BAD "{'status':'BAD_REQUEST'}"
#define ZOOM "'zoom_position':14000,'zoom_magnification':'11x'"
#define FOCUS "'focus_position':4096,'max_depth_of_field':'217 ft','min_depth_of_field':'177 ft'"
#define NO_ZOOM "'zoom_position':-1,'zoom_magnification':'?'"
#define NO_FOCUS "'focus_position':-1,'max_depth_of_field':'?','min_depth_of_field':'?'"

const call kCalls[] = {
    {"GET", "defog", "", "{'defog':'mid'}", ""},
    {"PUT", "defog", "{'defog':'high'}", OK, "370203"},
    {"PUT", "defog", "{'defog':'high'}", OK, ""},
    {"PUT", "defog", "{'defog':'medium'}", BAD, ""},
    {"PUT", "defog", "{'defog':3}", BAD, ""},
    {"PUT", "defog", "{'defog':null}", BAD, ""},
    {"PUT", "defog", "{'Defog':'low'}", BAD, ""},
    {"PUT", "defog", "['defog']", BAD, ""},
    {"PUT", "defog", "defog", BAD, ""},
    {"PUT", "defog", "", BAD, ""},
    {"PUT", "defog", "{'defog':'low and very much more'}", BAD, ""},
    {"GET", "defog", "", "{'defog':'high'}", ""},
    {"PUT", "ir_filter", "{'ir_filter':'on'}", OK, ""},
    {"PUT", "ir_filter", "{'ir_filter':'half'}", BAD, ""},
    {"GET", "ir_filter", "", "{'ir_filter':'on'}", ""},
    {"PUT", "sensitivity", "{'sensitivity':'normal'}", OK, "5E03"},
    {"PUT", "sensitivity", "{'sensitivity':'low'}", BAD, ""},
    {"GET", "sensitivity", "", "{'sensitivity':'normal'}", ""},
    {"PUT", "image_stabilizer", "{'image_stabilizer':'off'}", OK, "3403"},
    {"PUT", "image_stabilizer", "{'image_stabilizer':false}", BAD, ""},
    {"GET", "image_stabilizer", "", "{'image_stabilizer':'off'}", ""},
    {"PUT", "invert_image", "{'invert_image':'on'}", OK, "6602"},
    {"PUT", "invert_image", "{'invert_image':'yes'}", BAD, ""},
    {"GET", "invert_image", "", "{'invert_image':'on'}", ""},

    {"GET", "zoom/position", "", "{" ZOOM "}", ""},
    {"PUT", "zoom/position", "{'zoom_position':16384}", OK, "4704000000"},
    {"PUT", "zoom/position", "{'zoom_position':'far'}", BAD, ""},
    {"PUT", "zoom/position", "{}", BAD, ""},
    {"GET", "zoom/speed", "", "{'zoom_speed':3}", ""},
    {"PUT", "zoom/speed", "{'zoom_speed':8}", BAD, ""},
    {"PUT", "zoom/speed", "{'speed':2}", BAD, ""},
    {"PUT", "zoom/speed", "{'zoom_speed':7}", OK, ""},
    {"POST", "zoom/speed", "{'zoom_operation':'increment'}", "{'zoom_speed':7,'status':'OK'}", ""},
    {"POST", "zoom/speed", "{'zoom_operation':'decrement'}", "{'zoom_speed':6,'status':'OK'}", ""},
    {"POST", "zoom/speed", "{'zoom_operation':'faster'}", "{'zoom_speed':6,'status':'BAD_REQUEST'}", ""},
    {"POST", "zoom/increment", "", "{" ZOOM ",'status':'OK'}", "0726"},
    {"POST", "zoom/decrement", "", "{" ZOOM ",'status':'OK'}", ""},  // the loop refuses it
    {"POST", "zoom/stop", "", "{" ZOOM ",'status':'OK'}", "0700"},
    {"POST", "zoom/decrement", "", "{" ZOOM ",'status':'OK'}", "0736"},
    {"POST", "zoom/stop", "", "{" ZOOM ",'status':'OK'}", "0700"},
    {"POST", "zoom/reset", "", "{'zoom_speed':3," ZOOM ",'status':'OK'}", "4700000000"},
    {"GET", "zoom/speed", "", "{'zoom_speed':3}", ""},

    {"GET", "focus/mode", "", "{'focus_mode':'auto'}", ""},
    {"POST", "focus/increment", "", "{" FOCUS ",'status':'BAD_REQUEST'}", ""},
    {"POST", "focus/stop", "", "{" FOCUS ",'status':'OK'}", ""},
    {"PUT", "focus/mode", "{'focus_mode':'sharp'}", BAD, ""},
    {"PUT", "focus/mode", "{'focus_mode':'manual'}", OK, "3803"},
    {"GET", "focus/mode", "", "{'focus_mode':'manual'}", ""},
    {"POST", "focus/speed", "{'focus_operation':'increment'}", "{'focus_speed':3,'status':'OK'}", ""},
    {"POST", "focus/increment", "", "{" FOCUS ",'status':'OK'}", "0823"},
    {"POST", "focus/stop", "", "{" FOCUS ",'status':'OK'}", "0800"},
    {"POST", "focus/decrement", "", "{" FOCUS ",'status':'OK'}", "0833"},
    {"POST", "focus/stop", "", "{" FOCUS ",'status':'OK'}", "0800"},
    {"PUT", "focus/speed", "{'focus_speed':0}", OK, ""},
    {"PUT", "focus/speed", "{'focus_speed':8}", BAD, ""},
    {"POST", "focus/speed", "{'focus_operation':'decrement'}", "{'focus_speed':0,'status':'OK'}", ""},
    {"GET", "focus/speed", "", "{'focus_speed':0}", ""},
    {"GET", "focus/position", "", "{" FOCUS "}", ""},
    {"PUT", "focus/position", "{'focus_position':4660}", OK, "4801020304"},
    {"PUT", "focus/position", "{'zoom_position':4660}", BAD, ""},
    {"PUT", "focus/mode", "{'focus_mode':'auto'}", OK, "3802"},

    {"GET", "exposure/mode", "", "{'exposure_mode':'auto'}", ""},
    {"POST", "exposure/gain/increment", "", BAD, ""},
    {"POST", "exposure/shutter/stop", "", BAD, ""},
    {"PUT", "exposure/mode", "{'exposure_mode':'iris'}", BAD, ""},
    {"PUT", "exposure/mode", "{'exposure_mode':'manual'}", OK, "3903"},
    {"GET", "exposure/mode", "", "{'exposure_mode':'manual'}", ""},
    {"POST", "exposure/gain/reset", "", OK, "0C00"},
    {"POST", "exposure/gain/decrement", "", OK, "0C03"},
    {"POST", "exposure/gain/increment", "", OK, "0C02"},
    {"POST", "exposure/gain/stop", "", OK, ""},
    {"POST", "exposure/iris/reset", "", OK, "0B00"},
    {"POST", "exposure/iris/decrement", "", OK, "0B03"},
    {"POST", "exposure/iris/increment", "", OK, "0B02"},
    {"POST", "exposure/iris/stop", "", OK, ""},
    {"POST", "exposure/shutter/reset", "", OK, "0A00"},
    {"POST", "exposure/shutter/decrement", "", OK, "0A03"},
    {"POST", "exposure/shutter/increment", "", OK, "0A02"},
    {"POST", "exposure/shutter/stop", "", OK, ""},
    {"PUT", "exposure/mode", "{'exposure_mode':'auto'}", OK, "3900"},
};

const call kWithoutCamera[] = {
    {"GET", "zoom/position", "", "{" NO_ZOOM "}", ""},
    {"PUT", "zoom/position", "{'zoom_position':1}", BAD, ""},
    {"POST", "zoom/increment", "", "{" NO_ZOOM ",'status':'OK'}", ""},
    {"GET", "focus/position", "", "{" NO_FOCUS "}", ""},
    {"PUT", "focus/position", "{'focus_position':1}", BAD, ""},
    {"PUT", "invert_image", "{'invert_image':'off'}", BAD, ""},
    {"PUT", "ir_filter", "{'ir_filter':'auto'}", OK, ""},
};

struct v1_call {
  const char *command, *parameters, *bytes;
};

const v1_call kV1Calls[] = {
    {"power_on", "", "0002"},
    {"power_off", "", "0003"},
    {"zoom_tele", "", "0702"},
    {"zoom_tele", ",'parameters':{'speed':5}", "0725"},
    {"zoom_wide", ",'parameters':{}", "0703"},
    {"zoom_wide", ",'params':{'speed':1}", "0731"},
    {"zoom_stop", "", "0700"},
    {"zoom_direct", ",'parameters':{'position':8291}", "4702000603"},
    {"digital_zoom_on", "", "0602"},
    {"digital_zoom_off", "", "0603"},
    {"focus_near", "", "0803"},
    {"focus_near", ",'params':{'speed':4}", "0834"},
    {"focus_far", "", "0802"},
    {"focus_far", ",'parameters':{'speed':7}", "0827"},
    {"focus_stop", "", "0800"},
    {"focus_direct", ",'params':{'position':4660}", "4801020304"},
    {"focus_mode_auto", "", "3802"},
    {"focus_mode_manual", "", "3803"},
    {"iris_reset", "", "0B00"},
    {"iris_down", "", "0B03"},
    {"iris_up", "", "0B02"},
    {"shutter_reset", "", "0A00"},
    {"shutter_down", "", "0A03"},
    {"shutter_up", "", "0A02"},
    {"exposure_mode_auto", "", "3900"},
    {"exposure_mode_manual", "", "3903"},
    {"exposure_mode_shutter_priority", "", "390A"},
    {"exposure_mode_iris_priority", "", "390B"},
    {"zoom_direct", "", ""},
    {"self_destruct", "", ""},
};

TEST(CameraApi, EveryRoute) {
  controlled_link link;
  link.camera->zoom_position = 14000;
  link.camera->focus_position = 4096;
  start_api();
  const auto check = [&](const call& row) {
    const std::string path = std::string("/api/camera/") + row.path;
    EXPECT_EQ(ask(row.method, path, quoted(row.body)), reply(quoted(row.answer))) << row.path << row.body;
    link.expect(row.bytes);
  };
  for (const call& row : kCalls) check(row);
  EXPECT_EQ(link.block.packet(50), "");
  EXPECT_EQ(file_text("/tmp/focus_mode") + file_text("/tmp/exposure_mode") + file_text("/tmp/focus_speed"),
            "autoauto0");
  visca_thread_data.camera = nullptr;
  for (const call& row : kWithoutCamera) check(row);
}

TEST(CameraApi, VersionOne) {
  controlled_link link;
  link.camera->zoom_position = 14000;
  link.camera->focus_position = 4096;
  start_api();
  testing::internal::CaptureStdout();
  const auto expect = [](const char* method, const std::string& path, const std::string& body,
                         const char* answer) {
    EXPECT_EQ(ask(method, "/api/1.0/camera" + path, quoted(body)),
              reply(quoted(answer), "Connection: close\r\n"))
        << path << body;
  };
  std::string printed;
  for (const v1_call& row : kV1Calls) {
    expect("POST", "", std::string("{'command':'") + row.command + "'" + row.parameters + "}", "{}");
    link.expect(row.bytes);
    printed += std::string(row.command) + "\n";
    if (strstr(row.parameters, "8291")) printed += "  position: 8291\n";
    if (strstr(row.parameters, "4660")) printed += "  position: 4660\n";
  }
  for (const char* body : {"", "{", "[]", "{'command':7}"}) expect("POST", "", body, "{}");
  expect("GET", "/zoom", "", "{'zoom':14000}");
  expect("GET", "/focus", "", "{'focus':4096}");
  expect("GET", "", "", "{'zoom':14000,'focus':4096}");
  visca_thread_data.camera = nullptr;
  expect("POST", "", "{'command':'zoom_stop'}", "{}");
  expect("GET", "", "", "{'zoom':-1,'focus':-1}");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            printed + "Writing zoom response\nWriting focus response\nWriting camera response\n" +
                "zoom_stop\nzoom stop failed!\nWriting camera response\n");
  EXPECT_EQ(link.block.packet(50), "");
}

// The real camera thread between the API and the camera.
TEST(CameraApi, AHoldEndsByItself) {
  fake_camera block;
  start_detached_thread("camera", visca_thread_procedure, &visca_thread_data);
  ASSERT_TRUE(block.accept_link());
  start_api();
  ASSERT_TRUE(eventually([] { return visca_connection_is_connected(visca_thread_data.connection) == 1; }));
  EXPECT_EQ(ask("POST", "/api/camera/zoom/increment"), reply(quoted("{" NO_ZOOM ",'status':'OK'}")));
  for (const char* packet : {"8101040723FF", "8101041602FF", "8101046902FF", "81090002FF", "8101040700FF"}) {
    EXPECT_EQ(block.command(), packet);
    block.say("9041FF");
  }
}

}  // namespace
