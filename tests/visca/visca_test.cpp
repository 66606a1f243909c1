// The commands byte by byte, the queue, and what the camera's replies do.

#include "tests/visca/fake_camera.h"

namespace {

TEST(ViscaCommands, BytesWithArguments) {
  stepped_link link;
  visca_camera* camera = link.camera;
  for (const auto& set :
       {visca_camera_digital_zoom_direct, visca_camera_red_gain_direct, visca_camera_blue_gain_direct,
        visca_camera_gain_direct, visca_camera_iris_direct, visca_camera_shutter_direct})
    set(camera, 0x3A7);
  link.expect("4600000A07 4300000A07 4400000A07 4C00000A07 4B00000A07 4A00000A07");
  visca_camera_zoom_tele_variable(camera, 0x1C);  // the wider mask
  visca_camera_zoom_wide_variable(camera, -1);
  visca_camera_digital_zoom_tele_variable(camera, 0x1D);
  visca_camera_digital_zoom_wide_variable(camera, -1);
  visca_camera_focus_far_variable(camera, 0x0A);
  visca_camera_focus_near_variable(camera, -1);
  visca_camera_defog_level(camera, 0x1F);
  link.expect("072C 073F 0625 0637 0822 0837 37020F");
  visca_camera_focus_direct(camera, 0x9123A);
  visca_camera_focus_near_limit(camera, 0xDCBA);
  visca_camera_zoom_focus_direct(camera, 0x1234, 0xFEDC);
  link.expect("480102030A 280D0C0B0A 47010203040F0E0D0C");
  const auto title = [&](const char* text, const std::string& bytes) {
    visca_camera_title_set_2(camera, 3, text);
    visca_camera_title_set_3(camera, 10, text);
    link.expect("7323" + bytes + " 733A" + bytes);
  };
  title("ABCDEfghij", "00010203040506070809");
  title("klmnoPQRST", "0A0B0C0D0E0F10111213");
  title("UvWxYz& ?!", "1415161718191A1B1C1D");
  title("0123456789 and more", "271E1F20212223242526");
  title("$\":'.,/-\x80", "41494A4B4C4D4E4F1B1B");
  visca_camera_title_set_1(camera, 2, 0x111, 0x203, 1);
  visca_camera_title_clear_line(camera, 3);
  visca_camera_title_turn_line_on(camera, 0x4A);  // not masked
  visca_camera_title_turn_line_off(camera, 10);
  link.expect("731200110301000000000000 7413 746A 743A");
}

TEST(ViscaQueue, HoldsCommandsAndSendsOneAtATime) {
  stepped_link link;
  for (int round = 0; round < 2; ++round) {  // the second one wraps
    for (int i = 0; i < 127; ++i) ASSERT_EQ(visca_camera_zoom_direct(link.camera, i), 0) << i;
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 127), -1);
    EXPECT_EQ(link.block.packet(), "8101044700000000FF");
    EXPECT_EQ(link.block.packet(20), "");  // the second one waits
    link.hear("9041FF");
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 127), 0);  // one retired, one place free
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 128), -1);
    for (int i = 1; i < 128; ++i)
      link.expect("470000" + hex({static_cast<uint8_t>(i >> 4), static_cast<uint8_t>(i & 15)}));
    link.hear("9051FF");  // nothing outstanding
    EXPECT_TRUE(visca_camera_is_idle(link.camera));
  }
}

TEST(ViscaQueue, ProducersOnFourThreads) {
  constexpr int kEach = 4000;
  stepped_link link;
  const auto produce = [&](int producer) {
    for (int i = 0; i < kEach; ++i)
      while (visca_camera_zoom_direct(link.camera, producer << 12 | i) != 0) std::this_thread::yield();
  };
  std::deque<std::jthread> producers;
  for (int producer = 0; producer < 4; ++producer) producers.emplace_back(produce, producer);
  std::array<int, 4> next{};
  for (int sent = 0; sent < 4 * kEach; ++sent) {
    std::string packet;
    const auto found = [&] {
      for (int i = 0; i < 20; ++i) visca_camera_complete_command(link.camera, kViscaAcknowledged);
      return !(packet = link.block.packet(0)).empty();
    };
    while (!found()) continue;
    const uint16_t position = visca_read_position(std::span<const uint8_t, 4>(unhex(packet).data() + 4, 4));
    EXPECT_EQ(position & 0xFFF, next[position >> 12]++) << packet;
  }
}

TEST(ViscaReplies, AdvanceTheQueue) {
  const std::string taken = "ack 1;complete 1 0;extract 2;";
  const std::pair<std::string, std::string> cases[] = {
      // with a space between two reads
      {"90 41 FF", taken},
      {"9052FF", "done 2;complete 1 1;extract 2;"},
      {"9041FF9051FF", taken + "done 1;complete 2 1;"},
      {"906002FF", "error 0 2;complete 1 2;extract 2;"},
      {"906141FF", "error 1 65;complete 1 2;extract 2;"},
      {"9041030405060708090A0B0C0D0E0FFF", taken},  // 16 bytes, the longest
      {"90410304050607 08090A0B0C0D0E0F10FF", "overrun;"},
      {"90000102030405060708090A0B0C0D0E 90 42FF9041FF", "overrun;" + taken},
      {"FFFF90FF 41FF9041FF", taken},  // too short to be any
      {"9038FF 9038FF9038FF", "rx network change;rx network change;"},
      {"A041FF 9007FF 900704FF 9030FF", ""}};  // another camera's, and unknown ones
  start_trace();
  stepped_link link;
  for (const auto& [reads, expected] : cases) {
    visca_connection_remove_camera(link.connection, 1);
    visca_camera* camera = visca_connection_add_camera(link.connection, 1, 0);
    camera->on_acknowledge = [](auto*, int socket) { trace(kTraceVisca, "ack %d", socket); };
    camera->on_completion = [](auto*, int socket) { trace(kTraceVisca, "done %d", socket); };
    camera->on_error = [](auto*, int socket, int code) { trace(kTraceVisca, "error %d %d", socket, code); };
    visca_camera_zoom_stop(camera);
    visca_camera_focus_stop(camera);
    const size_t before = traces("VSIO").size();
    for (const std::string& read : words(reads)) link.hear(read);
    EXPECT_EQ(traces("VSIO").substr(before), expected) << reads;
  }
}

TEST(ViscaReplies, TimeOut) {
  stepped_link link;
  visca_camera* camera = link.camera;
  ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
  link.expect("0700");
  sleep_ms(150);  // the timer is half through when the next one is sent
  visca_connection_poll(link.connection);
  const int64_t start = monotonic_ns();
  ASSERT_EQ(visca_camera_zoom_tele(camera), 0);
  ASSERT_EQ(visca_camera_zoom_wide(camera), 0);
  EXPECT_TRUE(await([&] { return visca_connection_poll(link.connection), camera->extract_index == 3; }));
  EXPECT_GE(monotonic_ns() - start, 250 * kNanosecondsPerMillisecond);
  EXPECT_LT(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
  for (const char* packet : {"8101040702FF", "81010001FF", "8101040703FF"})
    EXPECT_EQ(link.block.packet(), packet);
  link.hear("9041FF");
  visca_camera_zoom_tele(camera);
  link.hear("9051FF");  // another's completion
  visca_camera_zoom_stop(camera);
  link.hear("9041FF");  // the first one's acknowledge: the second has none
  EXPECT_EQ(camera->lost_commands, 1U);
  EXPECT_TRUE(await([&] { return visca_connection_poll(link.connection), camera->lost_commands == 2; }, 2));
}

// A remote close alone leaves the link connected.
TEST(ViscaLink, ASendThatFailsEndsTheLink) {
  for (const bool reset : {true, false}) {
    stepped_link link;
    link.block.hang_up(reset);
    const auto closed = [&] { return visca_connection_poll(link.connection), link.connection->fd == -1; };
    EXPECT_TRUE(reset || await(closed));
    EXPECT_EQ(visca_connection_is_connected(link.connection), 1U);
    EXPECT_EQ(visca_camera_zoom_stop(link.camera), 0);  // queued: the camera thread will retire it
    EXPECT_EQ(visca_connection_is_connected(link.connection), 0U);
    EXPECT_EQ(link.connection->fd >= 0, reset);  // the camera thread's to close
    EXPECT_EQ(visca_camera_zoom_stop(link.camera), -1);
    EXPECT_TRUE(closed());
  }
}

TEST(ViscaLink, NoAnswer) {
  start_trace();
  const fake_camera block(0);  // room for one connection that is not accepted: the second stays unanswered
  struct ev_loop* loop = ev_loop_new(EVBACKEND_POLL);
  visca_connection* first = visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 5000);
  EXPECT_TRUE(await([&] { return visca_connection_poll(first), first->connected == 1; }));
  visca_connection* second = visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 100);
  EXPECT_TRUE(await([&] { return visca_connection_poll(second), second->fd == -1; }));
  EXPECT_TRUE(traced("VSIO", "connect timeout;"));
  for (visca_connection* connection : {first, second}) visca_connection_destroy(connection);
  ev_loop_destroy(loop);
}

}  // namespace
