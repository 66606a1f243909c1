// The camera thread, the controller's worker and settings, and the hold-to-run loops.
#include "base/text.h"
#include "base/thread.h"
#include "camera/defaults_worker.h"
#include "camera/depth_of_field.h"
#include "camera/image_settings.h"
#include "camera/lens_loops.h"
#include "camera/modes.h"
#include "camera/zoom_values.h"
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
    EXPECT_GT(monotonic_ns() - down, 4500 * kNanosecondsPerMillisecond);
    EXPECT_EQ(visca_thread_data.link_number, link);
    visca_camera* camera = visca_thread_data.camera;
    EXPECT_EQ(camera->zoom_position, kViscaNotReported);
    ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
    for (const char* packet : {"8101040700FF", "8101041602FF", "8101046902FF", "81090002FF"}) {
      EXPECT_EQ(block.packet(), packet);
      if (std::string_view(packet) != "81090002FF") block.say("9041FF9051FF");
    }
    EXPECT_EQ(camera->zoom_position, link == 2 ? 0x1111U : 0x1234U);  // until the camera reports
    block.say("900704690A0501020304FF 900704690FFF 90500020 06FF");   // the last two are too short
    EXPECT_TRUE(await([&] { return camera->zoom_position == 0x1234U; }));
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

// The ends of the curves, and where their texts change form.
TEST(Lens, ZoomAndFocusFollowTheirCurves) {
  stepped_link link;
  std::string zooms, fields;
  for (const uint32_t position :
       {kViscaNotReported, 0U, 7042U, 13426U, 13428U, 14088U, 14089U, 31423U, 65535U}) {
    link.camera->zoom_position = position;
    char text[16];
    orb_load_camera_zoom_values(nullptr, nullptr, text, sizeof text);
    zooms += text + std::string(" ");
  }
  EXPECT_EQ(zooms, "? 1.0x 2.5x 9.9x 10x 11x 12x 330x 360x ");
  orb_init_nv();
  for (const auto& [units, position] :
       {std::pair(0, -1), {0, 4095}, {0, 14336}, {1, 7417}, {1, 7416}, {1, 65535}}) {
    orb_write_nv(kSettingUnits, &units, sizeof units);
    const depth_of_field field = load_depth_of_field(position);
    fields += std::string(field.far_limit) + "/" + field.near_limit + " ";
  }
  EXPECT_EQ(fields, "?/? \u221E/\u221E 8.8 m/7.2 m 99 ft/81 ft 100 ft/81 ft 0.036 ft/0.03 ft ");
}

// The camera gets all that was set, in an order that it takes, and a hold's end undoes no reset.
TEST(DefaultsWorker, SetsTheCameraUp) {
  const std::pair<std::array<int, 5>, std::string> power_ups[] = {
      {{1, 1, 0, 0, 0}, "6602 3402 5E03 5103 0103 370300"},
      {{0, 0, 1, 1, 3}, "6603 3403 5E02 5103 0102 370203"},
      {{9, -1, 2, 3, 4}, "6603 3402 5E02 0103 5102 370202"}};  // the defaults instead
  start_trace();
  orb_init_nv();
  stepped_link link;
  for (const auto& [stored, packets] : power_ups) {
    for (uint32_t i = 0; i < 5; ++i) orb_write_nv(kSettingInvertImage + i, &stored[i], sizeof(int));
    visca_thread_data.camera = nullptr;  // the worker waits for it
    link.camera->zoom_position = 0x3000;
    orb_init_camera();
    visca_thread_data.camera = link.camera;
    link.expect("4700000000");
    EXPECT_TRUE(traced("CMRA", "power up defaults;power up set;zoom direct 0;zoom actual 12288;"));
    link.camera->zoom_position = 0x10;  // still moving: two equal readings end the wait
    EXPECT_EQ(link.block.packet(350), "");
    link.expect("3802 3900 " + packets);
  }
  link.camera->zoom_position = 0;
  ASSERT_EQ(orb_set_camera_ir_filter("on"), 0);
  link.expect("5103 0102");
  keep_focus_mode(camera_mode::manual);
  keep_exposure_mode(camera_mode::manual);
  orb_create_zoom_loop();
  write_value_file(paths::kZoomSpeed, 5);
  EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);  // its end must not end the reset nor bring the speed back
  link.expect("0725");
  restore_controller_defaults();
  link.expect("0700 4700000000 3802 3900");
  std::string stored;
  for (const char* file :
       {paths::kZoomSpeed, paths::kFocusMode, paths::kFocusSpeed, paths::kExposureMode, paths::kIntensity})
    stored += file_text(file) + " ";
  EXPECT_EQ(stored, "3 auto 2 auto 25 ");
}

const lens_order kPosition{lens_effect::ends, nullptr, visca_camera_zoom_direct, 0x1234};

// The loops without their threads: time passes when the test says so.
struct HoldLoops : testing::Test {
  std::optional<stepped_link> link;
  int64_t now_ns = 0;

  void SetUp() override { start_trace(), next_link(); }
  void next_link() {
    visca_thread_data.camera = nullptr, visca_thread_data.connection = nullptr;
    link.reset();
    ++visca_thread_data.link_number;
    link.emplace();
  }
  void step(hold_loop& loop) const {
    const mutex_lock lock(loop.lock);
    step_hold_loop(loop, now_ns);
  }
  void pass(int ms) {
    for (; ms > 0; --ms)
      now_ns += kNanosecondsPerMillisecond, step(zoom_loop), step(focus_loop), step(intensity_loop);
  }
  int trigger(hold_loop& loop, int direction, int ms) {
    return trigger_hold_loop(loop, direction, ms, now_ns);
  }
  void fill_queue() {
    while (visca_camera_auto_focus(link->camera) == 0) continue;
  }
  void silent() { EXPECT_EQ(link->block.packet(20), ""); }
  // Plays a scene word by word: "in:MS" and the like are holds (60 s without a number), "stop" the end of the
  // zoom's, "position" another's order, "lost" a lost command of another, "refused:PACKET" the next packet
  // with the camera's refusal, "quiet:MS" time in which none comes; else it is the next packet, acknowledged.
  void play(const std::string& scene) {
    const std::map<std::string, std::function<void(int)>> acts = {
        {"in", [&](int ms) { EXPECT_EQ(trigger(zoom_loop, 1, ms), 1); }},
        {"out", [&](int ms) { EXPECT_EQ(trigger(zoom_loop, -1, ms), 1); }},
        {"far", [&](int ms) { EXPECT_EQ(trigger(focus_loop, 1, ms), 1); }},
        {"brighter", [&](int ms) { EXPECT_EQ(trigger(intensity_loop, 1, ms), 1); }},
        {"stop", [&](int) { stop_hold_loop(zoom_loop, now_ns); }},
        {"position", [&](int) { EXPECT_EQ(orb_order_zoom(kPosition), 0); }},
        {"lost", [&](int) { ++link->camera->lost_commands; }},
        {"pass", [&](int ms) { pass(ms); }},
        {"quiet", [&](int ms) { pass(ms), silent(); }}};
    for (const std::string& word : words(scene)) {
      SCOPED_TRACE(word + " of " + scene);
      const size_t colon = std::min(word.size(), word.find(':'));
      const auto act = acts.find(word.substr(0, colon));
      if (act != acts.end()) {
        act->second(colon < word.size() ? number_or_zero(&word[colon + 1]) : 60000);
      } else if (word.starts_with("refused:")) {
        EXPECT_EQ(link->block.packet(), "810104" + word.substr(8) + "FF");
        link->hear("906003FF");
      } else {
        link->expect(word);
      }
    }
  }
};

TEST_F(HoldLoops, SpeedUpWhileHeldAndForgetItAfterwards) {
  write_value_file(paths::kZoomSpeed, 6);
  write_value_file(paths::kIntensity, 10);
  play("in:4400 brighter:4400");
  EXPECT_EQ(trigger(zoom_loop, -1, 500) + trigger(intensity_loop, 0, 500), 0);
  play("0726 quiet:1999 pass:1 0727 quiet:2399 pass:1 0700");  // 7 is the fastest
  EXPECT_TRUE(traced("ZMLP", "start 6;adjust 6 7;end;"));
  EXPECT_EQ(file_text(paths::kZoomSpeed), "6");
  EXPECT_TRUE(traced("ITLP", "adjust 36 39;adjust 39 42;adjust 42 47;end;"));  // 8 * 1, 8 * 3, then 5
  play("brighter:520 pass:520");
  EXPECT_TRUE(traced("ITLP", "start;adjust 47 48;adjust 48 49;end;"));
}

// A hold ends when its last request says, also when the loop's thread is late.
TEST_F(HoldLoops, StopTurnAndExtend) {
  for (const char* path : {paths::kZoomSpeed, paths::kFocusSpeed}) write_value_file(path, "8");  // no speed
  play("in 0723 stop out stop 0700 0733 0700");
  play("far:5 pass:5 0822 0800");
  play("in:200 pass:100 in:300 0723 quiet:299");
  now_ns += kNanosecondsPerMillisecond;
  play("out:300 0700 0733");
}

// A camera that was not told to move gets no stop when it comes; one that was gets it when there is room.
TEST_F(HoldLoops, DriveAndStopWaitForRoom) {
  visca_thread_data.camera = nullptr;
  play("in:20 pass:20");
  visca_thread_data.camera = link->camera;
  play("quiet:1000 in");
  EXPECT_EQ(link->block.packet(), "8101040723FF");
  fill_queue();
  play("stop pass:30");
  link->hear("9041FF");  // one place is free
  pass(5);
  for (int i = 0; i < 126; ++i) play("3802");
  play("0700");
  fill_queue();
  play("in");
  EXPECT_EQ(orb_order_zoom(kPosition), -1);  // ends the hold
  play("out");
  for (int i = 0; i < 127; ++i) play("3802");
  play("pass:5 0733");
}

// Refused, lost, in doubt or on a link that is gone: it is given again, and no more than that.
TEST_F(HoldLoops, AStopIsRepeatedUntilTheCameraHasIt) {
  play("in 0723 stop");
  next_link();
  play("pass:5 0700 quiet:1000 in 0723 stop");
  for (int i = 0; i < 20; ++i) play("refused:0700 quiet:249 pass:1");
  play("0700 pass:505 lost quiet:1000 in 0723");
  link->camera->lost_ns = now_ns;  // a late reply to it could pass for the stop's
  play("stop 0700 pass:505 0700 quiet:1000 in 0723");
  visca_camera_auto_focus(link->camera);  // it waits behind it, and no second one with it
  play("stop lost pass:700 3802 refused:0700 pass:250 0700 quiet:1000 in 0723");
  EXPECT_EQ(orb_order_zoom({lens_effect::stops, visca_camera_zoom_stop}), 0);
  play("0700 quiet:20");
}

// What takes the lens from a hold is repeated in the stop's place, for a second.
TEST_F(HoldLoops, APositionEndsTheHold) {
  play("in 0723 stop");
  EXPECT_EQ(link->block.packet(), "8101040700FF");
  play("position");
  link->hear("906003FF");
  now_ns = monotonic_ns();
  for (int i = 0; i < 4; ++i) play("refused:4701020304 pass:250");
  play("0700 quiet:1000 in position 0723 0700 4701020304");
  EXPECT_TRUE(traced("ZMLP", "start 3;end;"));
  play("quiet:1000 position refused:4701020304 quiet:1000");  // nothing drives: it is not watched
  now_ns = monotonic_ns();
  play("in 0723 position 0700 refused:4701020304 pass:600 4701020304");
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
