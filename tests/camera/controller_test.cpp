// The camera thread, the controller's worker and settings, and the hold-to-run loops.
#include "camera/defaults_worker.h"
#include "camera/image_settings.h"
#include "camera/lens_loops.h"
#include "camera/zoom_values.h"
#include "power_board/intensity_loop.h"

#include "base/thread.h"
#include "base/value_file.h"
#include "camera/depth_of_field.h"
#include "camera/modes.h"
#include "power_board/intensity_loop.h"
#include "seats/seats.h"
#include "store/settings.h"
#include "tests/visca/fake_camera.h"

namespace {

TEST(CameraThread, ReportsComeOnAndOutliveTheLink) {
  start_trace();
  global_zoom_position = 0x1111;
  start_detached_thread("camera", visca_thread_procedure, &visca_thread_data);  // nobody listens
  ASSERT_TRUE(traced("VSIO", "connect error 'Connection refused';"));
  const int64_t down = monotonic_ns();
  EXPECT_EQ(visca_camera_zoom_stop(visca_thread_data.camera), -1);
  fake_camera block;
  for (uint32_t link = 2; link <= 3; ++link) {
    ASSERT_TRUE(block.accept_link(8000) &&
                await([] { return visca_connection_is_connected(visca_thread_data.connection) == 1; }));
    EXPECT_NEAR(static_cast<double>(monotonic_ns() - down) / 1e9, 5.5, 1);
    EXPECT_EQ(visca_thread_data.link_number, link);
    visca_camera* camera = visca_thread_data.camera;
    EXPECT_EQ(camera->zoom_position, kViscaNotReported);
    EXPECT_TRUE(visca_camera_is_idle(camera));
    ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
    for (const char* packet : {"8101040700FF", "8101041602FF", "8101046902FF"}) {
      EXPECT_EQ(block.packet(), packet);
      block.say("9041FF9051FF");
    }
    EXPECT_EQ(block.packet(), "81090002FF");
    EXPECT_EQ(camera->zoom_position, link == 2 ? 0x1111U : 0x1234U);  // until the camera reports
    // Reports retire nothing; the last two packets are too short to be any.
    block.say(
        "900704690A0501020304FF 9007041600000A0B0C0DFF 9050002004050123 01FF 900704690FFF 90500020 06FF");
    EXPECT_TRUE(await([&] { return camera->model_id == 0x0405 && camera->extract_index == 5; }));
    EXPECT_EQ(camera->rom_version, 0x0123);
    EXPECT_EQ(camera->digital_zoom, 0xA5);
    EXPECT_EQ(camera->zoom_position, 0x1234U);
    EXPECT_EQ(camera->focus_position, 0xABCDU);
    ASSERT_EQ(visca_camera_zoom_tele(camera), 0);  // left unanswered
    EXPECT_EQ(block.packet(), "8101040702FF");     // nothing more to switch on
    if (link == 3) break;
    visca_suspend_link(&visca_thread_data);  // lends the link to the update
    EXPECT_EQ(visca_thread_data.camera, nullptr);
    while (block.packet() != "closed") continue;
    EXPECT_FALSE(block.accept_link(300));
    visca_resume_link(&visca_thread_data);
  }
  static std::atomic<bool> completed = false;
  EXPECT_NE(visca_start_update(&visca_thread_data, [] { completed = true; }), 0);  // gives it back at once
  EXPECT_EQ(visca_start_update(&visca_thread_data, nullptr), 0);
  EXPECT_TRUE(block.accept_link(2000));
  EXPECT_TRUE(await(
      [] { return visca_thread_data.link_number == 4 && visca_thread_data.suspended == 0 && completed; }));
}

TEST(Lens, ZoomAndFocusFollowTheirCurves) {
  const std::pair<int, const char*> zooms[] = {{-1, "?"},       {0, "1.0x"},     {7042, "2.5x"},
                                               {13426, "9.9x"}, {13428, "10x"},  {14088, "11x"},
                                               {14089, "12x"},  {31423, "330x"}, {65535, "360x"}};
  stepped_link link;
  char text[16];
  for (const auto& [position, expected] : zooms) {
    link.camera->zoom_position = static_cast<uint32_t>(position);
    orb_load_camera_zoom_values(nullptr, nullptr, text, sizeof text);
    EXPECT_STREQ(text, expected) << position;
  }
  orb_init_nv();
  const auto focus = [](int units, int position, const std::string& far_and_near) {
    orb_write_nv(kSettingUnits, &units, sizeof units);
    const depth_of_field field = load_depth_of_field(position);
    EXPECT_EQ(std::string(field.far_limit) + " " + field.near_limit, far_and_near) << position;
  };
  focus(0, -1, "? ?");
  focus(0, 4095, "\u221E \u221E");
  focus(0, 14336, "8.8 m 7.2 m");  // half-way between 6 and 10
  focus(1, 7417, "99 ft 81 ft");   // 99.5 lies between these two
  focus(1, 7416, "100 ft 81 ft");
  focus(1, 65535, "0.036 ft 0.03 ft");
}

TEST(DefaultsWorker, SetsTheCameraUp) {
  const struct {
    int settings[5];  // as stored
    std::string packets;
  } power_ups[] = {{{1, 1, 0, 0, 0}, "6602 3402 5E03 5103 0103 370300"},
                   {{0, 0, 1, 1, 3}, "6603 3403 5E02 5103 0102 370203"},
                   {{9, -1, 2, 3, 4}, "6603 3402 5E02 0103 5102 370202"}};  // the defaults instead
  start_trace();
  orb_init_nv();
  stepped_link link;
  for (const auto& row : power_ups) {
    for (uint32_t i = 0; i < 5; ++i) orb_write_nv(8 + i, &row.settings[i], sizeof(int));
    visca_thread_data.camera = nullptr;  // the worker waits for it
    link.camera->zoom_position = 0x3000;
    orb_init_camera();
    visca_thread_data.camera = link.camera;
    link.expect("4700000000");
    EXPECT_TRUE(traced("CMRA", "power up defaults;power up set;zoom direct 0;zoom actual 12288;"));
    link.camera->zoom_position = 0x10;  // still moving: two equal readings end the wait
    EXPECT_EQ(link.block.packet(350), "");
    link.expect("3802 3900 " + row.packets);
  }
  // What is asked for later runs on the same worker.
  link.camera->zoom_position = 0;
  ASSERT_EQ(orb_set_camera_ir_filter("on"), 0);
  link.expect("5103 0102");
  keep_focus_mode(camera_mode::manual);
  keep_exposure_mode(camera_mode::manual);
  restore_controller_defaults();
  link.expect("4700000000 3802 3900");
  EXPECT_EQ(file_text(paths::kZoomSpeed) + file_text(paths::kFocusMode) + file_text(paths::kFocusSpeed) +
                file_text(paths::kExposureMode) + file_text(paths::kIntensity),
            "3auto2auto25");
  orb_create_zoom_loop();
  write_value_file(paths::kZoomSpeed, 5);
  EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);  // its end must not end the reset nor bring the speed back
  link.expect("0725");
  restore_controller_defaults();
  link.expect("0700 4700000000 3802 3900");
  EXPECT_EQ(file_text(paths::kZoomSpeed), "3");
}

// The loops without their threads: time passes when the test says so.
struct HoldLoops : testing::Test {
  std::optional<stepped_link> link;
  int64_t now_ns = 0;

  void SetUp() override {
    start_trace();
    next_link();
  }
  void next_link() {
    visca_thread_data.camera = nullptr;
    visca_thread_data.connection = nullptr;
    link.reset();
    ++visca_thread_data.link_number;
    link.emplace();
  }
  void pass(int ms) {
    for (const int64_t end = now_ns + ms * kNanosecondsPerMillisecond; now_ns < end;) {
      now_ns += kNanosecondsPerMillisecond;
      for (hold_loop* loop : std::initializer_list<hold_loop*>{&zoom_loop, &focus_loop, &intensity_loop}) {
        const mutex_lock lock(loop->lock);
        step_hold_loop(*loop, now_ns);
      }
    }
  }
  int trigger(hold_loop& loop, int direction, int ms) {
    return trigger_hold_loop(loop, direction, ms, now_ns);
  }
  // A hold that has had its drive and was stopped.
  void hold_and_stop() {
    EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
    link->expect("0723");
    stop_hold_loop(zoom_loop, now_ns);
  }
  void expect_nothing(int ms) {
    pass(ms);
    EXPECT_EQ(link->block.packet(20), "");
  }
  // The next packet, which the camera refuses.
  void refuse(const std::string& packet) {
    EXPECT_EQ(link->block.packet(), "810104" + packet + "FF");
    link->hear("906003FF");
  }
  void fill_queue() {
    while (visca_camera_auto_focus(link->camera) == 0) continue;
  }
};

TEST_F(HoldLoops, SpeedUpWhileHeld) {
  write_value_file(paths::kZoomSpeed, 6);
  write_value_file(paths::kIntensity, 10);
  EXPECT_EQ(trigger(zoom_loop, 1, 4400), 1);
  EXPECT_EQ(trigger(intensity_loop, 1, 4400), 1);
  EXPECT_EQ(trigger(zoom_loop, -1, 500), 0);
  EXPECT_EQ(trigger(intensity_loop, 0, 500), 0);
  link->expect("0726");
  expect_nothing(1999);
  pass(1);
  link->expect("0727");
  expect_nothing(2399);  // 7 is the fastest
  pass(1);
  link->expect("0700");
  expect_nothing(1000);
  EXPECT_TRUE(traced("ZMLP", "start 6;adjust 6 7;end;"));
  EXPECT_EQ(file_text(paths::kZoomSpeed), "6");
  EXPECT_TRUE(traced("ITLP", "adjust 36 39;adjust 39 42;adjust 42 47;end;"));  // 8 * 1, 8 * 3, then 5
  EXPECT_EQ(file_text(paths::kIntensity), "47");
}

TEST_F(HoldLoops, StopTurnAndExtend) {
  for (const char* path : {paths::kZoomSpeed, paths::kFocusSpeed}) write_value_file(path, "8");  // no speed
  hold_and_stop();
  EXPECT_EQ(trigger(zoom_loop, -1, 60000), 1);  // at once, the other way
  link->expect("0700 0733");
  stop_hold_loop(zoom_loop, now_ns);
  link->expect("0700");
  EXPECT_EQ(trigger(focus_loop, 1, 5), 1);
  pass(5);
  link->expect("0822 0800");
  EXPECT_EQ(trigger(zoom_loop, 1, 200), 1);
  pass(100);
  EXPECT_EQ(trigger(zoom_loop, 1, 300), 1);
  link->expect("0723");
  expect_nothing(299);
  now_ns += kNanosecondsPerMillisecond;
  EXPECT_EQ(trigger(zoom_loop, -1, 300), 1);  // before the thread has seen the end
  link->expect("0700 0733");
  for (const auto& [from, direction, messages] :
       {std::tuple{99, 1, "start;adjust 99 100;end;"}, {1, -1, "start;adjust 1 0;end;"}}) {
    write_value_file(paths::kIntensity, from);
    EXPECT_EQ(trigger(intensity_loop, direction, 520), 1);
    pass(520);
    EXPECT_TRUE(traced("ITLP", messages));
  }
}

// A camera that was not told to move gets no stop when it comes.
TEST_F(HoldLoops, DriveAndStopWaitForRoom) {
  visca_thread_data.camera = nullptr;
  EXPECT_EQ(trigger(zoom_loop, 1, 20), 1);
  pass(20);
  visca_thread_data.camera = link->camera;
  expect_nothing(1000);
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  EXPECT_EQ(link->block.packet(), "8101040723FF");
  fill_queue();
  stop_hold_loop(zoom_loop, now_ns);
  pass(30);
  link->hear("9041FF");  // one place is free
  pass(5);
  for (int i = 0; i < 126; ++i) link->expect("3802");
  link->expect("0700");
  fill_queue();
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  EXPECT_EQ(orb_order_zoom({lens_effect::ends, nullptr, visca_camera_zoom_direct, 1}), -1);  // ends the hold
  EXPECT_EQ(trigger(zoom_loop, -1, 60000), 1);
  for (int i = 0; i < 127; ++i) link->expect("3802");
  pass(5);
  link->expect("0733");
}

TEST_F(HoldLoops, AStopIsRepeatedUntilTheCameraHasIt) {
  hold_and_stop();
  for (int i = 0; i < 20; ++i) {
    refuse("0700");
    expect_nothing(249);
    pass(1);
  }
  link->expect("0700");
  pass(505);
  ++link->camera->lost_commands;  // another's
  expect_nothing(1000);
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  link->expect("0723");
  link->camera->lost_ns = now_ns;  // a late reply to it could pass for the stop's
  stop_hold_loop(zoom_loop, now_ns);
  link->expect("0700");
  pass(505);
  link->expect("0700");
  expect_nothing(1000);
  hold_and_stop();
  next_link();
  pass(5);
  link->expect("0700");
  expect_nothing(1000);
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  link->expect("0723");
  visca_camera_auto_focus(link->camera);
  stop_hold_loop(zoom_loop, now_ns);  // it waits behind it, and no second one with it
  ++link->camera->lost_commands;
  pass(700);
  link->expect("3802");
  refuse("0700");
  pass(250);
  link->expect("0700");
  expect_nothing(1000);
}

// What takes the lens from a hold is repeated in the stop's place, for a second.
TEST_F(HoldLoops, APositionEndsTheHold) {
  const lens_order position{lens_effect::ends, nullptr, visca_camera_zoom_direct, 0x1234};
  hold_and_stop();
  EXPECT_EQ(link->block.packet(), "8101040700FF");
  EXPECT_EQ(orb_order_zoom(position), 0);
  link->hear("906003FF");
  now_ns = monotonic_ns();
  for (int i = 0; i < 3; ++i) {
    refuse("4701020304");
    pass(250);
  }
  refuse("4701020304");
  pass(250);
  link->expect("0700");
  expect_nothing(1000);
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  EXPECT_EQ(orb_order_zoom(position), 0);
  link->expect("0723 0700 4701020304");
  EXPECT_TRUE(traced("ZMLP", "start 3;end;"));
  expect_nothing(1000);
  EXPECT_EQ(orb_order_zoom(position), 0);  // nothing drives: it is not watched
  refuse("4701020304");
  expect_nothing(1000);
}

// The API still runs when the daemon ends, its client may still hold the button, and a command be under way.
TEST_F(HoldLoops, TheEndStopsBothLenses) {
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 1);
  EXPECT_EQ(orb_order_focus({lens_effect::drives, visca_camera_focus_near}), 0);
  EXPECT_EQ(link->block.packet(), "8101040723FF");
  orb_close_lens_loops();
  EXPECT_EQ(trigger(zoom_loop, 1, 60000), 0);
  EXPECT_EQ(orb_order_focus({lens_effect::drives, visca_camera_focus_near}), -1);
  const int64_t start = monotonic_ns();
  orb_await_lens_stops(50);  // neither is answered
  EXPECT_GE(monotonic_ns() - start, 50 * kNanosecondsPerMillisecond);
  link->hear("9041FF");
  link->expect("0803 0700 0800");
  orb_await_lens_stops(60000);
  EXPECT_LT(monotonic_ns() - start, 30000 * kNanosecondsPerMillisecond);
}

}  // namespace
