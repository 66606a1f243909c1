// The overlay stepped tick by tick: what the camera is sent, byte by byte, and what it is not.
#include "osd/overlay.h"

#include <sys/wait.h>

#include "base/text.h"
#include "sim/camera/titles.h"
#include "store/settings.h"
#include "tests/visca/fake_camera.h"

namespace {

void fill(osd_text& text, const char* with) {
  text = {};
  copy_text(text.data(), text.size(), with);
}

// The bytes between 81 01 04 and FF; those of a half line as the camera's characters.
std::string shown(const std::string& packet) {
  const std::string bytes = packet.substr(6, packet.size() - 8);
  if (!bytes.starts_with("732") && !bytes.starts_with("733")) return bytes + " ";
  std::string text;
  for (const uint8_t code : unhex(bytes.substr(4))) text += sim_camera::title_character(code);
  return bytes.substr(0, 4) + "'" + text + "' ";
}

struct Overlay : testing::Test {
  stepped_link link;
  overlay_state state;
  overlay_inputs in;

  Overlay() {
    in.camera = link.camera;
    in.link_number = 1;
    in.now.tm_year = 126, in.now.tm_mon = 10, in.now.tm_mday = 5, in.now.tm_hour = 9, in.now.tm_min = 59;
    fill(in.title, "Shaft 12"), fill(in.flow_direction, "UPSTREAM"), fill(in.operator_id, "J. Doe-3");
    fill(in.compass, "NE"), fill(in.zoom, "1.8x");
    start_trace();
  }
  void set_all(int value) { std::fill_n(in.items.begin(), kOsdLaser, value); }
  std::string next_packet() {
    std::string packet = shown(link.block.packet());
    link.hear("9041FF");
    return packet;
  }
  // Ticks until there is nothing to send: the packets, each tick's ended by "| ".
  std::string painted() {
    std::string all;
    while (step_overlay(state, in), !visca_camera_is_idle(link.camera)) {
      while (!visca_camera_is_idle(link.camera)) all += next_packet();
      all += "| ";
    }
    EXPECT_EQ(link.block.packet(0), "");
    return all;
  }
  void tick(int times) {
    while (--times >= 0) step_overlay(state, in);
  }
};

const std::string kFirstPaint =
    "741F | 7320'ORB  11/05' 7330'/26  09:59' 731000060000000000000000 7420 | "
    "7321'SHAFT 12  ' 7331'          ' 7311000C0000000000000000 7421 | "
    "7322'UPSTREAM  ' 7332'          ' 7312000C0000000000000000 7422 | "
    "7323'J. DOE-3  ' 7333'          ' 7313000C0000000000000000 7423 | "
    "732A'NE        ' 733A'      1.8X' 731A00060000000000000000 742A | ";

TEST_F(Overlay, SendsWhatChanges) {
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { set_all(1); }, kFirstPaint},
      {[&] { in.now.tm_sec = 59; }, ""},
      {[&] { in.now.tm_hour = 10, in.now.tm_min = 0; }, "7320'ORB  11/05' 7330'/26  10:00' | "},
      {[&] { fill(in.zoom, "12x"); }, "732A'NE        ' 733A'       12X' | "},
      {[&] { fill(in.compass, "S"); }, "732A'S         ' 733A'       12X' | "},
      {[&] { in.items[kOsdLaser] = 1, in.laser_m = 30.3F; }, "732A'S     30.3' 733A' M     12X' | "},
      {[&] { in.in_feet = true; }, "732A'S     99.4' 733A' FT    12X' | "},
      {[&] { in.items[kOsdLaser] = 0; }, "732A'S         ' 733A'       12X' | "},
      // Beyond 20 characters nothing is shown, and what the camera does not have is a blank.
      {[&] { fill(in.title, "A title of 21 charact!"); },
       "7321'A TITLE OF' 7331' 21 CHARAC' 731100060000000000000000 | "},
      {[&] { fill(in.title, "\xC3\x84-7"); },
       "7321'  -7      ' 7331'          ' 7311000E0000000000000000 | "},
      {[&] { fill(in.operator_id, "J. Doe-4"); }, "7323'J. DOE-4  ' 7333'          ' | "},
      {[&] { in.items[kOsdColor] = 3, in.items[kOsdTitle] = 0; },
       "7431 | 7322'UPSTREAM  ' 7332'          ' 7312000C0300000000000000 | "
       "7323'J. DOE-4  ' 7333'          ' 7313000C0300000000000000 | "
       "732A'S         ' 733A'       12X' 731A00060300000000000000 | "},
      // The date takes a new colour with its next minute.
      {[&] { in.now.tm_min = 1; }, "7320'ORB  11/05' 7330'/26  10:01' 731000060300000000000000 | "},
      {[&] { in.items[kOsdColor] = 7, in.items[kOsdFlowDirection] = 0, in.items[kOsdOperatorId] = 0; },
       "7432 | 7433 | 732A'S         ' 733A'       12X' 731A00060000000000000000 | "},
      {[&] { set_all(0); }, "7430 | 743A | "},
      {[&] { in.items[kOsdOperatorId] = -1; },
       "7323'J. DOE-4  ' 7333'          ' 7313000C0000000000000000 7423 | "},
  };
  for (const auto& [change, packets] : rows) {
    change();
    EXPECT_EQ(painted(), packets);
  }
  const int32_t queued = link.camera->insert_index;  // the date line is off
  for (in.now.tm_min = 0; in.now.tm_min < 60; ++in.now.tm_min) tick(600);
  EXPECT_EQ(link.camera->insert_index, queued);
  EXPECT_TRUE(traces("OSDP").starts_with("clear all;top text set;top line set;top line on;title text set;"));
}

TEST_F(Overlay, HidesTheCaptionsInATakeWhenTheDwellIsOver) {
  set_all(1);
  painted();
  const struct {
    int dwell, seconds;
    bool hides;
  } rows[] = {{30, 30, true}, {998, 998, true}, {0, 1100, false}, {999, 1100, false}};
  for (const auto& row : rows) {
    in.items[kOsdDwell] = row.dwell;
    in.is_recording = true;
    tick(10 * row.seconds - 2);
    EXPECT_EQ(painted(), "");
    EXPECT_EQ(painted(), row.hides ? "7431 | 7432 | 7433 | " : "") << row.dwell;
    in.is_recording = false;
    EXPECT_EQ(painted(),
              row.hides ? "7321'SHAFT 12  ' 7331'          ' 7421 | 7322'UPSTREAM  ' 7332'          ' 7422 | "
                          "7323'J. DOE-3  ' 7333'          ' 7423 | "
                        : "");
  }
  const std::string log = traces("OSDP");
  EXPECT_NE(log.find("delay second 29;delay second 30;delay timeout;title line off;"), log.npos);
  EXPECT_NE(log.find("operator line off;delay reset;title text set;title line on;"), log.npos);
}

TEST_F(Overlay, BeginsAnewWithEachLink) {
  set_all(1);
  EXPECT_EQ(painted(), kFirstPaint);
  ++in.link_number;                      // lost and built between two ticks
  visca_camera_focus_stop(link.camera);  // what waits goes first
  tick(2);
  EXPECT_EQ(next_packet(), "0800 ");
  EXPECT_TRUE(visca_camera_is_idle(link.camera));
  EXPECT_EQ(painted(), kFirstPaint);
  in.camera = nullptr;
  tick(1);
  in.camera = link.camera;
  EXPECT_EQ(painted(), kFirstPaint);
  // A line that the queue does not take whole is sent again.
  fill(in.zoom, "2.0x");
  link.connection->connected = 0;
  EXPECT_EQ(painted(), "");
  link.connection->connected = 1;
  EXPECT_EQ(painted(), "732A'NE        ' 733A'      2.0X' | ");
}

// One acknowledge a tick, as the camera thread sees them: a stop waits for two at most, whatever changes
// meanwhile, and what follows it is the latest text.
TEST_F(Overlay, LetsAStopPass) {
  in.items[kOsdZoom] = 1;
  painted();
  for (int asked = 3; asked < 9; ++asked) {
    int reached = 100;
    for (int i = 0; i < 20; ++i) {
      fill(in.zoom, (std::to_string(10 * asked + i) + "x").c_str());
      if (i == asked) visca_camera_zoom_stop(link.camera);
      step_overlay(state, in);
      if (!visca_camera_is_idle(link.camera) && next_packet() == "0700 ") reached = i;
    }
    EXPECT_LE(reached - asked, 2);
    while (!visca_camera_is_idle(link.camera)) next_packet();
    const std::string last = painted();
    EXPECT_TRUE(last.empty() || last.ends_with(std::to_string(10 * asked + 19) + "X' | ")) << last;
  }
}

TEST(OverlayItems, AreKept) {
  if (fork() == 0) {  // the last run
    orb_init_nv();
    orb_init_osd();
    for (int item = -1; item <= kOsdItemCount; ++item) orb_set_osd_item(item, 40 + item);
    _exit(orb_get_osd_item(kOsdLaser));
  }
  int status = 0;
  wait(&status);
  EXPECT_EQ(WEXITSTATUS(status), 46);
  orb_init_nv();
  orb_init_osd();
  for (int item = -1; item <= kOsdItemCount; ++item) {
    const bool is_kept = item >= 0 && item < kOsdItemCount && item != kOsdLaser;
    EXPECT_EQ(orb_get_osd_item(item), is_kept ? 40 + item : 0);
  }
}

}  // namespace
