// The synchronous VISCA client: what it writes, what comes of the reply, and what the console is told.
#include "visca/packet_client.h"

#include <sys/select.h>

#include "api/packet_routes.h"
#include "tests/api/api_client.h"
#include "tests/visca/fake_camera.h"

// The client's wait for a reply, shortened in this program alone.
static timeval asked_wait;

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* wait) {
  asked_wait = *wait;
  const timespec shorter{0, 50'000'000};
  return pselect(count, readable, writable, failed, &shorter, nullptr);
}

namespace {

// What `f` tells the console; a logged reply is one line "asked/read bytes".
std::string console(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  f();
  const std::string text = std::regex_replace(testing::internal::GetCapturedStdout(),
                                              std::regex("requested (.*) read (.*)"), "$1/$2");
  return std::regex_replace(text, std::regex("\noutput: "), " ");
}

struct PacketClient : testing::Test {
  fake_camera block;
  Camera camera{addresses::kCameraPort, addresses::kCamera};

  void SetUp() override { ASSERT_TRUE(block.accept_link()); }
};

using operation = std::function<int(Camera&)>;
template <void (Camera::*Command)()>
const operation command = [](Camera& camera) { return (camera.*Command)(), 0; };

TEST_F(PacketClient, WritesEachOperationAndReadsItsReply) {
  const auto shutter = [](int speed) { return [speed](Camera& c) { return c.CAM_shutterSpeed(speed), 0; }; };
  const operation power = &Camera::CAM_powerInq, focus = &Camera::CAM_focusModeInq,
                  distance = &Camera::FocusDistance, iris = &Camera::CAM_irisPosInq;
  const std::string done = "3/3 90 41 ff\n3/3 90 51 ff\n", fault = "FAULT : buffer was cleared! \n";
  const struct {
    operation run;
    const char *written, *reply;
    std::string told;
    int result = 0;
  } rows[] = {
      {shutter(1), "8101044B00000105FF", "9041FF9051FF", done},
      {shutter(21), "8101044B00000001FF", "9041FF9051FF", done},
      {shutter(22), "8101044B00000000FF", "9041FF9051FF", done},
      {command<&Camera::IF_clear>, "88010001FF", "9050FF", "IF CLEAR \n3/3 90 50 ff\n"},
      {command<&Camera::CAM_versionInq>, "81090002FF", "90500020047F0100", fault + "10/0\n"},
      {command<&Camera::CAM_DZoomPosInq>, "81090446FF", "90500000000AFF", "7/7 90 50 0 0 0 a ff\n"},
      {power, "81090400FF", "905002FF", "4/4 90 50 2 ff\n", 1},
      {power, "81090400FF", "905003FF", "4/4 90 50 3 ff\n", 0},
      {power, "81090400FF", "906002FF", "4/4 90 60 2 ff\n", 0},  // a syntax error, not a camera that is on
      {power, "81090400FF", "905002", fault + "4/0\n", 0},
      {focus, "81090438FF", "905002FF", "7/4 90 50 2 ff\n", 1},
      {distance, "81090448FF", "90500F0A0305FF", "7/7 90 50 f a 3 5 ff\n", 0xFA35},
      {distance, "81090448FF", "90500F0AFF", "7/5 90 50 f a ff\n", 0},
      {distance, "81090448FF", "FF", "7/1 ff\n", 0},
      {iris, "8109044BFF", "90500C000101FF", "7/7 90 50 c 0 1 1 ff\n", 12},
      {iris, "8109044BFF", "9050FF", "7/3 90 50 ff\n", 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.written) + " " + row.reply);
    block.say(row.reply);
    int result = -1;
    const std::string told = console([&] { result = row.run(camera); });
    EXPECT_EQ(told, row.told);
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(block.packet(), row.written);
  }
}

TEST_F(PacketClient, ReadsWhatTheCameraSaysWithinEightSeconds) {
  std::vector<unsigned char> packet{0x81, 0x01, 0x04, 0x07, 0x02}, none;
  const std::string reply = std::string(198, '0') + "FF";
  block.say("9041FF9051FF" + reply);
  EXPECT_EQ(hex(camera.sendVISCAPacket(packet, 3, true)), "9051FF");  // the completion
  EXPECT_EQ(block.packet(), "8101040702FF");
  EXPECT_EQ(hex(camera.readVISCAReply(100)), reply);
  EXPECT_EQ(console([&] { EXPECT_TRUE(camera.sendVISCAPacket(none, 3, false).empty()); }),
            "Read timeout.\n.FAULT : buffer was cleared! \n3/0\n");
  EXPECT_EQ(block.packet(0), "");
  EXPECT_EQ(asked_wait.tv_sec, 8);
  block.hang_up();
  EXPECT_EQ(console([&] { EXPECT_TRUE(camera.readVISCAReply(-1).empty()); }), "-1/0\n");
}

TEST_F(PacketClient, Handlers) {
  http_server* server = http_server_init(addresses::kApiPort, 4);
  using namespace camera_packet;  // NOLINT(google-build-using-namespace)
  const std::string done = "9041FF9051FF", ok = "{'status':'OK'}";
  const std::tuple<std::string, http_handler, const char*, std::string, const char*, std::string> rows[] = {
      {"/on", power_inq, "", "905002FF", "81090400FF", "{'cameraPowerStatus':true}"},
      {"/focus", get_focus_mode, "", "905003FF", "81090438FF", "{'focusMode':false}"},
      {"/shutter", set_shutter_speed, "{'shutterSpeed':7}", done, "8101044B0000000FFF", ok},
      {"/shutter", set_shutter_speed, "{'shutterSpeed':'fast'}", "", "", "{'status':'BAD_REQUEST'}"},
      {"/reset", reset_camera, "", done, "8101041903FF", ok},
      {"/info", get_camera_info, "", "9050FF", "81090002FF", ok},
      {"/auto", set_ae_auto, "", done, "8101043900FF", ok},
      {"/manual", set_ae_manual, "", done, "8101043903FF", ok}};
  for (const auto& row : rows)
    http_server_register_handler(server, "POST", ("/api" + get<0>(row)).c_str(), get<1>(row), nullptr,
                                 &camera);
  constexpr thread_body kServe = [](void* running) -> void* {
    for (;;) http_server_process_events(static_cast<http_server*>(running), 100);
  };
  start_detached_thread("http", kServe, server);
  for (const auto& [name, handler, body, said, written, answer] : rows) {
    block.say(said);
    EXPECT_EQ(ask("POST", name, body), answer);
    EXPECT_EQ(block.packet(50), written);
  }
}

}  // namespace
