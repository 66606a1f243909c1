// The status object, byte for byte.
#include <gtest/gtest.h>

#include <fstream>

#include "camera/visca_connection.h"
#include "camera/visca_thread.h"
#include "http/api_client.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "seats/seats.h"
#include "store/settings.h"
#include "supervisor/status.h"

namespace {

orb_power_board board;

void begin() {
  orb_init_nv();
  start_api();
  for (int i = 0; i < 1000 && ask("GET", "/model").empty(); ++i) usleep(5000);
}

std::string status() { return ask("GET", "/status"); }

// The value of one member, as it stands in the answer.
std::string member(const std::string& key) {
  const std::string answer = status();
  const size_t at = answer.find("'" + key + "':") + key.size() + 3;
  return answer.substr(at, answer.find_first_of(",}", at) - at);
}

std::string golden(const std::string& name) {
  std::string text = read_file((ORB_GOLDEN_FOLDER "/status_" + name + ".json").c_str(), 4096).value_or("");
  std::ranges::replace(text, '"', '\'');
  return text;
}

// Answers one poll, to each of its requests the same.
void play_encoder() {
  const std::string body =
      R"({"encoder_status_str":"1080p30 720p15 on off","temp_status_str":"+LENS 34 +FPGA 45.5 +CPU 51"})";
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  const unique_fd listener(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{AF_INET, htons(addresses::kEncoderHttpPort), {inet_addr(addresses::kCamera)}, {}};
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  listen(listener.get(), 1);
  start_encoder_poll(ev_default_loop(0));
  ev_run(ev_default_loop(0), EVRUN_ONCE);  // its timer
  const unique_fd fd(accept(listener.get(), nullptr, nullptr));
  char request[256];
  for (int i = 0; i < 2000 && *last_encoder_report().channels[0] == '\0'; ++i) {
    ev_run(ev_default_loop(0), EVRUN_NOWAIT);
    if (recv(fd.get(), request, sizeof request, MSG_DONTWAIT) > 0)
      send(fd.get(), (head + body).data(), head.size() + body.size(), 0);
    usleep(1000);
  }
}

void step_with_motor(uint8_t type) {
  {
    const mutex_lock lock(board.readings_lock);
    board.readings.status = kStatusExtended;
    board.readings.bme280_temperature = 21.46F;
    board.readings.monitor_vin_volts = 18;
    board.readings.imu_accelerometer_0 = 1;
    board.readings.motor_type = type;
  }
  board.has_frame = true;
  power_board_instance = &board;
  step_status();
}

TEST(status_object, tells_the_whole_unit) {
  begin();
  for (const char* file : {paths::kFocusSpeed, paths::kZoomSpeed}) unlink(file);
  EXPECT_EQ(status(), golden("at_start"));

  static visca_connection camera_link;
  camera_link.records[1].focus_position = 8192;
  camera_link.records[1].zoom_position = 5793;
  visca_thread_data.camera = &camera_link.records[1];
  board.laser.distance = 30.0;
  board.laser.invalid_count = 0;
  board.battery_level = 2;
  std::ofstream(paths::kRelease) << "2.4.0\nbuilt by hand\n";
  std::ofstream(paths::kUpdateStatus) << "copying";
  std::ofstream(paths::kPaused) << "1";
  for (int core = 0; core < 4; ++core)
    std::ofstream("/sys/devices/platform/coretemp.0/hwmon/hwmon1/temp" + std::to_string(core + 2) + "_input")
        << 82000 + 1100 * core;
  reset_status();
  play_encoder();
  step_with_motor(kMotorPan);
  ask("PUT", "/camera/zoom/speed", "{'zoom_speed':4}");
  EXPECT_EQ(status(), golden("english"));
  ask("PUT", "/setup/units", "{'units':'metric'}");
  EXPECT_EQ(status(), golden("metric"));
  ask("PUT", "/setup/units", "{'units':'english'}");
  board.laser.distance = 31.0;
  EXPECT_EQ(member("laser_distance"), "'102 ft'");
}

TEST(status_object, lights_and_warnings) {
  begin();
  board.drive_overcurrent_hold = 1;
  for (const auto& [type, expected] :
       {std::pair(uint8_t{0}, "false false"), {kMotorPan, "true false"}, {kMotorHeight, "false true"}}) {
    step_with_motor(type);
    EXPECT_EQ(member("pan_mtr_warning") + " " + member("height_mtr_warning"), expected);
  }
  board.drive_overcurrent_hold = 0;
  for (const std::string of :
       {"crit_temp", "high_temp", "low_temp", "high_press", "high_rh", "tilt_mtr", "pan_mtr", "height_mtr"}) {
    const std::string name = of + "_warning";
    EXPECT_EQ(member(name), "false") << name;
    ask("PUT", "/debug/" + name, "{'debug_" + name + "':true}");
    EXPECT_EQ(member(name), "true") << name;
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
