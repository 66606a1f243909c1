// Every camera route over HTTP: the answer, what is kept, and the bytes that the camera sees.
#include "camera/image_settings.h"
#include "camera/lens_loops.h"
#include "power_board/power_board.h"
#include "store/settings.h"
#include "tests/api/api_client.h"
#include "tests/visca/fake_camera.h"

namespace {

struct CameraApi : testing::Test {
  stepped_link link;

  void SetUp() override {
    link.camera->zoom_position = 14000;
    link.camera->focus_position = 4096;
    orb_init_nv();
    load_image_settings();
    orb_create_zoom_loop();
    orb_create_focus_loop();
    start_api();
  }
  void expect(const std::string& call, const std::string& body, const std::string& answer,
              const std::string& bytes = "") {
    const size_t space = call.find(' ');
    EXPECT_EQ(ask(call.substr(0, space), "/camera/" + call.substr(space + 1), body), answer) << call << body;
    link.expect(bytes);
  }
};

const std::string kOk = "{'status':'OK'}", kBad = "{'status':'BAD_REQUEST'}", kAndOk = ",'status':'OK'}",
                  kZoom = "{'zoom_position':14000,'zoom_magnification':'11x'",
                  kFocus =
                      "{'focus_position':4096,'max_depth_of_field':'217 ft','min_depth_of_field':'177 ft'";

TEST_F(CameraApi, ImageSettings) {
  const strings rows = words(  // name, word, bytes; the worker sends the filter's
      "invert_image on 6602   invert_image off 6603   image_stabilizer off 3403   image_stabilizer on 3402 "
      "sensitivity normal 5E03   sensitivity high 5E02   ir_filter on -   ir_filter auto - "
      "defog off 370300   defog low 370201   defog mid 370202   defog high 370203");
  for (auto row = rows.begin(); row != rows.end(); row += 3) {
    const std::string put = "PUT " + row[0], key = "{'" + row[0] + "':'", body = key + row[1] + "'}";
    const std::string bytes = row[2] == "-" ? "" : row[2];
    expect(put, key + row[1] + "x'}", kBad);
    visca_thread_data.camera = nullptr;
    if (!bytes.empty()) expect(put, body, kBad);
    visca_thread_data.camera = link.camera;
    expect(put, body, kOk, bytes);
    expect(put, body, kOk);  // unchanged: sends nothing
    load_image_settings();   // as after a restart
    expect("GET " + row[0], "", body);
  }
  for (const char* body : {"", "['defog']", "{'defog':3}"}) expect("PUT defog", body, kBad);
}

TEST_F(CameraApi, Zoom) {
  expect("GET zoom/position", "", kZoom + "}");
  for (const char* body :
       {"{'zoom_position':'far'}", "{'zoom_position':65536}", "{'zoom_position':-1}", "{}"})
    expect("PUT zoom/position", body, kBad);
  expect("PUT zoom/speed", "{'zoom_speed':8}", kBad);
  expect("POST zoom/speed", "{'zoom_operation':'decrement'}", "{'zoom_speed':2" + kAndOk);
  expect("POST zoom/speed", "{'zoom_operation':'up'}", "{'zoom_speed':2,'status':'BAD_REQUEST'}");
  const int64_t start = monotonic_ns();
  expect("POST zoom/decrement", "", kZoom + kAndOk, "0732 0700");  // not held again within half a second
  EXPECT_GE(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
  expect("PUT zoom/speed", "{'zoom_speed':5}", kOk);
  expect("POST zoom/increment", "", kZoom + kAndOk, "0725");
  expect("PUT zoom/position", "{'zoom_position':0}", kOk, "0700 4700000000");  // never the stop behind it
  expect("POST zoom/increment", "", kZoom + kAndOk, "0725");
  expect("POST zoom/reset", "", "{'zoom_speed':3," + kZoom.substr(1) + kAndOk, "0700 4700000000");
  expect("GET zoom/speed", "", "{'zoom_speed':3}");
  visca_thread_data.camera = nullptr;
  expect("POST zoom/stop", "", "{'zoom_position':-1,'zoom_magnification':'?'" + kAndOk);
  expect("PUT zoom/position", "{'zoom_position':1}", kBad);
}

TEST_F(CameraApi, FocusAndExposure) {
  expect("GET focus/mode", "", "{'focus_mode':'auto'}");
  expect("PUT focus/mode", "{'focus_mode':'manual'}", kOk, "3803");
  expect("PUT focus/speed", "{'focus_speed':0}", kOk);
  expect("POST focus/increment", "", kFocus + kAndOk, "0820");
  expect("POST focus/stop", "", kFocus + kAndOk, "0800");
  orb_trigger_focus_loop(-1, 60000);
  link.expect("0830");
  EXPECT_EQ(ask("POST", "/1.0/camera", "{'command':'focus_stop'}"), "{}");  // the hold's only one
  link.expect("0800");
  expect("POST focus/speed", "{'focus_operation':'decrement'}", "{'focus_speed':0" + kAndOk);
  expect("GET focus/position", "", kFocus + "}");
  expect("PUT focus/position", "{'focus_position':4660}", kOk, "4801020304");
  expect("POST focus/increment", "", kFocus + kAndOk, "0820");
  expect("PUT focus/mode", "{'focus_mode':'auto'}", kOk, "0800 3802");
  expect("PUT exposure/mode", "{'exposure_mode':'manual'}", kOk, "3903");
  expect("GET exposure/mode", "", "{'exposure_mode':'manual'}");
  const std::pair<std::string, std::string> steps[] = {{"gain", "0C"}, {"iris", "0B"}, {"shutter", "0A"}};
  for (const auto& [name, code] : steps) {
    const std::string post = "POST exposure/" + name;
    expect(post + "/reset", "", kOk, code + "00");
    expect(post + "/increment", "", kOk, code + "02");
    expect(post + "/decrement", "", kOk, code + "03");
    expect(post + "/stop", "", kOk);
  }
}

TEST_F(CameraApi, VersionOne) {
  const auto check = [&](const std::string& command, const std::string& parameters,
                         const std::string& bytes) {
    EXPECT_EQ(ask("POST", "/1.0/camera", "{'command':'" + command + "'" + parameters + "}"), "{}");
    link.expect(bytes);
  };
  const strings plain = words(
      "power_on 0002 power_off 0003 zoom_tele 0702 zoom_wide 0703 zoom_stop 0700 digital_zoom_on 0602 "
      "digital_zoom_off 0603 focus_near 0803 focus_far 0802 focus_stop 0800 focus_mode_auto 3802 "
      "focus_mode_manual 3803 iris_reset 0B00 iris_down 0B03 iris_up 0B02 shutter_reset 0A00 "
      "shutter_down 0A03 shutter_up 0A02 exposure_mode_auto 3900 exposure_mode_manual 3903 "
      "exposure_mode_shutter_priority 390A exposure_mode_iris_priority 390B");
  for (size_t i = 0; i < plain.size(); i += 2) check(plain[i], "", plain[i + 1]);
  check("zoom_tele", ",'parameters':{'speed':9}", "0727");
  check("zoom_wide", ",'params':{'speed':-1}", "0730");
  check("focus_near", ",'params':{'speed':4}", "0834");
  check("focus_far", ",'parameters':{'speed':7}", "0827");
  check("focus_direct", ",'params':{'position':4660}", "4801020304");
  for (const char* name : {"zoom_direct", "self_destruct"}) check(name, "", "");
  EXPECT_EQ(ask("POST", "/1.0/camera", "{'command':7}"), "{}");
  EXPECT_EQ(ask("GET", "/1.0/camera/zoom") + ask("GET", "/1.0/camera/focus"), "{'zoom':14000}{'focus':4096}");
  visca_thread_data.camera = nullptr;
  check("zoom_stop", "", "");
  EXPECT_EQ(ask("GET", "/1.0/camera"), "{'zoom':-1,'focus':-1}");
}

// Computed apart, to the last digit of a single-precision power.
TEST_F(CameraApi, VersionOneDistance) {
  static orb_power_board board;
  board.laser.distance = 12.5;
  const std::tuple<uint32_t, std::string, int> rows[] = {{kViscaNotReported, "181.68106680213361", -1},
                                                         {7499, "32.404968249936516", 5},
                                                         {7500, "28.167560277991655", 6},
                                                         {41000, "1.0513311719906522", 0},
                                                         {41001, "1.6211305054610112", 7}};
  for (const auto& [focus, distance, refreshes] : rows) {
    link.camera->focus_position = focus;
    board.laser.invalid_count = refreshes;
    power_board_instance = refreshes < 0 ? nullptr : &board;
    EXPECT_EQ(ask("GET", "/1.0/orb"),
              "{'distance':" + distance + ",'tolerance':0.10000000000000001," +
                  "'lrf-distance':" + (refreshes >= 0 && refreshes < 6 ? "12.5}" : "0.0}"));
  }
}

}  // namespace
