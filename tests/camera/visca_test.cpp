// The commands byte by byte, the queue, and what the camera's replies do.
#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <thread>

#include "camera/visca_camera.h"
#include "tests/camera/fake_camera.h"

namespace {

// Commands without an argument that share a command byte, and what follows 8x 01 04 for each.
struct fixed_commands {
  std::vector<int (*)(visca_camera* camera)> send;
  std::string bytes;
};

const fixed_commands kFixed[] = {
    {{visca_camera_power_on, visca_camera_power_off}, "0002 0003"},
    {{visca_camera_zoom_stop, visca_camera_zoom_tele, visca_camera_zoom_wide}, "0700 0702 0703"},
    {{visca_camera_digital_zoom_on, visca_camera_digital_zoom_off, visca_camera_digital_zoom_stop},
     "0602 0603 0600"},
    {{visca_camera_digital_zoom_combine_mode, visca_camera_digital_zoom_separate_mode}, "3600 3601"},
    {{visca_camera_focus_stop, visca_camera_focus_far, visca_camera_focus_near}, "0800 0802 0803"},
    {{visca_camera_auto_focus, visca_camera_manual_focus}, "3802 3803"},
    {{visca_camera_auto_focus_trigger, visca_camera_auto_focus_trigger_full_scan}, "1801 1803"},
    {{visca_camera_auto_focus_sensitivity_normal, visca_camera_auto_focus_sensitivity_low}, "5802 5803"},
    {{visca_camera_auto_focus_mode_normal, visca_camera_auto_focus_mode_interval,
      visca_camera_auto_focus_mode_zoom_trigger},
     "5700 5701 5702"},
    {{visca_camera_ir_correction_standard, visca_camera_ir_correction_ir_light}, "1100 1101"},
    {{visca_camera_initialize_lens, visca_camera_initialize_camera}, "1901 1903"},
    {{visca_camera_white_balance_auto, visca_camera_white_balance_indoor, visca_camera_white_balance_outdoor,
      visca_camera_white_balance_one_push, visca_camera_white_balance_auto_tracing,
      visca_camera_white_balance_manual, visca_camera_white_balance_outdoor_auto,
      visca_camera_white_balance_sodium_lamp, visca_camera_white_balance_sodium_lamp_auto,
      visca_camera_white_balance_sodium_lamp_outdoor_auto},
     "3500 3501 3502 3503 3504 3505 3506 3508 3507 3509"},
    {{visca_camera_red_gain_reset, visca_camera_red_gain_up, visca_camera_red_gain_down}, "0300 0302 0303"},
    {{visca_camera_blue_gain_reset, visca_camera_blue_gain_up, visca_camera_blue_gain_down},
     "0400 0402 0403"},
    {{visca_camera_gain_reset, visca_camera_gain_up, visca_camera_gain_down}, "0C00 0C02 0C03"},
    {{visca_camera_iris_reset, visca_camera_iris_up, visca_camera_iris_down}, "0B00 0B02 0B03"},
    {{visca_camera_shutter_reset, visca_camera_shutter_up, visca_camera_shutter_down}, "0A00 0A02 0A03"},
    {{visca_camera_continuous_zoom_position_on, visca_camera_continuous_zoom_position_off}, "6902 6903"},
    {{visca_camera_continuous_focus_position_on, visca_camera_continuous_focus_position_off}, "1602 1603"},
    {{visca_camera_exposure_mode_auto, visca_camera_exposure_mode_manual,
      visca_camera_exposure_mode_iris_priority, visca_camera_exposure_mode_shutter_priority},
     "3900 3903 390B 390A"},
    {{visca_camera_picture_flip_on, visca_camera_picture_flip_off}, "6602 6603"},
    {{visca_camera_stabilizer_on, visca_camera_stabilizer_off}, "3402 3403"},
    {{visca_camera_high_sensitivity_on, visca_camera_high_sensitivity_off}, "5E02 5E03"},
    {{visca_camera_icr_on, visca_camera_icr_off}, "0102 0103"},
    {{visca_camera_auto_icr_on, visca_camera_auto_icr_off}, "5102 5103"},
    {{visca_camera_defog_off}, "370300"},
    {{visca_camera_title_clear_all, visca_camera_title_turn_all_on, visca_camera_title_turn_all_off},
     "741F 742F 743F"},
    {{visca_camera_white_balance_one_push_trigger}, "1005"}};

struct number_command {
  int (*send)(visca_camera* camera, int number);
  int number;
  const char* bytes;
};

constexpr number_command kNumbers[] = {{visca_camera_zoom_tele_variable, 7, "0727"},
                                       {visca_camera_zoom_tele_variable, 0x1C, "072C"},  // the wider mask
                                       {visca_camera_zoom_wide_variable, 0, "0730"},
                                       {visca_camera_zoom_wide_variable, -1, "073F"},
                                       {visca_camera_digital_zoom_tele_variable, 0x1D, "0625"},
                                       {visca_camera_digital_zoom_wide_variable, 7, "0637"},
                                       {visca_camera_focus_far_variable, 0x0A, "0822"},
                                       {visca_camera_focus_near_variable, -1, "0837"},
                                       {visca_camera_zoom_direct, 0x4000, "4704000000"},
                                       {visca_camera_zoom_direct, -1, "470F0F0F0F"},
                                       {visca_camera_focus_direct, 0x9123A, "480102030A"},
                                       {visca_camera_focus_near_limit, 0xDCBA, "280D0C0B0A"},
                                       {visca_camera_defog_level, 3, "370203"},
                                       {visca_camera_defog_level, 0x1F, "37020F"},
                                       {visca_camera_title_clear_line, 3, "7413"},
                                       {visca_camera_title_turn_line_on, 0x4A, "746A"},  // not masked
                                       {visca_camera_title_turn_line_off, 10, "743A"}};

struct value_command {
  int (*send)(visca_camera* camera, unsigned value);
  const char* bytes;  // of 0x3A7
};

constexpr value_command kValues[] = {
    {visca_camera_digital_zoom_direct, "4600000A07"}, {visca_camera_red_gain_direct, "4300000A07"},
    {visca_camera_blue_gain_direct, "4400000A07"},    {visca_camera_gain_direct, "4C00000A07"},
    {visca_camera_iris_direct, "4B00000A07"},         {visca_camera_shutter_direct, "4A00000A07"}};

std::string packet_of(const std::string& bytes) { return "810104" + bytes + "FF"; }

TEST(ViscaCommands, BytesOfEveryCommand) {
  stepped_link link;
  visca_camera* camera = link.camera;
  const auto expect = [&](int result, const std::string& packet) {
    EXPECT_EQ(result, 0) << packet;
    EXPECT_EQ(link.obey(), packet);
  };
  for (const auto& [commands, parameters] : kFixed) {
    std::istringstream words(parameters);
    for (const auto& send : commands) {
      std::string bytes;
      words >> bytes;
      expect(send(camera), packet_of(bytes));
    }
  }
  for (const auto& row : kNumbers) expect(row.send(camera, row.number), packet_of(row.bytes));
  for (const auto& row : kValues) expect(row.send(camera, 0x3A7), packet_of(row.bytes));
  expect(visca_camera_version_inq(camera), "81090002FF");
  expect(visca_camera_zoom_focus_direct(camera, 0x1234, 0xFEDC), packet_of("47010203040F0E0D0C"));
  expect(visca_camera_title_set_1(camera, 2, 0x111, 0x203, 1), packet_of("731200110301000000000000"));
  expect(visca_camera_title_set_2(camera, 3, "Ab 9?"), packet_of("732300011B261C1B1B1B1B1B"));
  expect(visca_camera_title_set_3(camera, 10, "0123456789 and more"), packet_of("733A271E1F20212223242526"));
}

TEST(ViscaCommands, TitleCharacters) {
  const std::string order = "ABCDEFGHIJKLMNOPQRSTUVWXYZ& ?!1234567890";
  std::map<char, int> rest{{'$', 0x41}, {'"', 0x49}, {':', 0x4A}, {'\'', 0x4B},
                           {'.', 0x4C}, {',', 0x4D}, {'/', 0x4E}, {'-', 0x4F}};
  stepped_link link;
  for (int byte = 1; byte < 256; ++byte) {
    const char text[] = {static_cast<char>(byte), 'b', '\0'};
    const size_t place = order.find(byte < 128 ? static_cast<char>(toupper(byte)) : text[0]);
    const int code = place != std::string::npos ? static_cast<int>(place)
                     : rest.contains(text[0])   ? rest[text[0]]
                                                : 0x1B;
    ASSERT_EQ(visca_camera_title_set_2(link.camera, 1, text), 0);
    EXPECT_EQ(link.obey(), packet_of("7321" + hex({static_cast<uint8_t>(code)}) + "011B1B1B1B1B1B1B1B"))
        << byte;
  }
}

TEST(ViscaQueue, OneCommandOutstanding) {
  start_trace({kTraceVisca});
  stepped_link link;
  EXPECT_EQ(visca_camera_zoom_stop(link.camera), 0);
  EXPECT_EQ(visca_camera_focus_stop(link.camera), 0);
  EXPECT_EQ(link.block.packet(), packet_of("0700"));
  EXPECT_EQ(link.block.packet(50), "");  // waits for the first
  visca_camera_complete_command(link.camera, 0);
  EXPECT_EQ(link.block.packet(), packet_of("0800"));
  visca_camera_complete_command(link.camera, 1);
  EXPECT_TRUE(visca_camera_is_idle(link.camera));
  visca_camera_complete_command(link.camera, 1);  // nothing outstanding
  EXPECT_EQ(traces("VSIO"), (strings{"create", "connect", "insert 1", "extract 1", "insert 2", "complete 1 0",
                                     "extract 2", "complete 2 1"}));
}

TEST(ViscaQueue, HoldsCommandsUpToItsSize) {
  stepped_link link;
  for (int round = 0; round < 2; ++round) {  // the second one wraps
    for (int i = 0; i < 127; ++i) ASSERT_EQ(visca_camera_zoom_direct(link.camera, i), 0) << i;
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 127), -1);
    EXPECT_EQ(link.obey(), packet_of("4700000000"));
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 0x80), 0);  // one retired, one place free
    EXPECT_EQ(visca_camera_zoom_direct(link.camera, 0x81), -1);
    for (int i = 1; i < 127; ++i) {
      ASSERT_EQ(link.obey(),
                packet_of("470000" + hex({static_cast<uint8_t>(i >> 4), static_cast<uint8_t>(i & 15)})));
    }
    EXPECT_EQ(link.obey(), packet_of("4700000800"));
    EXPECT_TRUE(visca_camera_is_idle(link.camera));
  }
}

// Four producers against a camera thread that retires as fast as it can.
TEST(ViscaQueue, ProducersOnFourThreads) {
  constexpr int kProducers = 4;
  constexpr int kEach = 4000;
  stepped_link link;
  std::atomic<int> running = kProducers;
  std::vector<std::thread> producers;
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      for (int i = 0; i < kEach; ++i) {
        while (visca_camera_zoom_direct(link.camera, producer << 12 | i) != 0) std::this_thread::yield();
      }
      --running;
    });
  }
  strings sent;
  while (running > 0 || !visca_camera_is_idle(link.camera)) {
    for (int i = 0; i < 200; ++i) visca_camera_complete_command(link.camera, 0);
    for (std::string packet; !(packet = link.block.packet(0)).empty();) sent.push_back(packet);
  }
  for (std::thread& producer : producers) producer.join();
  for (std::string packet; !(packet = link.block.packet(50)).empty();) sent.push_back(packet);
  ASSERT_EQ(sent.size(), static_cast<size_t>(kProducers * kEach));
  std::array<int, kProducers> next{};
  for (const std::string& packet : sent) {
    const uint16_t position = visca_read_position(std::span<const uint8_t, 4>(unhex(packet).data() + 4, 4));
    EXPECT_EQ(position & 0xFFF, next[position >> 12]++) << packet;
  }
}

struct reply_case {
  const char* name;
  strings reads;
  strings traced;
};

TEST(ViscaReplies, AdvanceTheQueue) {
  const reply_case cases[] = {
      {"acknowledge", {"9041FF"}, {"ack 1", "complete 1 0", "extract 2"}},
      {"acknowledge of socket 0", {"9040FF"}, {"ack 0", "complete 1 0", "extract 2"}},
      {"completion", {"9052FF"}, {"done 2", "complete 1 1", "extract 2"}},
      {"error", {"906002FF"}, {"error 0 2", "complete 1 2", "extract 2"}},
      {"error on a socket", {"906141FF"}, {"error 1 65", "complete 1 2", "extract 2"}},
      {"split", {"90", "41", "FF"}, {"ack 1", "complete 1 0", "extract 2"}},
      {"merged", {"9041FF9051FF"}, {"ack 1", "complete 1 0", "extract 2", "done 1", "complete 2 1"}},
      {"both answered",
       {"9041FF9042FF9052FF"},
       {"ack 1", "complete 1 0", "extract 2", "ack 2", "complete 2 0", "done 2"}},
      {"overrun",
       {"90000102030405060708090A0B0C0D0E", "0F10", "4041FF9041FF"},
       {"overrun", "ack 1", "complete 1 0", "extract 2"}},
      {"16 bytes", {"9041030405060708090A0B0C0D0E0FFF"}, {"ack 1", "complete 1 0", "extract 2"}},
      {"16 bytes without an end", {"90410304050607 08090A0B0C0D0E0F10FF"}, {"overrun"}},
      {"short", {"FFFF90FF", "41FF9041FF"}, {"ack 1", "complete 1 0", "extract 2"}},
      {"network change", {"9038FF", "9038FF9038FF"}, {"rx network change", "rx network change"}},
      {"another camera", {"A041FF"}, {}},
      {"nothing known", {"9007FF", "900704FF", "9030FF"}, {}},
  };
  start_trace({kTraceVisca});
  stepped_link link;
  for (const reply_case& row : cases) {
    visca_connection_remove_camera(link.connection, 1);
    visca_camera* camera = visca_connection_add_camera(link.connection, 1, 0);
    camera->on_acknowledge = [](visca_camera*, int socket) { trace(kTraceVisca, "ack %d", socket); };
    camera->on_completion = [](visca_camera*, int socket) { trace(kTraceVisca, "done %d", socket); };
    camera->on_error = [](visca_camera*, int socket, int code) {
      trace(kTraceVisca, "error %d %d", socket, code);
    };
    visca_camera_zoom_stop(camera);
    visca_camera_focus_stop(camera);
    const size_t before = traces("VSIO").size();
    for (const std::string& read : row.reads) link.hear(read);
    const strings all = traces("VSIO");
    EXPECT_EQ(strings(all.begin() + static_cast<long>(before), all.end()), row.traced) << row.name;
  }
}

TEST(ViscaReplies, ReportPositionsAndVersion) {
  stepped_link link;
  visca_camera* camera = link.camera;
  ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
  EXPECT_EQ(camera->zoom_position, kViscaNotReported);
  link.hear("900704690001010203");
  link.hear("04FF 90070416 0000 0A0B0C0D FF 900704690F FF 9007041600000A0BFF");
  EXPECT_EQ(camera->digital_zoom, 0x01);
  EXPECT_EQ(camera->zoom_position, 0x1234U);
  EXPECT_EQ(camera->focus_position, 0xABCDU);
  EXPECT_EQ(global_zoom_position, 0x1234U);
  EXPECT_EQ(global_focus_position, 0xABCDU);
  link.hear("90070469 0A05 07 0A 0C 00 FF");
  EXPECT_EQ(camera->digital_zoom, 0xA5);
  EXPECT_EQ(camera->zoom_position, 0x7AC0U);
  EXPECT_EQ(camera->extract_index, 1);  // reports retire nothing
  link.hear("90500020 04FF");           // too short to be one
  EXPECT_EQ(camera->model_id, 0);
  link.hear("90500020 0405 0123 01FF");
  EXPECT_EQ(camera->model_id, 0x0405);
  EXPECT_EQ(camera->rom_version, 0x0123);
}

// The sockets follow the replies, and an answer that never comes is given up after 0.25 s.
TEST(ViscaReplies, SocketsAndTimeOut) {
  start_trace({kTraceVisca});
  stepped_link link;
  visca_camera* camera = link.camera;
  ASSERT_EQ(visca_camera_zoom_stop(camera), 0);
  EXPECT_EQ(camera->sockets[0].state, 1U);
  const int64_t sent_at = camera->sockets[0].sent_at_ns;
  link.hear("9042FF");
  EXPECT_EQ(camera->sockets[0].state, 0U);
  EXPECT_EQ(camera->sockets[2].state, 1U);
  EXPECT_EQ(camera->sockets[2].sent_at_ns, sent_at);
  link.hear("9052FF");
  EXPECT_EQ(camera->sockets[2].state, 0U);
  EXPECT_EQ(link.block.packet(), packet_of("0700"));

  sleep_ms(150);  // the timer is half through when the next one is sent
  visca_connection_poll(link.connection);
  const int64_t start = monotonic_ns();
  ASSERT_EQ(visca_camera_zoom_tele(camera), 0);
  ASSERT_EQ(visca_camera_zoom_wide(camera), 0);
  EXPECT_TRUE(eventually([&] { return visca_connection_poll(link.connection), camera->extract_index == 3; }));
  EXPECT_GE(monotonic_ns() - start, 250 * kNanosecondsPerMillisecond);
  EXPECT_LT(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
  for (const char* packet : {"8101040702FF", "81010001FF", "8101040703FF"})
    EXPECT_EQ(link.block.packet(), packet);
  const strings all = traces("VSIO");
  EXPECT_EQ(strings(all.end() - 3, all.end()), (strings{"if clear", "complete 2 3", "extract 3"}));
}

TEST(ViscaLink, SendFailureClosesTheLink) {
  start_trace({kTraceVisca});
  stepped_link link;
  link.block.hang_up(true);
  EXPECT_EQ(visca_camera_zoom_stop(link.camera), 0);  // queued: the camera thread will retire it
  EXPECT_EQ(visca_connection_is_connected(link.connection), 0U);
  EXPECT_GE(link.connection->fd, 0);  // the camera thread's to close
  EXPECT_EQ(link.camera->busy, 1U);
  EXPECT_EQ(visca_camera_zoom_stop(link.camera), -1);
  visca_connection_poll(link.connection);
  EXPECT_EQ(link.connection->fd, -1);
  EXPECT_EQ(traces("VSIO").back().substr(0, 14), "send failure '");
}

TEST(ViscaLink, RemoteCloseIsNoticedByTheNextSend) {
  start_trace({kTraceVisca});
  stepped_link link;
  link.block.hang_up();
  EXPECT_TRUE(eventually([&] { return visca_connection_poll(link.connection), link.connection->fd == -1; }));
  EXPECT_EQ(traces("VSIO").back(), "remote close");
  EXPECT_EQ(visca_connection_is_connected(link.connection), 1U);
  EXPECT_EQ(visca_camera_zoom_stop(link.camera), 0);
  EXPECT_EQ(visca_connection_is_connected(link.connection), 0U);
  EXPECT_EQ(visca_connection_is_connected(nullptr), 0U);
}

TEST(ViscaLink, NoAddressAndNoAnswer) {
  start_trace({kTraceVisca});
  struct ev_loop* loop = ev_loop_new(EVBACKEND_POLL);
  EXPECT_EQ(visca_connection_create(loop, "the camera", addresses::kCameraPort, 100), nullptr);
  EXPECT_EQ(traces("VSIO").back().substr(0, 14), "addr failure 0");
  const fake_camera block(0);  // room for one connection that is not accepted: the second stays unanswered
  visca_connection* first = visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 5000);
  EXPECT_TRUE(eventually([&] { return visca_connection_poll(first), first->connected == 1; }));
  visca_connection* second = visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 100);
  EXPECT_TRUE(eventually([&] { return visca_connection_poll(second), second->fd == -1; }));
  EXPECT_EQ(traces("VSIO").back(), "connect timeout");
  for (visca_connection* connection : {first, second}) visca_connection_destroy(connection);
  ev_loop_destroy(loop);
}

}  // namespace
