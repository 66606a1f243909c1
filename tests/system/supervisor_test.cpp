// The supervisor of the whole daemon: the camera that it watches, and the unit's end.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "system/unit.h"

namespace {

namespace fs = std::filesystem;

std::string trace_log() {
  return std::regex_replace(read_text("/media/usb99/trace"), std::regex(R"( \[\d\d:\d\d:\d\d\.\d\d\d\])"),
                            "");
}

// The lines stand in the log, in this order.
bool has_in_order(const std::string& log, const std::vector<std::string>& lines) {
  size_t at = 0;
  for (const std::string& line : lines) {
    at = log.find("\n" + line + "\n", at);
    if (at == std::string::npos)
      return ADD_FAILURE() << "no '" << line << "' in its place in\n" << log, false;
    ++at;
  }
  return true;
}

void set_host(const std::string& words) {
  ASSERT_EQ(system((ORB_SIM_FOLDER "/host host " + words).c_str()), 0);
}

// Durations of the finished takes, in seconds.
std::vector<double> finished_takes() {
  std::vector<double> durations;
  for (const auto& file : fs::directory_iterator("/media/usb99/ApiVideos")) {
    if (file.path().extension() != ".mp4") continue;
    system(("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + file.path().string() +
            "' >/tmp/duration")
               .c_str());
    durations.push_back(number_after(read_text("/tmp/duration"), ""));
  }
  return durations;
}

// A slow start is answered as a refusal and records all the same.
void record_for(useconds_t seconds) {
  ASSERT_TRUE(await([] {
    http("POST", "/api/camera/recorder/start");
    return trace_log().find("RCDR: started") != std::string::npos;
  }));
  usleep(seconds * 1'000'000);
}

std::string power_calls() {
  return std::regex_replace(read_text("/tmp/power_calls"), std::regex("\\S+T\\S+ "), "");
}

TEST(supervisor, ends_the_unit_and_loses_no_take) {
  write_text("/media/usb99/trace_mask", "0x00000231");
  const child camera({ORB_BUILD_FOLDER "/sim_camera"});
  ASSERT_TRUE(await([] {
    const int fd = connect_to("192.168.0.127", 554);
    close(fd);
    return fd >= 0;
  }));
  child daemon = start_daemon();
  ASSERT_TRUE(await_api());
  record_for(6);
  http("POST", "/api/camera/recorder/pause");
  ctl("board", "status 1 on");  // the board asks, once
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(power_calls(), "shutdown -P now\n");
  has_in_order(trace_log(),
               {"RCDR: pause", "PWRB: shutdown request", "SUPV: shutdown begin", "SUPV: resume recording",
                "RCDR: resume", "SUPV: stop recording", "RCDR: stop 1", "RCDR: record end",
                "SUPV: camera off", "SUPV: shutdown end", "PWRB: signal shutdown", "SUPV: cl shutdown"});
  EXPECT_NE(read_text("/tmp/children.log").find("WRITE: (0) 02\nWRITE: (0) 03\n"), std::string::npos);
  std::vector<double> takes = finished_takes();
  ASSERT_EQ(takes.size(), 1U);
  EXPECT_GT(takes[0], 2);

  // A reboot, asked for twice, waits for a completion that takes long. When the unit becomes hot it waits no
  // more and the power goes off; the take is there after the next start all the same.
  daemon = start_daemon();
  ASSERT_TRUE(await_api());
  record_for(5);
  write_text("/tmp/slow", "#!/bin/sh\nexec sleep 60\n");
  chmod("/tmp/slow", 0755);
  ASSERT_EQ(mount("/tmp/slow", "/usr/bin/ffprobe", nullptr, MS_BIND, nullptr), 0);
  for (int i = 0; i < 2; ++i) {
    http("POST", "/api/shutdown", R"({"shutdown_type":"2"})");
    usleep(1'500'000);
  }
  EXPECT_EQ(power_calls(), "shutdown -P now\n");
  set_host("temperature 90");
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(power_calls(), "shutdown -P now\nshutdown -P now\n");
  has_in_order(trace_log(), {"HAPI: shutdown 2", "SUPV: shutdown begin", "SUPV: stop recording",
                             "SUPV: temp shutdown 25.0 90.0", "SUPV: need shutdown",
                             "SUPV: temperature, skip post", "SUPV: camera off", "SUPV: cl shutdown"});
  set_host("temperature 45");
  umount("/usr/bin/ffprobe");

  // Hot: nothing waits for the take but its ffmpeg's end, which takes long here.
  remove("/media/usb99/trace");
  daemon = start_daemon();
  ASSERT_TRUE(await_api());
  EXPECT_TRUE(await([] { return finished_takes().size() == 2 && !fs::exists("/home/orb/ApiVideos/guid"); }));
  record_for(5);
  ctl("camera", "picture_silent on");  // the camera's power goes with the unit's
  usleep(500'000);
  set_host("temperature 90");
  EXPECT_EQ(daemon.wait(), 0);
  has_in_order(trace_log(), {"SUPV: stop recording", "SUPV: temperature, skip post", "SUPV: camera off",
                             "SUPV: cl shutdown"});
  set_host("temperature 45");
  daemon = start_daemon();
  EXPECT_TRUE(await([] { return finished_takes().size() == 3 && !fs::exists("/home/orb/ApiVideos/guid"); }));
  takes = finished_takes();
  EXPECT_GT(*std::min_element(takes.begin(), takes.end()), 2);
}

TEST(supervisor, watches_the_camera_and_its_encoder) {
  const std::pair<std::string, std::string> faults[] = {
      {"encoder_404 ", "SUPV: http a response 404"},
      {"encoder_silent ", "SUPV: http a response 500"},
      {"encoder_no_length ", "SUPV: http b response 500"},
      {"lens 101", "SUPV: *** ctt: '+LENS 101 +FPGA 45 +CPU 50'"}};
  write_text("/media/usb99/trace_mask", "0x00000001");
  child camera = start_camera();
  ctl("camera", "channel_2 off");
  const child daemon = start_daemon();
  EXPECT_TRUE(await([] { return read_text("/tmp/camera_signal") == "0"; }));
  set_host("echo off");
  EXPECT_TRUE(await([] { return read_text("/tmp/camera_signal") == "1"; }));
  set_host("echo on");
  EXPECT_TRUE(await([] { return read_text("/tmp/channel_2_status") == "no signal"; }));
  EXPECT_EQ(read_text("/tmp/channel_1_status"), "1920x1080 15fps");
  EXPECT_TRUE(await([] { return read_text("/tmp/cpu_temp") == "50.00"; }));
  for (const auto& fault : faults) {
    const std::string& word = fault.first;
    const bool is_switch = word.back() == ' ';
    EXPECT_EQ(ctl("camera", word + (is_switch ? "on" : "")), "ok\n");
    EXPECT_TRUE(await([&] { return trace_log().find(fault.second) != std::string::npos; }, 12)) << word;
    if (is_switch) ctl("camera", word + "off");
  }
  EXPECT_EQ(read_text("/tmp/lens_temp"), "35.00");
  camera = child();
  EXPECT_TRUE(await([&] { return trace_log().find("SUPV: http open fail 111") != std::string::npos; }));
}

}  // namespace
