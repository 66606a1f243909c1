// The simulated camera block, byte by byte: the whole unit is tested against it, so it has to be right.
#include "sim/camera/block_model.h"

#include "tests/camera/fake_camera.h"

namespace {

using namespace sim_camera;

// What the block sends by now, segment by segment. Looks every 10 ms, as the server does.
std::string output(block_model& block, int64_t now_ms) {
  std::string all;
  for (int64_t t = std::min(block.time_ms, now_ms);; t = std::min(t + 10, now_ms)) {
    for (const packet& segment : block_take_output(block, t)) all += (all.empty() ? "" : " ") + hex(segment);
    if (t == now_ms) return all;
  }
}

std::string ask(block_model& block, const std::string& packet, int64_t now_ms) {
  block_receive(block, unhex(packet), now_ms);
  return output(block, now_ms);
}

TEST(block_model, answers_each_packet) {
  const std::pair<const char*, const char*> cases[] = {
      {"81090002FF", "905000200405012302FF"},  // version, without acknowledge
      {"8101040727FF", "9041FF 9051FF"},       // a drive is complete at once
      {"8101040728FF", "906002FF"},            // speed 8
      {"81010407FF", "906002FF"},
      {"81010447070A0C01FF", "906002FF"},  // one count beyond 360x
      {"8101040802FF", "906141FF"},        // focus far while the focus is automatic
      {"8201040702FF", ""},                // another camera's
      // An overlong packet ends at its terminator.
      {"810104732000000000000000000000000000FF 8101040002FF", "906002FF 9041FF 9051FF"},
  };
  for (const auto& [sent, answer] : cases) {
    block_model block;
    for (const uint8_t byte : unhex(sent)) block_receive(block, {&byte, 1}, 0);
    EXPECT_EQ(output(block, 0), answer) << sent;
  }
}

TEST(block_model, direct_moves_keep_their_sockets_until_they_arrive) {
  constexpr const char* kZoomTo30x = "8101044704000000FF";
  block_model block;
  ask(block, "8101043803FF", 0);  // manual focus
  EXPECT_EQ(ask(block, kZoomTo30x, 0), "9041FF");
  EXPECT_EQ(ask(block, "8101044808000000FF", 0), "9042FF");
  EXPECT_EQ(ask(block, kZoomTo30x, 10), "906003FF");
  EXPECT_EQ(output(block, 1500), "9052FF");  // 0x3000 to 0x8000 takes 1.07 s
  EXPECT_EQ(output(block, 2990), "");
  EXPECT_EQ(output(block, 3010), "9051FF");
  ask(block, "8101044700000000FF", 5000);
  EXPECT_EQ(ask(block, "8101040700FF", 5100), "9042FF 9052FF 9051FF");  // stopped
  EXPECT_NEAR(lens_position(block.lens, kZoom), kOpticalEnd - 546, 3);
  ask(block, "8101040727FF", 6000);
  block_advance(block, 66000);
  EXPECT_EQ(lens_position(block.lens, kZoom), kCombinedEnd);
}

}  // namespace
