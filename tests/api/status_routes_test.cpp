// The status object, byte for byte.
#include <ev.h>
#include <sys/syscall.h>

#include <fstream>
#include <functional>
#include <regex>

#include "api/api_client.h"
#include "base/redis_server.h"
#include "camera/modes.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"
#include "recorder/recorder_state.h"
#include "seats/seats.h"
#include "store/settings.h"
#include "supervisor/status.h"
#include "supervisor/usb_store.h"
#include "tests/files.h"
#include "usb/stick.h"
#include "visca/camera_thread.h"

namespace {

orb_power_board board;

std::string status() { return ask("GET", "/status"); }

// The value of one member, as it stands in the answer.
std::string member(const std::string& key) {
  const std::string answer = status();
  const size_t at = answer.find("'" + key + "':") + key.size() + 3;
  return answer.substr(at, answer.find_first_of(",}", at) - at);
}

std::string kept(const std::string& name) {
  std::string text = golden("status_" + name + ".json");
  return std::ranges::replace(text, '"', '\''), text;
}

std::string warnings() {
  const std::string answer = status();
  const std::regex on("'(\\w+)_warning':true");
  std::string all;
  for (std::sregex_iterator one(answer.begin(), answer.end(), on), end; one != end; ++one)
    all += (*one)[1].str() + " ";
  return all;
}

void heat_processor(int core_0, int step) {
  for (int core = 0; core < 4; ++core)
    std::ofstream("/sys/devices/platform/coretemp.0/hwmon/hwmon1/temp" + std::to_string(core + 2) + "_input")
        << core_0 + step * core;
}

// The USB store has 100 pages, of which 37 are in use.
void fill_usb_store() {
  mkdir(paths::kUsbTakes, 0755);
  ASSERT_EQ(syscall(SYS_mount, "takes", paths::kUsbTakes, "tmpfs", 0, "size=100k,nr_blocks=100"), 0);
  std::ofstream(std::string(paths::kUsbTakes) + "/take") << std::string(size_t{37} * 4096, 'x');
}

void step_with_motor(uint8_t type) {
  {
    const mutex_lock lock(board.readings_lock);
    board.readings.status = kStatusExtended;
    board.readings.bme280_temperature = 21.46F;
    board.readings.monitor_vin_volts = 18;
    board.readings.imu_accelerometer_0 = 1;
    board.readings.imu_accelerometer_2 = 0.5;
    board.readings.motor_type = type;
    board.readings.board_revision = 3;
    board.readings.build_number = 12;
  }
  power_board_instance = &board;
  step_status();
}

TEST(status_object, tells_the_whole_unit) {
  orb_init_nv();
  start_api();
  for (const char* file : {paths::kFocusSpeed, paths::kZoomSpeed}) unlink(file);
  EXPECT_EQ(status(), kept("at_start"));

  // No two members of a kind are alike.
  static visca_connection camera_link;
  camera_link.records[1].focus_position = 8192;
  camera_link.records[1].zoom_position = 5793;
  camera_link.records[1].rom_version = 0x40A;
  visca_thread_data.camera = &camera_link.records[1];
  board.laser.distance = 30.0;
  board.laser.invalid_count = 0;
  board.battery_level = 2;
  {
    const mutex_lock lock(board.motor_lock);
    board.motors = {.motor_type = kMotorHeight, .homing_state = kHomed};
  }
  recorder.emmc_kb = 3'611'000;
  recorder.usb_kb = 7'232'000;
  fill_usb_store();
  start_redis();
  ask_redis("SET orb-battery Dewalt");
  std::ofstream(paths::kRelease) << "2.4.0\nbuilt by hand\n";
  std::ofstream(paths::kUpdateStatus) << "copying";
  std::ofstream(paths::kPaused) << "1";
  heat_processor(82000, 1100);
  reset_status();
  keep_focus_mode(camera_mode::manual);
  set_led_mode("low");
  ask("PUT", "/camera/zoom/speed", "{'zoom_speed':-3}");
  ask("PUT", "/camera/focus/speed", "{'focus_speed':5}");
  board.has_frame = false;
  step_with_motor(kMotorHeight);
  EXPECT_EQ(member("avr_temp"), "null") << "the board has not been heard";
  board.has_frame = true;
  measure_usb_store();
  step_status();
  ev_run(ev_default_loop(0), 0);  // until Redis has answered
  EXPECT_EQ(status(), kept("english"));
  EXPECT_EQ(ask("GET", "/versions"),
            "{'software_version':'03.01','firmware_version':'03.12','camera_version':'040A'}");

  ask("PUT", "/setup/units", "{'units':'metric'}");
  std::ofstream(paths::kPaused) << "0";
  recorder.post_processing = 42;
  recorder.recording = 1;
  step_status();
  EXPECT_EQ(status(), kept("metric"));
  measure_idle_stores();
  EXPECT_EQ(recorder.usb_kb, 7'232'000U) << "a take measures for itself";
  recorder.recording = recorder.post_processing = 0;
  measure_idle_stores();
  EXPECT_EQ(recorder.usb_kb, 4U * 63);
  std::ofstream(paths::kRecording) << "1";
  std::ofstream(paths::kUpdateStatus) << std::string(61, 'x') + "äy";
  heat_processor(-20500, 0);
  remove("/sys/devices/platform/coretemp.0/hwmon/hwmon1/temp5_input");  // counts as 0
  step_status();
  EXPECT_EQ(member("recording") + member("transferring") + member("core0_temp") + member("up_temp"),
            "truefalse-20.5-15.4");
  EXPECT_EQ(member("update_status"), "'" + std::string(61, 'x') + "'");
}

// Every member of each answer: what is sent is JSON, and its numbers are whole.
TEST(status_object, extremes_are_numbers) {
  orb_init_nv();
  start_api();
  board.has_frame = true;
  using limits = std::numeric_limits<float>;
  for (const float extreme : {limits::max(), limits::lowest(), limits::infinity(), limits::quiet_NaN()}) {
    for (const char* path : {paths::kFocusSpeed, paths::kZoomSpeed, paths::kIntensity})
      std::ofstream(path) << "-99999999999999";
    heat_processor(std::numeric_limits<int>::min() + 3, 1);
    board.laser.distance = 4294967.295;
    board.laser.invalid_count = 0;
    step_with_motor(kMotorHeight);
    {
      const mutex_lock lock(board.readings_lock);
      board.readings.bme280_temperature = board.readings.monitor_vin_volts = extreme;
      board.readings.imu_accelerometer_0 = board.readings.imu_accelerometer_2 = extreme;
    }
    step_status();
    EXPECT_EQ(member("avr_temp") + member("power"), "nullnull");
    for (const char* path :
         {"/status", "/1.0/orb", "/laser/status", "/power_board/readings", "/logger/readings"}) {
      std::string answer = ask("GET", path);
      std::ranges::replace(answer, '\'', '"');
      json_tokener* strict = json_tokener_new();
      json_tokener_set_flags(strict, JSON_TOKENER_STRICT);
      const json_owner object(json_tokener_parse_ex(strict, answer.c_str(), int(answer.size())));
      EXPECT_TRUE(object) << answer;
      json_tokener_free(strict);
    }
  }
}

TEST(status_object, lights_and_warnings) {
  orb_init_nv();
  start_api();
  const std::pair<std::function<void(int)>, const char*> rows[] = {
      {[](int on) { heat_processor(on != 0 ? 88500 : 45000, 0); }, "crit_temp high_temp "},
      {[](int on) { heat_processor(on != 0 ? -1000 : 45000, 0); }, "low_temp "},
      {[](int on) { board.high_pressure_hold = on; }, "high_press "},
      {[](int on) { board.high_humidity_hold = on; }, "high_rh "},
      {[](int on) { board.tilt_overcurrent_hold = on; }, "tilt_mtr "},
      {[](int on) { board.drive_overcurrent_hold = on; }, ""},
      {[](int on) { board.drive_overcurrent_hold = on, step_with_motor(kMotorPan); }, "pan_mtr "},
      {[](int on) { board.drive_overcurrent_hold = on, step_with_motor(kMotorHeight); }, "height_mtr "}};
  board.has_frame = true;
  step_with_motor(0);
  for (const auto& [set, expected] : rows) {
    set(1);
    step_status();
    EXPECT_EQ(warnings(), expected);
    set(0);
    step_status();
  }
  for (const std::string of :
       {"crit_temp", "high_temp", "low_temp", "high_press", "high_rh", "tilt_mtr", "pan_mtr", "height_mtr"}) {
    for (const std::string on : {"true", "false"}) {
      ask("PUT", "/debug/" + of + "_warning", "{'debug_" + of + "_warning':" + on + "}");
      EXPECT_EQ(warnings(), on == "true" ? of + " " : "");
    }
  }
  set_led_mode("low");
  EXPECT_EQ(member("led_intensity"), "'25%'");
  set_led_mode("strip");
  EXPECT_EQ(member("led_intensity"), "''");
  set_high_beam_time(12);
  set_high_beam(true);
  EXPECT_EQ(member("led_intensity") + member("led_mode"), "'12 s''all'");
  update_seat("lock", request_seat("controller").text);
  EXPECT_EQ(member("ctrl_seat_warning"), "false");
  for (int second = 0; second < 25; ++second) tick_seats();
  EXPECT_EQ(member("ctrl_seat_warning"), "true");
}

}  // namespace
