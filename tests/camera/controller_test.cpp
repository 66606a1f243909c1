// The camera thread, the controller's worker and settings, and the hold-to-run loops.
#include "camera/controller.h"

#include <functional>

#include "base/thread.h"
#include "base/value_file.h"
#include "camera/depth_of_field.h"
#include "camera/image_settings.h"
#include "camera/modes.h"
#include "camera/visca_thread.h"
#include "store/settings.h"
#include "tests/camera/fake_camera.h"

namespace {

void start_camera_thread() { start_detached_thread("camera", visca_thread_procedure, &visca_thread_data); }

bool is_link_up() { return visca_connection_is_connected(visca_thread_data.connection) == 1; }

TEST(CameraThread, ReportsComeOnAndOutliveTheLink) {
  start_trace({kTraceVisca});
  global_focus_position = 0x1111;
  start_camera_thread();  // nobody listens
  ASSERT_TRUE(eventually([] { return traced("VSIO", "connect error 'Connection refused'"); }));
  visca_camera* camera = visca_thread_data.camera;
  EXPECT_EQ(visca_camera_zoom_stop(camera), -1);
  fake_camera block;
  int64_t down = monotonic_ns();
  const auto is_5_s = [&] {
    const int64_t ms = (monotonic_ns() - down) / kNanosecondsPerMillisecond;
    return ms > 4500 && ms < 6500;
  };
  for (uint32_t link = 2; link <= 3; ++link) {
    ASSERT_TRUE(block.accept_link(8000) && eventually(is_link_up));
    EXPECT_TRUE(is_5_s());
    EXPECT_EQ(visca_thread_data.link_number, link);
    camera = visca_thread_data.camera;
    EXPECT_EQ(camera->zoom_position, kViscaNotReported);
    EXPECT_EQ(camera->focus_position, kViscaNotReported);
    EXPECT_EQ(camera->model_id, 0);
    EXPECT_TRUE(visca_camera_is_idle(camera));
    ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
    for (const char* packet : {"8101040700FF", "8101041602FF", "8101046902FF"}) {
      EXPECT_EQ(block.command(), packet);
      block.say("9041FF9051FF");
    }
    EXPECT_EQ(block.command(), "81090002FF");
    EXPECT_EQ(camera->focus_position, 0x1111U);  // until the camera reports
    EXPECT_EQ(camera->zoom_position, link == 2 ? 0U : 0x1234U);
    block.say("9050002004050123 01FF 9007046900 0001020304FF");
    EXPECT_TRUE(eventually([&] { return camera->model_id == 0x0405 && camera->zoom_position == 0x1234; }));
    ASSERT_EQ(visca_camera_focus_stop(camera), 0);
    EXPECT_EQ(block.command(), "8101040800FF");
    block.say("9041FF9051FF");
    EXPECT_EQ(block.command(250), "");             // nothing more to switch on
    ASSERT_EQ(visca_camera_zoom_tele(camera), 0);  // left unanswered
    if (link == 2) block.hang_up();
    down = monotonic_ns();
  }
}

TEST(CameraThread, LendsTheLink) {
  fake_camera block;
  start_camera_thread();
  ASSERT_TRUE(block.accept_link() && eventually(is_link_up));
  visca_suspend_link(&visca_thread_data);
  EXPECT_EQ(block.packet(), "closed");
  EXPECT_EQ(visca_thread_data.camera, nullptr);
  EXPECT_EQ(visca_thread_data.connection, nullptr);
  EXPECT_EQ(visca_thread_data.suspended, 1U);
  EXPECT_FALSE(block.accept_link(300));
  visca_resume_link(&visca_thread_data);
  ASSERT_TRUE(block.accept_link(1000) && eventually(is_link_up));
  EXPECT_EQ(visca_thread_data.link_number, 2U);
  visca_trigger_update(&visca_thread_data);
  EXPECT_EQ(block.packet(), "closed");
  ASSERT_TRUE(block.accept_link(1000) && eventually(is_link_up));
  EXPECT_EQ(visca_thread_data.link_number, 3U);
  EXPECT_EQ(visca_thread_data.suspended, 0U);
}

TEST(ZoomValues, FollowTheCurve) {
  const auto expect = [](int position, float magnification, const char* expected) {
    int reported = 0;
    float value = -1;
    char text[16];
    orb_load_camera_zoom_values(&reported, &value, text, sizeof text);
    EXPECT_EQ(reported, position);
    EXPECT_NEAR(value, magnification, 0.01F) << position;
    EXPECT_STREQ(text, expected) << position;
  };
  expect(-1, 0, "?");
  controlled_link link;
  const struct {
    int position;
    float magnification;
    const char* text;
  } cases[] = {{-1, 0, "?"},           {0, 1, "1.0x"},       {5793, 2, "2.0x"},       {7042, 2.5, "2.5x"},
               {8291, 3, "3.0x"},      {13069, 9, "9.0x"},   {13426, 9.947F, "9.9x"}, {13428, 9.952F, "10x"},
               {13445, 9.997F, "10x"}, {13446, 10, "10x"},   {14000, 11, "11x"},      {14088, 11, "11x"},
               {14089, 12, "12x"},     {16384, 30, "30x"},   {20000, 30, "30x"},      {24576, 60, "60x"},
               {31423, 330, "330x"},   {31424, 360, "360x"}, {65535, 360, "360x"}};
  for (const auto& row : cases) {
    link.camera->zoom_position = static_cast<uint32_t>(row.position);
    expect(row.position, row.magnification, row.text);
  }
  char text[3] = "";
  orb_load_camera_zoom_values(nullptr, nullptr, text, sizeof text);
  EXPECT_STREQ(text, "36");
}

TEST(DepthOfField, FollowsTheCurve) {
  const struct {
    int units, position;
    const char *far_limit, *near_limit;
  } cases[] = {{0, -1, "?", "?"},
               {0, 4095, "\xE2\x88\x9E", "\xE2\x88\x9E"},
               {1, 0, "\xE2\x88\x9E", "\xE2\x88\x9E"},
               {0, 4096, "66 m", "54 m"},
               {1, 4096, "217 ft", "177 ft"},
               {0, 12288, "11 m", "9 m"},
               {0, 14336, "8.8 m", "7.2 m"},  // half-way between 6 and 10
               {0, 61440, "0.011 m", "0.009 m"},
               {1, 65535, "0.036 ft", "0.03 ft"},
               {1, 7417, "99 ft", "81 ft"},  // 99.5 lies between these two
               {1, 7416, "100 ft", "81 ft"}};
  orb_init_nv();
  for (const auto& row : cases) {
    orb_write_nv(kSettingUnits, &row.units, sizeof row.units);
    const depth_of_field field = load_depth_of_field(row.position);
    EXPECT_STREQ(field.far_limit, row.far_limit) << row.position;
    EXPECT_STREQ(field.near_limit, row.near_limit) << row.position;
  }
}

int stored(uint32_t key) {
  int value = -1;
  orb_read_nv(key, &value, sizeof value);
  return value;
}

TEST(ImageSettings, AreSentKeptAndStored) {
  const struct {
    int (*set)(const char* text);
    void (*load)(char* text, unsigned size);
    uint32_t key;
    const char* word;
    int value;
    const char* bytes;
  } cases[] = {
      {orb_set_camera_invert_image, orb_load_camera_invert_image, 8, "on", 1, "6602"},
      {orb_set_camera_invert_image, orb_load_camera_invert_image, 8, "off", 0, "6603"},
      {orb_set_camera_image_stabilizer, orb_load_camera_image_stabilizer, 9, "off", 0, "3403"},
      {orb_set_camera_image_stabilizer, orb_load_camera_image_stabilizer, 9, "on", 1, "3402"},
      {orb_set_camera_sensitivity, orb_load_camera_sensitivity, 10, "normal", 0, "5E03"},
      {orb_set_camera_sensitivity, orb_load_camera_sensitivity, 10, "high", 1, "5E02"},
      {orb_set_camera_ir_filter, orb_load_camera_ir_filter, 11, "off", 0, ""},  // the worker sends these
      {orb_set_camera_ir_filter, orb_load_camera_ir_filter, 11, "on", 1, ""},
      {orb_set_camera_ir_filter, orb_load_camera_ir_filter, 11, "auto", 2, ""},
      {orb_set_camera_defog, orb_load_camera_defog, 12, "off", 0, "370300"},
      {orb_set_camera_defog, orb_load_camera_defog, 12, "low", 1, "370201"},
      {orb_set_camera_defog, orb_load_camera_defog, 12, "mid", 2, "370202"},
      {orb_set_camera_defog, orb_load_camera_defog, 12, "high", 3, "370203"},
  };
  orb_init_nv();
  load_image_settings();
  controlled_link link;
  for (const auto& row : cases) {
    const int before = stored(row.key);
    for (const char* word : {"", "medium", "ON", "offx", "o"}) EXPECT_EQ(row.set(word), -1) << row.key;
    if (*row.bytes != '\0') {
      visca_thread_data.camera = nullptr;
      EXPECT_EQ(row.set(row.word), -1);
      EXPECT_EQ(stored(row.key), before);
      visca_thread_data.camera = link.camera;
    }
    EXPECT_EQ(row.set(row.word), 0);
    EXPECT_EQ(stored(row.key), row.value);
    link.expect(row.bytes);
    EXPECT_EQ(row.set(row.word), 0);  // unchanged: sends nothing
    char text[16];
    row.load(text, sizeof text);
    EXPECT_STREQ(text, row.word);
    row.load(text, 2);
    EXPECT_EQ(std::string(text), std::string(row.word, 1));
  }
  EXPECT_TRUE(visca_camera_is_idle(link.camera));
}

struct power_up_case {
  int settings[5];  // as stored
  strings packets;
};

void PrintTo(const power_up_case& row, std::ostream* out) { *out << "ir_filter_" << row.settings[3]; }

class PowerUp : public testing::TestWithParam<power_up_case> {};

const power_up_case kPowerUps[] = {
    {{0, 0, 0, 0, 0}, {"6603", "3403", "5E03", "5103", "0103", "370300"}},
    {{1, 1, 1, 1, 1}, {"6602", "3402", "5E02", "5103", "0102", "370201"}},
    {{0, 1, 0, 2, 3}, {"6603", "3402", "5E03", "0103", "5102", "370203"}},
    {{9, -1, 2, 3, 4}, {"6603", "3402", "5E02", "0103", "5102", "370202"}},  // the defaults instead
};

TEST_P(PowerUp, SetsTheCameraUp) {
  start_trace({kTraceCamera});
  orb_init_nv();
  for (uint32_t i = 0; i < 5; ++i) orb_write_nv(8 + i, &GetParam().settings[i], sizeof(int));
  controlled_link link;
  visca_thread_data.camera = nullptr;  // the worker waits for it
  link.camera->zoom_position = 0x3000;
  orb_init_camera();
  EXPECT_EQ(link.block.packet(50), "");
  visca_thread_data.camera = link.camera;
  link.expect("4700000000");
  EXPECT_TRUE(eventually([] { return traced("CMRA", "zoom actual 12288"); }));
  link.camera->zoom_position = 0x10;  // still moving: two equal readings end the wait
  for (const char* bytes : {"3802", "3900"}) link.expect(bytes);
  for (const std::string& bytes : GetParam().packets) link.expect(bytes);
  const strings begin = {"power up defaults", "power up set",   "zoom direct 0",
                         "zoom actual 12288", "zoom actual 16", "zoom actual 16",
                         "zoom done",         "auto focus",     "auto exposure"};
  const strings all = traces("CMRA");
  EXPECT_EQ(strings(all.begin(), all.begin() + 9), begin);

  // What is asked for later runs on the same worker.
  link.camera->zoom_position = 0;
  ASSERT_EQ(orb_set_camera_ir_filter(image_ir_filter() == 1 ? "auto" : "on"), 0);
  const bool automatic = image_ir_filter() == 2;
  link.expect(automatic ? "0103" : "5103");
  link.expect(automatic ? "5102" : "0102");
  keep_focus_mode(camera_mode::manual);
  keep_exposure_mode(camera_mode::manual);
  restore_controller_defaults();
  for (const char* bytes : {"4700000000", "3802", "3900"}) link.expect(bytes);
  EXPECT_EQ(get_focus_mode(), camera_mode::automatic);
  EXPECT_EQ(get_exposure_mode(), camera_mode::automatic);
  EXPECT_EQ(file_text("/tmp/zoom_speed") + file_text("/tmp/focus_mode") + file_text("/tmp/focus_speed") +
                file_text("/tmp/exposure_mode") + file_text("/tmp/intensity"),
            "3auto2auto25");
}

INSTANTIATE_TEST_SUITE_P(Settings, PowerUp, testing::ValuesIn(kPowerUps));

TEST(HoldLoops, SpeedUpWhileHeld) {
  start_trace({kTraceZoomLoop, kTraceFocusLoop, kTraceIntensityLoop});
  controlled_link link;
  orb_create_zoom_loop();
  orb_create_focus_loop();
  orb_create_intensity_loop();
  write_value_file(paths::kZoomSpeed, 3);
  write_value_file(paths::kFocusSpeed, 7);
  write_value_file(paths::kIntensity, 10);
  const int64_t start = monotonic_ns();
  EXPECT_EQ(orb_trigger_zoom_loop(1, 5000), 1);
  EXPECT_EQ(orb_trigger_focus_loop(-1, 5000), 1);
  EXPECT_EQ(orb_trigger_intensity_loop(1, 5000), 1);
  EXPECT_EQ(orb_trigger_zoom_loop(-1, 500), 0);
  EXPECT_EQ(orb_trigger_focus_loop(1, 500), 0);
  EXPECT_EQ(orb_trigger_intensity_loop(0, 500), 0);
  strings zoom, focus;
  for (std::string packet; zoom.size() + focus.size() < 6 && !(packet = link.obey(4000)).empty();) {
    (packet[7] == '7' ? zoom : focus).push_back(packet.substr(8, 2));
    const auto seconds = static_cast<double>(monotonic_ns() - start) / 1e9;
    if (packet[7] == '7') {
      EXPECT_NEAR(seconds, std::vector<double>({0, 2, 4, 5}).at(zoom.size() - 1), 0.9);
    }
  }
  EXPECT_EQ(zoom, (strings{"23", "24", "25", "00"}));
  EXPECT_EQ(focus, (strings{"37", "00"}));
  for (const char* tag : {"ZMLP", "FSLP", "ITLP"})
    EXPECT_TRUE(eventually([&] { return traced(tag, "end"); }));
  EXPECT_EQ(traces("ZMLP"), (strings{"start 3", "adjust 3 4", "adjust 4 5", "end"}));
  EXPECT_TRUE(eventually([] { return file_text("/tmp/zoom_speed") == "3"; }));
  EXPECT_EQ(file_text("/tmp/focus_speed"), "7");
  strings steps = {"start"};  // 1 up to 2 s, 3 up to 4 s, then 5
  for (int i = 1, value = 10; i < 20; ++i) {
    const int next = value + (i <= 8 ? 1 : i <= 16 ? 3 : 5);
    steps.push_back("adjust " + std::to_string(value) + " " + std::to_string(next));
    value = next;
  }
  steps.push_back("end");
  EXPECT_EQ(traces("ITLP"), steps);
  EXPECT_EQ(file_text("/tmp/intensity"), "57");
}

TEST(HoldLoops, StopTurnAndExtend) {
  start_trace({kTraceZoomLoop, kTraceIntensityLoop});
  controlled_link link;
  orb_create_zoom_loop();
  orb_create_focus_loop();
  orb_create_intensity_loop();
  for (const char* text : {"", "8", "-1", "99999999999999999999"}) {  // the first: no file
    if (*text != '\0') {
      write_value_file(paths::kZoomSpeed, text);
      write_value_file(paths::kFocusSpeed, text);
    }
    EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);
    link.expect("0723");
    orb_stop_zoom_loop();
    EXPECT_EQ(orb_trigger_zoom_loop(-1, 60000), 1);  // at once, the other way
    link.expect("0700");
    link.expect("0733");
    orb_stop_zoom_loop();
    link.expect("0700");
    EXPECT_EQ(orb_trigger_focus_loop(1, 5), 1);
    link.expect("0822");
    link.expect("0800");
  }
  int64_t start = monotonic_ns();
  EXPECT_EQ(orb_trigger_zoom_loop(1, 200), 1);
  sleep_ms(100);
  EXPECT_EQ(orb_trigger_zoom_loop(1, 300), 1);
  link.expect("0723");
  link.expect("0700");
  EXPECT_GE(monotonic_ns() - start, 395 * kNanosecondsPerMillisecond);

  write_value_file(paths::kIntensity, 99);
  EXPECT_EQ(orb_trigger_intensity_loop(1, 520), 1);
  EXPECT_TRUE(eventually([] { return traced("ITLP", "end"); }));
  write_value_file(paths::kIntensity, 1);
  EXPECT_EQ(orb_trigger_intensity_loop(-1, 520), 1);
  EXPECT_TRUE(eventually([] { return traces("ITLP").size() == 6; }));
  EXPECT_EQ(traces("ITLP"), (strings{"start", "adjust 99 100", "end", "start", "adjust 1 0", "end"}));
}

TEST(HoldLoops, TheStopWaitsForRoomWhileTheLinkIsUp) {
  start_trace({kTraceZoomLoop});
  controlled_link link;
  orb_create_zoom_loop();
  EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);
  EXPECT_EQ(link.block.packet(), "8101040723FF");
  while (visca_camera_auto_focus(link.camera) == 0) continue;
  orb_stop_zoom_loop();
  sleep_ms(30);
  EXPECT_FALSE(traced("ZMLP", "end"));
  link.hear("9041FF");
  EXPECT_TRUE(eventually([] { return traced("ZMLP", "end"); }));
  for (int i = 0; i < 126; ++i) ASSERT_EQ(link.obey(), "8101043802FF");
  EXPECT_EQ(link.obey(), "8101040700FF");
  EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);
  EXPECT_EQ(link.obey(), "8101040723FF");
  link.block.hang_up(true);
  orb_stop_zoom_loop();  // this stop breaks the link
  EXPECT_TRUE(eventually([] { return traces("ZMLP").size() == 4; }));
  EXPECT_EQ(orb_trigger_zoom_loop(1, 60000), 1);
  EXPECT_TRUE(eventually([] { return traces("ZMLP").size() == 5; }));
  orb_stop_zoom_loop();  // this one has no link
  EXPECT_TRUE(eventually([] { return traces("ZMLP").size() == 6; }));
}

}  // namespace
