// The simulated camera block, byte by byte. Everything else about the camera is tested against it, so it has
// to be right.
#include "sim/camera/block_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace sim_camera;

packet from_hex(std::string_view hex) {
  packet bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 3) {
    bytes.push_back(static_cast<uint8_t>(std::strtoul(std::string(hex.substr(i, 2)).c_str(), nullptr, 16)));
  }
  return bytes;
}

std::string to_hex(const packet& bytes) {
  std::string hex;
  char digits[4];
  for (const uint8_t b : bytes) {
    std::snprintf(digits, sizeof digits, "%s%02X", hex.empty() ? "" : " ", b);
    hex += digits;
  }
  return hex;
}

// What the block sends by now: segments joined with " | ". Looks every 10 ms, as the server does.
std::string output(block_model& block, int64_t now_ms) {
  std::string all;
  for (int64_t t = std::min(block.time_ms, now_ms);; t = std::min(t + 10, now_ms)) {
    for (const packet& segment : block_take_output(block, t))
      all += (all.empty() ? "" : " | ") + to_hex(segment);
    if (t == now_ms) return all;
  }
}

std::string ask(block_model& block, std::string_view hex, int64_t now_ms) {
  block_receive(block, from_hex(hex), now_ms);
  return output(block, now_ms);
}

constexpr std::string_view kManualFocus = "81 01 04 38 03 FF";
constexpr std::string_view kZoomTo30x = "81 01 04 47 04 00 00 00 FF";
constexpr std::string_view kFocusMid = "81 01 04 48 08 00 00 00 FF";
constexpr std::string_view kDoneOn1 = "90 41 FF | 90 51 FF";
constexpr std::string_view kSyntax = "90 60 02 FF";

TEST(block_model, answers_each_packet) {
  struct {
    std::string_view sent, answer;
  } const kCases[] = {
      {"81 09 00 02 FF", "90 50 00 20 04 05 01 23 02 FF"},  // version, without acknowledge
      {"81 09 04 47 FF", "90 50 00 00 00 00 FF"},
      {"81 09 04 99 FF", kSyntax},
      {"81 01 04 07 27 FF", kDoneOn1},  // a drive is complete at once
      {"81 01 04 07 28 FF", kSyntax},   // speed 8
      {"81 01 04 07 FF", kSyntax},      // too short
      {"81 01 04 07 02 00 FF", kSyntax},
      {"81 01 04 47 04 10 00 00 FF", kSyntax},  // a nibble above 0x0F
      {"81 01 04 47 07 0A 0C 01 FF", kSyntax},  // one count beyond 360x
      {"81 01 04 38 03 FF 81 01 04 48 00 0F 0F 0F FF",
       "90 41 FF | 90 51 FF | 90 60 02 FF"},  // one count beyond far
      {"81 01 04 37 03 00 FF", kDoneOn1},     // defog off carries a level
      {"81 01 04 37 02 04 FF", kSyntax},
      {"81 01 04 08 02 FF", "90 61 41 FF"},           // focus far while the focus is automatic
      {"81 01 04 43 00 00 08 00 FF", "90 61 41 FF"},  // red gain while the white balance is automatic
      {"81 01 04 74 3B FF", kSyntax},                 // title line 11
      {"81 01 04 73 10 00 20 00 00 00 00 00 00 00 00 FF", kSyntax},  // column 32
      {"81 01 00 01 FF", "90 50 FF"},
      {"88 01 00 01 FF", "90 50 FF"},
      {"82 01 04 07 02 FF", ""},  // another camera's
      {"01 04 07 02 FF", kSyntax},
      {"FF", kSyntax},
      {"81 01 04 73 20 00 00 00 00 00 00 00 00 00 00 00 00 00 FF 81 01 04 00 02 FF",
       "90 60 02 FF | 90 41 FF | 90 51 FF"},  // an overlong packet ends at its terminator
  };
  for (const auto& c : kCases) {
    block_model block;
    EXPECT_EQ(ask(block, c.sent, 0), c.answer) << c.sent;
    block_model chunked;
    for (const uint8_t byte : from_hex(c.sent)) block_receive(chunked, {&byte, 1}, 0);
    EXPECT_EQ(output(chunked, 0), c.answer) << "byte by byte: " << c.sent;
  }
}

TEST(block_model, direct_moves_keep_their_sockets_until_they_arrive) {
  block_model block;
  ask(block, kManualFocus, 0);
  EXPECT_EQ(ask(block, kZoomTo30x, 0), "90 41 FF");
  EXPECT_EQ(ask(block, kFocusMid, 0), "90 42 FF");
  EXPECT_EQ(ask(block, kZoomTo30x, 10), "90 60 03 FF");
  EXPECT_EQ(ask(block, "81 09 04 48 FF", 10).substr(0, 5), "90 50");  // inquiries need no socket
  EXPECT_EQ(output(block, 1500), "90 52 FF");                         // 0x3000 to 0x8000 takes 1.07 s
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 1500), "90 42 FF | 90 52 FF");
  EXPECT_EQ(output(block, 2990), "");
  EXPECT_EQ(output(block, 3010), "90 51 FF");
  EXPECT_EQ(ask(block, kZoomTo30x, 4000), kDoneOn1);  // already there

  ask(block, "81 01 04 47 00 00 00 00 FF", 5000);
  EXPECT_EQ(ask(block, "81 01 04 07 00 FF", 5100),
            "90 42 FF | 90 52 FF | 90 51 FF");  // a stop ends the move too
  EXPECT_NEAR(lens_position(block.lens, kZoom), kOpticalEnd - 546, 3);

  ask(block, "81 01 04 47 00 00 00 00 FF", 6000);
  EXPECT_EQ(ask(block, "81 01 00 01 FF", 6100), "90 50 FF");
  EXPECT_EQ(output(block, 20000), "");  // cleared: nobody is told of the arrival
}

TEST(block_model, off_refuses_all_but_power_on) {
  block_model block;
  ask(block, "81 01 04 07 22 FF", 0);
  EXPECT_EQ(ask(block, "81 01 04 00 03 FF", 100), kDoneOn1);
  const int stopped_at = lens_position(block.lens, kZoom);
  EXPECT_EQ(ask(block, "81 01 04 07 02 FF", 200), "90 61 41 FF");
  EXPECT_EQ(ask(block, "81 01 04 00 02 FF", 2000), kDoneOn1);
  EXPECT_EQ(lens_position(block.lens, kZoom), stopped_at);
}

TEST(block_model, speeds_and_ends) {
  const auto driven = [](std::string_view command, int64_t ms, axis_id axis) {
    block_model block;
    ask(block, kManualFocus, 0);
    ask(block, command, 0);
    block_advance(block, ms);
    return lens_position(block.lens, axis);
  };
  EXPECT_NEAR(driven("81 01 04 07 27 FF", 3000, kZoom), kOpticalEnd, 10);
  EXPECT_NEAR(driven("81 01 04 07 20 FF", 24000, kZoom), kOpticalEnd, 10);
  EXPECT_EQ(driven("81 01 04 07 02 FF", 5000, kZoom), driven("81 01 04 07 23 FF", 5000, kZoom));
  for (int speed = 1; speed <= kTopSpeed; ++speed) {
    const auto after_a_second = [&](int s) {
      return driven("81 01 04 07 2" + std::to_string(s) + " FF", 1000, kZoom);
    };
    EXPECT_GT(after_a_second(speed), after_a_second(speed - 1));
  }
  EXPECT_EQ(driven("81 01 04 07 27 FF", 60000, kZoom), kCombinedEnd);
  EXPECT_EQ(driven("81 01 04 07 37 FF", 60000, kZoom), 0);
  EXPECT_EQ(driven("81 01 04 06 03 FF 81 01 04 07 27 FF", 60000, kZoom), kOpticalEnd);  // digital zoom off
  EXPECT_EQ(driven("81 01 04 36 01 FF 81 01 04 06 27 FF", 60000, kDigital), kDigitalEnd);
  EXPECT_EQ(driven("81 01 04 08 27 FF", 60000, kFocus), kFocusFar);
  EXPECT_EQ(driven("81 01 04 08 37 FF", 60000, kFocus), kFocusNear);
  EXPECT_EQ(driven("81 01 04 28 0C 00 00 00 FF 81 01 04 08 37 FF", 60000, kFocus), 0xC000);
}

TEST(block_model, reports_while_the_lens_moves) {
  block_model block;
  ask(block, kManualFocus, 0);
  EXPECT_EQ(ask(block, "81 01 04 69 02 FF", 0), "90 41 FF | 90 51 FF | 90 07 04 69 00 00 00 00 00 00 FF");
  EXPECT_EQ(ask(block, "81 01 04 16 02 FF", 0), "90 41 FF | 90 51 FF | 90 07 04 16 00 00 03 00 00 00 FF");
  EXPECT_EQ(output(block, 1000), "");

  EXPECT_EQ(ask(block, "81 01 04 47 00 01 09 09 FF", 1000), "90 41 FF");  // 0x199 = 409 counts, 74.9 ms
  EXPECT_EQ(output(block, 1033), "");
  EXPECT_EQ(output(block, 1034), "90 07 04 69 00 00 00 00 0B 0A FF");
  EXPECT_EQ(output(block, 1074), "90 07 04 69 00 00 00 01 06 0E FF");
  EXPECT_EQ(output(block, 1080), "90 51 FF | 90 07 04 69 00 00 00 01 09 09 FF");
  EXPECT_EQ(output(block, 5000), "");

  ask(block, "81 01 04 47 07 0A 0C 00 FF", 5000);
  EXPECT_TRUE(output(block, 20000).ends_with("90 07 04 69 0E 0B 07 0A 0C 00 FF"));  // digital zoom at its end
  ask(block, "81 01 04 69 03 FF 81 01 04 07 03 FF 81 01 04 38 02 FF", 30000);
  const std::string focus_only = output(block, 60000);
  EXPECT_EQ(focus_only.find("90 07 04 69"), std::string::npos);
  EXPECT_TRUE(focus_only.ends_with("90 07 04 16 00 00 03 00 00 00 FF"));  // automatic focus follows the zoom
}

TEST(block_model, titles_are_readable) {
  block_model block;
  EXPECT_EQ(ask(block, "81 01 04 73 1A 00 06 03 01 00 00 00 00 00 00 FF", 0), kDoneOn1);
  ask(block, "81 01 04 73 2A 00 19 1A 1B 1C 1D 1E 26 27 41 FF", 0);
  ask(block, "81 01 04 73 3A 49 4A 4B 4C 4D 4E 4F 28 80 1B FF", 0);
  EXPECT_EQ(title_text(block.titles[10]), "AZ& ?!190$\":'.,/-## ");
  ask(block, "81 01 04 74 2F FF 81 01 04 74 30 FF", 0);
  const std::string listing = titles_listing(block.titles);
  EXPECT_NE(listing.find(" 0 off position  0 colour wht blink off \""), std::string::npos) << listing;
  EXPECT_NE(listing.find("10 on  position  6 colour red blink on  \"AZ& ?!190"), std::string::npos)
      << listing;
  ask(block, "81 01 04 74 1A FF", 0);
  EXPECT_EQ(block.titles[10], title_line{});
  EXPECT_TRUE(block.titles[9].shown);
  ask(block, "81 01 04 74 1F FF", 0);
  EXPECT_FALSE(block.titles[9].shown);
}

TEST(block_model, faults) {
  block_model block;
  block.faults.silent = true;
  EXPECT_EQ(ask(block, "81 01 04 07 02 FF", 0), "");
  block.faults = {};
  EXPECT_EQ(output(block, 100), "");
  EXPECT_EQ(lens_position(block.lens, kZoom), 0);
  EXPECT_EQ(to_hex(block.log.back().bytes), "81 01 04 07 02 FF");  // swallowed, but seen

  block.faults.split = true;
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 200), "90");
  EXPECT_EQ(output(block, 210), "41 | FF | 90 | 51 | FF");
  block.faults = {};
  block.faults.merge = true;
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 300), "90 41 FF 90 51 FF");
  EXPECT_EQ(ask(block, "81 09 04 00 FF", 400), "");
  EXPECT_EQ(output(block, 500), "90 50 02 FF");  // no second one came
  block.faults = {};
  block.faults.ack_delay_ms = 300;
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 1000), "");
  EXPECT_EQ(output(block, 1299), "");
  block.faults.ack_delay_ms = 0;
  EXPECT_EQ(ask(block, "81 09 04 00 FF", 1299), "");  // does not overtake
  EXPECT_EQ(output(block, 1300), "90 41 FF | 90 51 FF | 90 50 02 FF");
  block.faults.full = true;
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 2000), "90 60 03 FF");
  block.faults = {};
  block.faults.garble = true;
  EXPECT_NE(ask(block, "81 01 04 34 02 FF", 3000), kDoneOn1);
  block.faults = {};

  block_receive(block, from_hex("81 01 04"), 4000);
  block_new_link(block);
  EXPECT_EQ(ask(block, "81 01 04 34 02 FF", 4000), kDoneOn1);  // half a packet does not survive the link
  for (size_t i = 0; i < 2 * kMaxLog; ++i) ask(block, "81 09 04 00 FF", 5000);
  EXPECT_EQ(block.log.size(), kMaxLog);
}

}  // namespace
