// The overlay stepped tick by tick: what the camera is sent, byte by byte, and what it is not.
#include "osd/overlay.h"

#include "sim/camera/titles.h"
#include "store/settings.h"
#include "tests/visca/fake_camera.h"

namespace {

void fill(osd_text& text, const std::string& with) { text = {}, copy_text(text.data(), text.size(), with); }

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
    in.camera = link.camera, in.link_number = 1;
    in.now.tm_year = 126, in.now.tm_mon = 10, in.now.tm_mday = 5, in.now.tm_hour = 9, in.now.tm_min = 59;
    fill(in.title, "Shaft 9"), fill(in.compass, "NE"), fill(in.zoom, "1.8x");
    start_trace();
  }
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
    for (; times > 0; --times) step_overlay(state, in);
  }
};

const std::string kTitle = "7321'SHAFT 9   ' 7331'          ' ";
const std::string kZoom = "732A'          ' 733A'      1.8X' 731A00060000000000000000 742A | ";

// A line that is sent too often fills the link, and one that is not sent shows what is no longer true.
TEST_F(Overlay, SendsWhatChanges) {
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { std::fill_n(in.items.begin(), kOsdLaser, 1), fill(in.operator_id, "J. Doe"); },
       "741F | 7320'ORB  11/05' 7330'/26  09:59' 731000060000000000000000 7420 | " + kTitle +
           "7311000C0000000000000000 7421 | "
           "7322'          ' 7332'          ' 731200100000000000000000 7422 | "
           "7323'J. DOE    ' 7333'          ' 7313000D0000000000000000 7423 | "
           "732A'NE        ' 733A'      1.8X' 731A00060000000000000000 742A | "},
      {[&] { in.items[kOsdLaser] = 1, in.laser_m = 30.3F, in.in_feet = true; },
       "732A'NE    99.4' 733A' FT   1.8X' | "},
      // Beyond 20 characters nothing is shown, and what the camera does not have is a blank.
      {[&] { fill(in.title, "\xC3\x84 title of 21 charac!"); },
       "7321'   TITLE O' 7331'F 21 CHARA' 731100060000000000000000 | "},
      {[&] { in.items[kOsdColor] = 3, in.items[kOsdTitle] = in.items[kOsdFlowDirection] = 0; },
       "7431 | 7432 | 7323'J. DOE    ' 7333'          ' 7313000D0300000000000000 | "
       "732A'NE    99.4' 733A' FT   1.8X' 731A00060300000000000000 | "},
      {[&] { in.now.tm_hour = 10, in.now.tm_min = 0; },  // with which the date takes the new colour
       "7320'ORB  11/05' 7330'/26  10:00' 731000060300000000000000 | "},
      {[&] { in.items = {}; }, "7430 | 7433 | 743A | "},
      {[&] { in.items[kOsdOperatorId] = -1; },
       "7323'J. DOE    ' 7333'          ' 7313000D0000000000000000 7423 | "},
      {[&] { in.now.tm_min = 1; }, ""}};
  for (const auto& [change, packets] : rows) {
    change();
    EXPECT_EQ(painted(), packets);
  }
}

// A caption over the picture of a take, or one that does not come back after it.
TEST_F(Overlay, HidesTheCaptionsInATakeWhenTheDwellIsOver) {
  in.items[kOsdTitle] = 1;
  painted();
  for (const auto& [dwell, hides] : {std::pair(30, true), {998, true}, {0, false}, {999, false}}) {
    in.items[kOsdDwell] = dwell;
    in.is_recording = true;
    tick(10 * (hides ? dwell : 1100) - 2);
    EXPECT_EQ(painted(), "");
    EXPECT_EQ(painted(), hides ? "7431 | " : "") << dwell;
    in.is_recording = false;
    EXPECT_EQ(painted(), hides ? kTitle + "7421 | " : "");
  }
}

TEST_F(Overlay, BeginsAnewWithEachLink) {
  in.items[kOsdZoom] = 1;
  EXPECT_EQ(painted(), "741F | " + kZoom);
  ++in.link_number;                      // lost and built between two ticks
  visca_camera_focus_stop(link.camera);  // what waits goes first
  tick(2);
  EXPECT_EQ(next_packet(), "0800 ");
  EXPECT_TRUE(visca_camera_is_idle(link.camera));
  EXPECT_EQ(painted(), "741F | " + kZoom);
  in.camera = nullptr;
  tick(1);
  in.camera = link.camera;
  EXPECT_EQ(painted(), "741F | " + kZoom);
  // The camera may have a part of a line that the queue has not taken whole: it is sent again.
  fill(in.zoom, "2.0x");
  link.connection->connected = 0;
  EXPECT_EQ(painted(), "");
  link.connection->connected = 1;
  fill(in.zoom, "1.8x");
  EXPECT_EQ(painted(), "732A'          ' 733A'      1.8X' | ");
}

// One acknowledge a tick, as the camera thread sees them: a stop waits for two at most, whatever changes
// meanwhile, and what follows it is the latest text.
TEST_F(Overlay, LetsAStopPass) {
  in.items[kOsdZoom] = 1;
  painted();
  for (int asked = 3; asked < 9; ++asked) {
    int reached = 100;
    for (int i = 0; i < 20; ++i) {
      fill(in.zoom, std::to_string(10 * asked + i) + "x");
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

// Of all items only the laser begins each run switched off.
TEST(OverlayItems, AreKept) {
  if (fork() == 0) {  // the last run
    orb_init_nv();
    orb_init_osd();
    for (int item = -1; item <= kOsdItemCount; ++item) orb_set_osd_item(item, 40 + item);
    _exit(orb_get_osd_item(kOsdLaser));
  }
  int status = 0;
  wait(&status);
  EXPECT_EQ(WEXITSTATUS(status), 40 + kOsdLaser);
  orb_init_nv();
  orb_init_osd();
  for (int item = -1; item <= kOsdItemCount; ++item) {
    const bool is_kept = item >= 0 && item < kOsdItemCount && item != kOsdLaser;
    EXPECT_EQ(orb_get_osd_item(item), is_kept ? 40 + item : 0);
  }
}

}  // namespace
