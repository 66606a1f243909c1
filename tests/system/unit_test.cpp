// The daemon as a process, on the whole bench.

#include "system/unit.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <thread>

#include "base/clock.h"

namespace {

long refreshes() { return static_cast<long>(number_after(ctl("board", "show"), "reads ")); }

int count_in_camera_log(const std::string& packet) {
  const std::string log = ctl("camera", "log");
  int count = 0;
  for (size_t at = 0; (at = log.find(packet, at)) != log.npos; ++at) ++count;
  return count;
}

double cpu_ms(pid_t pid) {
  clockid_t clock = 0;
  timespec used{};
  clock_getcpuclockid(pid, &clock);
  clock_gettime(clock, &used);
  return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

TEST(unit, the_board_is_refreshed_in_a_broken_world) {
  static child redis = start_redis(), camera = start_camera();
  const std::pair<const char*, void (*)()> kWorlds[] = {
      {"as it should be", [] {}},
      // Asked every 5 s, through the next worlds.
      {"a silent encoder", [] { ctl("camera", "encoder_silent on"); }},
      {"a frozen redis", [] { redis.signal(SIGSTOP); }},
      {"a stick whose mount hangs", [] { ctl("board", "slow mount 3000"), write_text("/dev/usb_ext1", ""); }},
      {"a silent camera", [] { ctl("camera", "silent on"); }},
      {"a camera that sends garbage", [] { ctl("camera", "silent off"), ctl("camera", "garble on"); }},
      {"no camera", [] { camera = child(); }},
      {"no redis", [] { redis = child(); }},
      {"a board that answers noise", [] { ctl("board", "frame noise"); }},
      {"a board that answers nothing", [] { ctl("board", "frame zeros"); }},
      {"a read-only store",
       [] { mount(nullptr, "/home", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr); }}};
  child daemon = start_serving_daemon();
  ctl("board", "vin 18.5");
  EXPECT_TRUE(await([] { return shell_first_line("redis-cli get avr-voltage", 20) == "18.500000"; }));
  for (const auto& [name, make] : kWorlds) {
    SCOPED_TRACE(name);
    make();
    const long before = refreshes();
    for (int i = 0; i < 15; ++i) {
      http("PUT", "/api/camera/defog", i % 2 == 0 ? R"({"defog":"low"})" : R"({"defog":"high"})");
      http("POST", "/api/camera/zoom/increment");
      usleep(100'000);
    }
    EXPECT_GE(refreshes() - before, 12);
  }
  http("POST", "/api/led/high_beam/on");
  EXPECT_EQ(daemon.end(SIGTERM), 0);
  const std::string log = read_text("/tmp/children.log");
  for (const char* lines : {"start\nentering loop...\n", "WRITE: (1) ff64\nWRITE: (1) 0019\n"})
    EXPECT_TRUE(contains(log, lines)) << lines;
}

// What waits for the disk is answered in its order, and nobody else waits with it.
TEST(unit, answers_while_its_disk_hangs) {
  const child daemon = start_serving_daemon();
  ctl("board", "slow fsync 1000");
  std::vector<std::string> stored;
  std::thread writer([&stored] {
    for (const char* units : {"metric", "english"})
      stored.push_back(http("PUT", "/api/setup/units", R"({"units":")" + std::string(units) + R"("})").body);
  });
  const int64_t start_ns = monotonic_ns();
  usleep(200'000);
  for (const char* path : {"status", "setup/units", "osd/zoom", "magnetometer/calibration", "camera/defog",
                           "logger/readings", "camera/recorder/files"})
    EXPECT_NE(http("GET", std::string("/api/") + path).body, "") << path;
  EXPECT_EQ(http("POST", "/api/motor/tilt/stop").body, kOk);
  EXPECT_LT(monotonic_ns() - start_ns, 900 * kNanosecondsPerMillisecond);
  writer.join();
  EXPECT_EQ(stored, (std::vector<std::string>{kOk, kOk}));
  EXPECT_GE(monotonic_ns() - start_ns, 2'000 * kNanosecondsPerMillisecond);
  EXPECT_EQ(http("GET", "/api/setup/units").body, R"({"units":"english"})");
}

// Requests, pipe lines and signals can come before the board and the camera are there.
TEST(unit, nothing_that_comes_early_or_at_the_end_breaks_it) {
  for (int round = 0; round < 10; ++round) {
    child daemon = start_daemon();
    for (int i = 0; i < 40 + 20 * round; ++i) {
      const std::string title = http("GET", "/api/setup/title").body;  // not "" for a moment
      EXPECT_TRUE(title.empty() || title == R"({"title":"ASSET"})") << title;
      http("POST", "/api/camera/focus/increment");
      http("PUT", "/api/camera/zoom/position", R"({"zoom_position":100})");
    }
    ASSERT_TRUE(await([] { return access("/run/orb/api.fifo", F_OK) == 0; }));
    ASSERT_TRUE(await([] { return contains(ctl("board", "show"), "power 0x06"); }));
    EXPECT_EQ(daemon.end(round % 2 == 0 ? SIGINT : SIGHUP), 0);
  }
}

// A second one would end the first one's take, and without a folder for its pipe it says so.
TEST(unit, has_one_daemon) {
  rmdir("/run/orb");
  write_text("/run/orb", "");
  child daemon = start_daemon();
  EXPECT_EQ(daemon.wait(), 1);
  unlink("/run/orb");
  daemon = start_serving_daemon();
  const std::string orbd = ORB_BUILD_FOLDER "/orbd";
  const std::pair<std::vector<std::string>, int> rows[] = {
      {{}, 1}, {{"--help"}, 0}, {{"--version"}, 0}, {{"-v"}, 2}, {{"--help", "x"}, 2}, {{""}, 2}};
  for (const auto& [words, status] : rows) {
    std::vector<std::string> command{"timeout", "5", orbd};
    command.insert(command.end(), words.begin(), words.end());
    EXPECT_EQ(child(command).wait(), status);
  }
  const std::string usage = "usage: " + orbd + " [--help | --version]\n";
  const std::string said = read_text("/tmp/children.log");
  EXPECT_TRUE(contains(said, "orbd: mkdifo() failed at line 208: Not a directory\n"));
  EXPECT_TRUE(contains(said, orbd + ": another one is running\n" + usage + "The controller"));
  EXPECT_TRUE(contains(said, "orbd 03.01\n" + usage + usage + usage));
  for (int round = 0; round < 5; ++round) {
    child killed = std::move(daemon);
    killed.signal(SIGKILL);
    daemon = start_serving_daemon();
    EXPECT_EQ(killed.wait(), -SIGKILL);
  }
}

// Fifteen tablets that hold their connections: the sixteenth waits, and the unit does not spin meanwhile.
TEST(unit, a_full_pool_waits_without_spinning) {
  const child daemon = start_serving_daemon();
  std::array<unique_fd, 16> held;
  for (unique_fd& fd : held) fd = connect_to(addresses::kApiPort);
  usleep(100'000);
  const std::string request = "GET /api/camera/zoom/speed HTTP/1.1\r\n\r\n";
  send(held[15].get(), request.data(), request.size(), 0);
  const double before = cpu_ms(daemon.pid());
  usleep(1'000'000);
  EXPECT_LT(cpu_ms(daemon.pid()) - before, 200);
  char text[256] = "";
  EXPECT_LT(recv(held[15].get(), text, sizeof text, MSG_DONTWAIT), 0);
  held[3].reset();
  EXPECT_GT(recv(held[15].get(), text, sizeof text, 0), 0);
}

TEST(unit, a_signal_during_the_start_ends_it_in_order) {
  for (int round = 0; round < 20; ++round) {
    unlink("/media/usb99/trace");
    child daemon = start_daemon();
    while (access("/media/usb99/trace", F_OK) != 0) usleep(100);
    usleep(static_cast<useconds_t>(round) * 500);
    daemon.signal(round % 2 == 0 ? SIGUSR1 : SIGUSR2);  // both are ignored
    EXPECT_EQ(daemon.end(SIGTERM), 0);
  }
}

TEST(unit, a_console_that_nobody_reads_holds_nobody) {
  const std::string build = ORB_BUILD_FOLDER;
  const child shell({"sh", "-c", "exec " + build + "/orbd | sleep 60"}, build + "/libboard_preload.so");
  ASSERT_TRUE(await_api());
  for (int i = 0; i < 4000; ++i) ASSERT_FALSE(http("GET", "/api/1.0/camera/zoom").body.empty()) << i;
}

// A lens drives on without its link: the stop is sent when the camera is there again. The daemon's end sends
// it too, and waits until the camera has it, also behind a command that is still unanswered.
TEST(unit, a_zoom_is_stopped_after_the_loss_of_its_link_and_at_the_end) {
  const child camera = start_camera();
  child daemon = start_serving_daemon();
  const auto sent = [](const char* bytes) {
    return count_in_camera_log(std::string("81 01 04 ") + bytes + " FF");
  };
  const auto zoom_in = [&](int times) {
    http("POST", "/api/camera/zoom/increment");
    return await([&] { return sent("07 23") == times; });
  };
  ASSERT_TRUE(await([&] { return sent("37 02 02") == 1; }));  // the last step of the power-up sequence
  ASSERT_TRUE(zoom_in(1));
  ctl("camera", "drop");
  EXPECT_TRUE(await([&] { return sent("07 00") == 1; }));
  usleep(1'000'000);  // the stop is certain
  ctl("camera", "ack_delay 100");
  ASSERT_TRUE(zoom_in(2));
  EXPECT_EQ(daemon.end(SIGTERM), 0);
  EXPECT_GE(sent("07 00"), 2);
}

// The bench's deploy script prints thirteen lines in four seconds. One that cannot be started reboots nothing
// and keeps the updates' place.
TEST(unit, an_update_is_followed_over_http_and_ends_with_a_reboot) {
  const std::string target = R"({"target":"software","stage":")";
  const std::string progress[] = {
      target + R"(","description_1":"","description_2":""})",  // not started
      target + R"(12 of 11","description_1":"clean","description_2":"removing"})"};
  write_text("/media/usb-cpy/orb_733-00158_update_2.4.0.zip", "PK");
  for (const bool is_startable : {false, true}) {
    chmod("/opt/nork/scripts/deploy_update.sh", is_startable ? 0755 : 0644);
    child daemon = start_serving_daemon();
    EXPECT_EQ(http("GET", "/api/install/versions").body,
              R"({"software_update":"2.4.0","firmware_update":"","camera_update":""})");
    EXPECT_EQ(http("POST", "/api/install/software").body, kOk);
    usleep(1'000'000);  // a reboot takes 0.65 s
    EXPECT_NE(http("POST", "/api/install/software").body, kOk);
    EXPECT_EQ(power_calls(), "");
    EXPECT_TRUE(await([&] { return http("GET", "/api/install/status").body == progress[is_startable]; }));
    EXPECT_EQ(is_startable ? daemon.wait() : 0, 0);
    EXPECT_EQ(power_calls(), is_startable ? "reboot\n" : "");
  }
}

TEST(unit, ends_in_time_although_its_log_hangs) {
  mkdir("/media/usb99/trace_old", 0755);  // so that the pipe stays the log
  write_text("/media/usb99/trace_old/kept", "");
  mkfifo("/media/usb99/trace", 0600);
  const unique_fd unread(open("/media/usb99/trace", O_RDWR | O_CLOEXEC));
  write_text("/media/usb99/trace_mask", "0x000FFFFF");
  child daemon = start_serving_daemon();
  int filled = 0;
  ASSERT_TRUE(await([&] {
    for (int i = 0; i < 100; ++i) http("POST", "/api/camera/zoom/stop");
    const int before = filled;
    return ioctl(unread.get(), FIONREAD, &filled) == 0 && filled > 60'000 && filled == before;
  }));
  // Whoever wants it to end is impatient: no later signal may cut the end short.
  for (int i = 0; i < 9; ++i) daemon.signal(SIGTERM), usleep(100'000);
  EXPECT_EQ(daemon.wait(), 0);
}

// The bench writes down what the clock was set to.
TEST(unit, the_clock_is_set_to_what_a_client_says_and_the_unit_reboots) {
  child daemon = start_serving_daemon();
  const auto set = [](const std::string& member, const std::string& text) {
    http("PUT", "/api/setup/" + member, "{\"" + member + "\":\"" + text + "\"}");
    const std::string calls = read_text("/tmp/board_calls");
    return static_cast<long>(number_after(calls.substr(calls.rfind("settimeofday")), "settimeofday "));
  };
  EXPECT_EQ(set("time", "7:5:3") % 86400, 7 * 3600 + 5 * 60 + 3);
  EXPECT_EQ(set("date", "2031-02-31") / 86400, 22341);  // 3 March
  http("POST", "/api/shutdown", R"({"shutdown_type":2})");
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(power_calls(), "reboot\n");
}

TEST(unit, keeps_an_image) {
  const child daemon = start_serving_daemon();
  const auto post = [](const std::string& image) {
    return http("POST", "/api/camera/imagecache", image).body;
  };
  std::string image(524'287, '\0');
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * i >> 8);
  EXPECT_EQ(post(image), kOk);
  for (const std::string& bad : {image + "x", std::string()})
    EXPECT_EQ(post(bad), R"({"status":"BAD_REQUEST"})");
  const reply answer = http("GET", "/api/camera/imagecache");
  EXPECT_TRUE(answer.body == image);
  EXPECT_EQ(answer.head, "HTTP/1.1 200 OK\r\nContent-Length: 524287\r\nContent-Type: image/jpeg");
}

}  // namespace
