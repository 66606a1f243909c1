// One inspection as a crew makes it, from power-up to shutdown, by the tablets' routes alone. `./unit tour`
// plays it aloud: it prints every request with its answer and takes a picture after each step.

#include "system/unit.h"

namespace {

const bool is_tour = getenv("ORB_TOUR") != nullptr;
int step_count = 0;
std::string seat_token;

void say(const std::string& text) {
  if (is_tour) printf("%s\n", text.substr(0, 600).c_str());
}

void run(const std::string& command) { EXPECT_EQ(system(command.c_str()), 0) << command; }

std::string ask(const std::string& method, const std::string& route, const std::string& body = "") {
  const reply answer = http(method, "/api" + route, body);
  say("> " + method + " /api" + route + " " + body + "\n< " + answer.body);
  return answer.body;
}

void order(const std::string& method, const std::string& route, const std::string& body = "") {
  EXPECT_EQ(ask(method, route, body), kOk) << method << " " << route << " " << body;
}

std::string member(const std::string& answer, const char* key) {
  const json_owner object(json_tokener_parse(answer.c_str()));
  json_object* value = json_member(object.get(), key);
  return value == nullptr ? "" : json_object_get_string(value);
}

std::string status(const char* key) { return member(http("GET", "/api/status").body, key); }

bool await_status(const char* key, const std::string& value, double seconds = 15) {
  return await([&] { return status(key) == value; }, seconds);
}

std::string all_of(const std::string& listed) { return R"({"files":)" + listed + "}"; }

void step(const char* name) {
  say("\n-- " + std::to_string(++step_count) + ". " + name);
  if (!seat_token.empty())
    http("POST", "/api/seats/update", R"({"seat_update":"refresh","seat_token":")" + seat_token + "\"}");
}

// Of what the operator sees then.
void take_picture(const std::string& name) {
  const std::string file = std::to_string(10 + step_count) + "-" + name + ".png";
  if (is_tour) run("ffmpeg -v error -y -i rtsp://192.168.0.127:554/vx-1.mp4 -frames:v 1 /run/bench/" + file);
  say("   picture: " + file);
}

TEST(inspection, from_power_up_to_shutdown) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const child redis = start_redis(), camera = start_camera(true);
  child daemon = start_serving_daemon();

  step("The tablet takes the controller's seat");
  seat_token = member(ask("POST", "/seats/request", R"({"seat_role":"controller"})"), "seat_token");
  const std::string body = R"({"seat_update":"lock","seat_token":")" + seat_token + "\"}";
  EXPECT_EQ(member(ask("POST", "/seats/update", body), "seat_role"), "controller");
  EXPECT_TRUE(await_status("camera_signal", "true"));
  const std::string told = R"("fpga_temp":45.00,"lens_temp":35.00,"cpu_temp":50.00,)"
                           R"("channel_1":"1920x1080 15fps","channel_2":"640x360 15fps",)";
  const auto is_told = [&] { return contains(http("GET", "/api/status").body, told); };
  EXPECT_TRUE(await(is_told, 15));  // the encoder is asked every 5 s

  step("Lights");
  order("PUT", "/led/mode", R"({"led_mode":"high"})");
  order("PUT", "/led/intensity", R"({"led_intensity":"80"})");
  EXPECT_EQ(status("led_mode"), "high");
  take_picture("lights");

  step("The mast finds its home and goes to 8 inches");
  order("POST", "/motor/height/findhome");
  EXPECT_TRUE(await_status("height", "HOMING", 2));
  EXPECT_TRUE(await([] { return status("height").ends_with(" in"); }, 20)) << status("height");
  order("PUT", "/height/preset", R"({"height_preset":"8"})");
  EXPECT_TRUE(await_status("height", "SETTING", 2));
  EXPECT_TRUE(await([] { return number_after(status("height"), "") > 7.4; }, 20)) << status("height");
  say("   height: " + status("height"));

  step("The head tilts");
  const std::string before = status("tilt_angle");
  for (int i = 0; i < 3; ++i) order("POST", "/motor/tilt/increment"), usleep(300'000);
  order("POST", "/motor/tilt/stop");
  EXPECT_TRUE(await([&] { return status("tilt_angle") != before; }, 3)) << before;
  say("   tilt: " + before + " to " + status("tilt_angle"));

  step("Zoom");
  EXPECT_TRUE(await([] {
    ask("POST", "/camera/zoom/increment");
    usleep(300'000);
    return number_after(status("zoom_magnification"), "") >= 2;
  }));
  ask("POST", "/camera/zoom/stop");
  take_picture("zoom");

  step("Titles");
  const std::pair<std::string, std::string> kTexts[] = {
      {"title", R"(Main St <12> \"north\")"},
      {"operator_id", "crew 7"},
      {"flow_direction", "UPSTREAM"},
      {"filename", "Shaft 12"},
      {"gps_data", "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,"}};
  for (const auto& [name, text] : kTexts)
    order("PUT", "/setup/" + name, "{\"" + name + "\":\"" + text + "\"}");
  for (const std::string item : {"title", "operator_id", "flow_direction", "zoom"})
    order("PUT", "/osd/" + item, "{\"" + item + R"(_osd":1})");
  EXPECT_TRUE(await([] { return contains(ctl("camera", "titles"), "CREW 7"); }));
  take_picture("titles");

  step("Laser");
  ctl("board", "laser 12.5");
  order("PUT", "/laser/mode", R"({"laser_mode":"manual"})");
  order("POST", "/laser/execute");
  EXPECT_TRUE(await([] { return status("laser_distance") == "41.0 ft"; }, 5)) << status("laser_distance");

  step("A take with two stills");
  order("PUT", "/camera/recorder/video/note", R"({"metadata_note":"first run"})");
  // A slow start is answered as a refusal and records all the same.
  EXPECT_TRUE(await([] { return ask("POST", "/camera/recorder/start"), status("recording") == "true"; }));
  usleep(4'000'000);
  for (const std::string note : {R"(crack at joint)", R"(roots & \"mud\")"}) {
    order("PUT", "/camera/recorder/image/note", R"({"metadata_note":")" + note + "\"}");
    order("POST", "/camera/recorder/save");
    usleep(1'200'000);
  }
  EXPECT_EQ(status("recording"), "true");
  usleep(2'500'000);  // a still is cut a second after its mark
  order("POST", "/camera/recorder/stop");
  EXPECT_TRUE(await_completion());
  take_picture("take");

  step("What the take has become");
  const std::string listed = ask("GET", "/camera/recorder/files");
  EXPECT_TRUE(contains(listed, R"("asset_id":"Main St <12> \"north\"")"));
  const size_t end = listed.find(".jpg");
  ASSERT_NE(end, std::string::npos);
  const size_t begin = listed.rfind('"', end) + 1;
  const std::string still = listed.substr(begin, end + 4 - begin);
  const std::string file = R"({"file_name":"/media/usb99/ApiVideos/)" + still + "\"";
  order("PUT", "/camera/recorder/file/note", file + R"(,"metadata_note":"crack at joint, repair"})");
  const std::string metadata = ask("POST", "/camera/recorder/file/metadata", file + "}");
  EXPECT_EQ(member(metadata, "metadata_note"), "crack at joint, repair");
  EXPECT_EQ(member(metadata, "metadata_title"), R"(Main St <12> "north")");
  EXPECT_EQ(member(metadata, "metadata_gps_latitude"), "48.11730");
  if (is_tour) run("cp /media/usb99/ApiVideos/*.jpg /media/usb99/ApiVideos/*.mp4 /run/bench/");

  step("Everything goes onto the stick");
  run(ORB_SIM_FOLDER "/host usb insert");
  EXPECT_TRUE(await_status("ext_usb_status", "inserted"));
  order("POST", "/logger/log_file");
  run("truncate -s 300M /media/usb99/ApiVideos/large");
  const std::string takes = ask("GET", "/camera/recorder/files");
  order("POST", "/camera/recorder/copy", all_of(R"([{"name":"large"},)" + takes.substr(1)));
  EXPECT_EQ(ask("POST", "/camera/recorder/copy", all_of(takes)), R"({"status":"BUSY"})");
  order("POST", "/logger/copy", all_of(ask("GET", "/logger/files")));
  for (const char* files : {"/camera/recorder/files", "/logger/files"}) {
    EXPECT_TRUE(await([&] {
      const std::string now = http("GET", std::string("/api") + files).body;
      return contains(now, "External USB") && now.find("Main USB") == now.npos;
    })) << ask("GET", files);
  }
  order("POST", "/eject");
  EXPECT_TRUE(await_status("ext_usb_status", "ejected"));
  size_t count = 0;
  for (const auto& copied : fs::directory_iterator("/run/bench/stick")) count += fs::file_size(copied) > 100;
  EXPECT_EQ(count, 5U);  // the large one, take, two stills, log file

  step("The unit's own copies go");
  const std::string logs = ask("GET", "/logger/files"), named = R"({"file_name":")";
  const std::string log = logs.substr(std::min(logs.size(), logs.find("log_")), 28);
  EXPECT_EQ(ask("GET", "/logger/log_file", named + log + "\"}").substr(0, 60),
            ask("GET", "/logger/readings").substr(0, 60));
  for (const std::string of : {"/camera/recorder", "/logger"}) {
    order("POST", of + "/delete", all_of(ask("GET", of + "/files")));
    EXPECT_TRUE(await([&] { return http("GET", "/api" + of + "/files").body == "[]"; })) << of;
  }
  order("POST", "/logger/reset");

  step("The day ends");
  order("POST", "/shutdown", R"({"shutdown_type":"1"})");
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(power_calls(), "shutdown -P now\n");
  say("\nThe unit is off.");
}

}  // namespace
