// The simulated camera block, byte by byte. Everything else about the camera is tested against it, so it has
// to be right.
#include "sim/camera/block_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using namespace sim_camera;

packet from_hex(std::string_view hex) {
  packet bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 3) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

// What the block sends by now: segments joined with " | ". Looks every 10 ms, as the server does.
std::string output(block_model& block, int64_t now_ms) {
  std::string all;
  for (int64_t t = std::min(block.time_ms, now_ms);; t = std::min(t + 10, now_ms)) {
    for (const packet& segment : block_take_output(block, t)) {
      if (!all.empty()) all += " |";
      for (const uint8_t b : segment) {
        if (!all.empty()) all += ' ';
        for (const int digit : {b >> 4, b & 15}) all += "0123456789ABCDEF"[digit];
      }
    }
    if (t == now_ms) return all;
  }
}

std::string ask(block_model& block, std::string_view hex, int64_t now_ms) {
  block_receive(block, from_hex(hex), now_ms);
  return output(block, now_ms);
}

constexpr std::string_view kManualFocus = "81 01 04 38 03 FF";
constexpr std::string_view kZoomTo30x = "81 01 04 47 04 00 00 00 FF";
constexpr std::string_view kDoneOn1 = "90 41 FF | 90 51 FF";
constexpr std::string_view kSyntax = "90 60 02 FF";

TEST(block_model, answers_each_packet) {
  struct {
    std::string_view sent, answer;
  } const kCases[] = {
      {"81 09 00 02 FF", "90 50 00 20 04 05 01 23 02 FF"},  // version, without acknowledge
      {"81 01 04 07 27 FF", kDoneOn1},                      // a drive is complete at once
      {"81 01 04 07 28 FF", kSyntax},                       // speed 8
      {"81 01 04 07 FF", kSyntax},
      {"81 01 04 47 07 0A 0C 01 FF", kSyntax},  // one count beyond 360x
      {"81 01 04 08 02 FF", "90 61 41 FF"},     // focus far while the focus is automatic
      {"81 01 00 01 FF", "90 50 FF"},
      {"82 01 04 07 02 FF", ""},  // another camera's
      {"81 01 04 73 20 00 00 00 00 00 00 00 00 00 00 00 00 00 FF 81 01 04 00 02 FF",
       "90 60 02 FF | 90 41 FF | 90 51 FF"},  // an overlong packet ends at its terminator
  };
  for (const auto& c : kCases) {
    block_model block;
    for (const uint8_t byte : from_hex(c.sent)) block_receive(block, {&byte, 1}, 0);
    EXPECT_EQ(output(block, 0), c.answer) << c.sent;
  }
}

TEST(block_model, direct_moves_keep_their_sockets_until_they_arrive) {
  block_model block;
  ask(block, kManualFocus, 0);
  EXPECT_EQ(ask(block, kZoomTo30x, 0), "90 41 FF");
  EXPECT_EQ(ask(block, "81 01 04 48 08 00 00 00 FF", 0), "90 42 FF");
  EXPECT_EQ(ask(block, kZoomTo30x, 10), "90 60 03 FF");
  EXPECT_EQ(output(block, 1500), "90 52 FF");  // 0x3000 to 0x8000 takes 1.07 s
  EXPECT_EQ(output(block, 2990), "");
  EXPECT_EQ(output(block, 3010), "90 51 FF");
  ask(block, "81 01 04 47 00 00 00 00 FF", 5000);
  EXPECT_EQ(ask(block, "81 01 04 07 00 FF", 5100), "90 42 FF | 90 52 FF | 90 51 FF");  // stopped
  EXPECT_NEAR(lens_position(block.lens, kZoom), kOpticalEnd - 546, 3);
  ask(block, "81 01 04 07 27 FF", 6000);
  block_advance(block, 66000);
  EXPECT_EQ(lens_position(block.lens, kZoom), kCombinedEnd);
}

TEST(block_model, reports_while_the_lens_moves) {
  block_model block;
  EXPECT_EQ(ask(block, "81 01 04 69 02 FF", 0), "90 41 FF | 90 51 FF | 90 07 04 69 00 00 00 00 00 00 FF");
  EXPECT_EQ(ask(block, "81 01 04 16 02 FF", 0), "90 41 FF | 90 51 FF | 90 07 04 16 00 00 03 00 00 00 FF");
  ask(block, kManualFocus, 0);
  EXPECT_EQ(ask(block, "81 01 04 47 00 01 09 09 FF", 1000), "90 41 FF");  // 0x199 = 409 counts, 74.9 ms
  EXPECT_EQ(output(block, 1034), "90 07 04 69 00 00 00 00 0B 0A FF");
  EXPECT_EQ(output(block, 1074), "90 07 04 69 00 00 00 01 06 0E FF");
  EXPECT_EQ(output(block, 1080), "90 51 FF | 90 07 04 69 00 00 00 01 09 09 FF");
  EXPECT_EQ(output(block, 5000), "");
}

}  // namespace
