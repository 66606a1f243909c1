// The supervisor of the whole daemon: the camera that it watches, and the unit's end.

#include "system/unit.h"

namespace {

void expect_in_order(const std::string& log, const std::vector<std::string>& lines) {
  size_t at = 0;
  for (const std::string& line : lines)
    ASSERT_NE(at = log.find("\n" + line + "\n", at), log.npos) << "no '" << line << "' in its place in\n"
                                                               << log;
}

void set_host(const std::string& words) {
  ASSERT_EQ(system((ORB_SIM_FOLDER "/host host " + words).c_str()), 0);
}

// A slow start is answered as a refusal and records all the same.
void record_for(useconds_t seconds) {
  ASSERT_TRUE(await([] {
    http("POST", "/api/camera/recorder/start");
    return contains(trace_log(), "RCDR: started");
  }));
  usleep(seconds * 1'000'000);
}

TEST(supervisor, ends_the_unit_and_loses_no_take) {
  write_text("/media/usb99/trace_mask", "0x00000231");
  const child camera = start_camera(true);
  child daemon = start_serving_daemon();
  record_for(6);
  http("POST", "/api/camera/recorder/pause");
  ctl("board", "status 1 on");  // the board asks, once
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(power_calls(), "shutdown -P now\n");
  expect_in_order(trace_log(),
                  {"RCDR: pause", "PWRB: shutdown request", "SUPV: shutdown begin", "SUPV: resume recording",
                   "RCDR: resume", "SUPV: stop recording", "RCDR: stop 1", "RCDR: record end",
                   "SUPV: camera off", "SUPV: shutdown end", "PWRB: signal shutdown", "SUPV: cl shutdown"});
  EXPECT_TRUE(contains(read_text("/tmp/children.log"), "WRITE: (0) 02\nWRITE: (0) 03\n"));
  EXPECT_EQ(playable_takes(), 1);

  // Hot: nothing waits for the take but its ffmpeg's end, which takes long here, as its completion would. It
  // is there after the next start all the same.
  remove("/media/usb99/trace");
  daemon = start_serving_daemon();
  record_for(5);
  ctl("camera", "picture_silent on");  // the camera's power goes with the unit's
  usleep(500'000);
  write_text("/tmp/slow", "#!/bin/sh\nexec sleep 60\n");
  chmod("/tmp/slow", 0755);
  ASSERT_EQ(mount("/tmp/slow", "/usr/bin/ffprobe", nullptr, MS_BIND, nullptr), 0);
  set_host("temperature 90");
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(access(paths::kTakeGuid, F_OK), 0) << "completed, not abandoned";
  EXPECT_EQ(power_calls(), "shutdown -P now\nshutdown -P now\n");
  expect_in_order(trace_log(), {"SUPV: temp shutdown 25.0 90.0", "SUPV: need shutdown",
                                "SUPV: shutdown begin", "SUPV: stop recording",
                                "SUPV: temperature, skip post", "SUPV: camera off", "SUPV: cl shutdown"});
  set_host("temperature 45");
  umount("/usr/bin/ffprobe");
  daemon = start_serving_daemon();
  EXPECT_TRUE(await_completion());
  EXPECT_EQ(playable_takes(), 2);
}

TEST(supervisor, watches_the_camera_and_its_encoder) {
  write_text("/media/usb99/trace_mask", "0x00000001");
  child camera = start_camera();
  ctl("camera", "channel_2 off");
  const child daemon = start_serving_daemon();
  const auto becomes = [](const std::string& name, const std::string& text) {
    return await([&] { return read_text("/tmp/" + name) == text; });
  };
  const auto traces = [](const std::string& message) {
    return await([&] { return contains(trace_log(), "SUPV: " + message); }, 12);
  };
  EXPECT_TRUE(becomes("camera_signal", "0"));
  set_host("echo off");
  EXPECT_TRUE(becomes("camera_signal", "1"));
  set_host("echo on");
  EXPECT_TRUE(becomes("channel_2_status", "no signal"));
  EXPECT_TRUE(becomes("channel_1_status", "1920x1080 15fps"));
  EXPECT_TRUE(becomes("cpu_temp", "50.00"));
  ctl("camera", "lens 101");
  EXPECT_TRUE(traces("*** ctt: '+LENS 101 +FPGA 45 +CPU 50'"));
  EXPECT_EQ(read_text("/tmp/lens_temp"), "35.00");
  using row = std::pair<std::string, std::string>;
  for (const auto& [fault, message] :
       {row("404", "a response 404"), row("silent", "a response 500"), row("no_length", "b response 500")}) {
    ctl("camera", "encoder_" + fault + " on");
    EXPECT_TRUE(traces("http " + message)) << fault;
    ctl("camera", "encoder_" + fault + " off");
  }
  camera = child();
  EXPECT_TRUE(traces("http open fail 111"));
}

}  // namespace
