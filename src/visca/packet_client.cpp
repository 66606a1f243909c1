#include "visca/packet_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

// What stands between header and terminator, and how the camera answers it.
struct visca_operation {
  std::string_view payload;
  int reply_length;  // asked for
  int replies = 1;   // 2: an acknowledge, then the completion
  bool is_broadcast = false;
};

namespace {

using namespace std::string_view_literals;

constexpr time_t kReplyWait_s = 8;
constexpr size_t kReplySize = 50;

constexpr unsigned char kReplyType = 0xF0;  // of a reply's second byte; the rest is a socket's number
constexpr unsigned char kCompletion = 0x50;
constexpr size_t kReplyHeader = 2;

constexpr unsigned char kPowerOn = 2;
constexpr unsigned char kAutoFocus = 2;
constexpr int kShutterSpeeds = 21;

constexpr int kAcknowledgeLength = 3;

constexpr visca_operation kAutoExposure{"\x01\x04\x39\x00"sv, kAcknowledgeLength, 2};
constexpr visca_operation kManualExposure{"\x01\x04\x39\x03"sv, kAcknowledgeLength, 2};
constexpr visca_operation kReset{"\x01\x04\x19\x03"sv, kAcknowledgeLength, 2};
constexpr visca_operation kInterfaceClear{"\x01\x00\x01"sv, kAcknowledgeLength, 1, true};
constexpr visca_operation kPowerInquiry{"\x09\x04\x00"sv, 4};
constexpr visca_operation kFocusModeInquiry{"\x09\x04\x38"sv, 7};
constexpr visca_operation kVersionInquiry{"\x09\x00\x02"sv, 10};
constexpr visca_operation kDigitalZoomInquiry{"\x09\x04\x46"sv, 7};
constexpr visca_operation kFocusInquiry{"\x09\x04\x48"sv, 7};
constexpr visca_operation kIrisInquiry{"\x09\x04\x4B"sv, 7};

bool connect_socket(int fd, unsigned short port, const char* address) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  return inet_pton(AF_INET, address, &to.sin_addr) == 1 &&
         connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0;
}

// 1 when there is something to read, 0 when nothing came in time, -1 without a socket to wait for.
int wait_for_reply(int fd) {
  if (fd < 0 || fd >= FD_SETSIZE) return -1;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval wait{kReplyWait_s, 0};
  return select(fd + 1, &readable, nullptr, nullptr, &wait);
}

void log_reply(int length, const std::vector<unsigned char>& reply) {
  printf("requested %d read %zu\n", length, reply.size());
  for (const unsigned char byte : reply) printf("output: %x\n", static_cast<unsigned>(byte));
}

}  // namespace

Camera::Camera(unsigned short port, const char* address) { initSocket(port, address); }

Camera::~Camera() {
  if (closeSocket() == 0) return;
  fputs("Failed to close socket.\n", stderr);
  exit(EXIT_FAILURE);
}

int Camera::initSocket(unsigned short port, const char* address) {
  if (fd >= 0) closeSocket();
  fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    fputs("Socket error.\n", stderr);
    return 1;
  }
  if (connect_socket(fd, port, address)) return 0;
  fputs("Connection error.\n", stderr);
  return 1;
}

// The number is forgotten: another descriptor may soon have it.
int Camera::closeSocket() { return close(std::exchange(fd, -1)); }

std::vector<unsigned char> Camera::readVISCAReply(int length) {
  const size_t wanted = static_cast<size_t>(std::max(length, 0));
  std::vector<unsigned char> reply(std::max(wanted, kReplySize));
  const int ready = wait_for_reply(fd);
  if (ready == 0) {
    printf("Read timeout.\n.");
  } else {
    const ssize_t count = ready > 0 ? read(fd, reply.data(), wanted) : 0;
    reply.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  }
  if (!reply.empty() && reply.back() != terminator) {
    printf("FAULT : buffer was cleared! \n");
    reply.clear();
  }
  log_reply(length, reply);
  return reply;
}

std::vector<unsigned char> Camera::sendVISCAPacket(std::vector<unsigned char>& packet, int length,
                                                   bool waitCompletion) {
  if (!packet.empty()) {
    packet.push_back(terminator);
    write_packet(packet);
  }
  std::vector<unsigned char> reply = readVISCAReply(length);
  if (waitCompletion) reply = readVISCAReply(length);
  return reply;
}

// As write() does, but without the signal of a connection that has gone.
void Camera::write_packet(const std::vector<unsigned char>& packet) const {
  if (send(fd, packet.data(), packet.size(), MSG_NOSIGNAL) >= 0) return;
  fprintf(stderr, "Error writing command: %d\n", errno);
  exit(EXIT_FAILURE);
}

std::vector<unsigned char> Camera::perform(const visca_operation& wanted) {
  std::vector<unsigned char> packet(1 + wanted.payload.size());
  packet[0] = wanted.is_broadcast ? broadcast_header : command_header;
  std::ranges::copy(wanted.payload, packet.begin() + 1);
  return sendVISCAPacket(packet, wanted.reply_length, wanted.replies == 2);
}

// An error's second data byte would else be taken for a value.
std::vector<unsigned char> Camera::inquire(const visca_operation& wanted) {
  const std::vector<unsigned char> reply = perform(wanted);
  if (reply.size() <= kReplyHeader || (reply[1] & kReplyType) != kCompletion) return {};
  return {reply.begin() + kReplyHeader, reply.end() - 1};
}

void Camera::CAM_AEAuto() { perform(kAutoExposure); }

void Camera::CAM_AEManual() { perform(kManualExposure); }

void Camera::CAM_cameraReset() { perform(kReset); }

void Camera::CAM_shutterSpeed(int speed) {
  const int position = speed >= 1 && speed <= kShutterSpeeds ? kShutterSpeeds + 1 - speed : 0;
  const char payload[] = {
      0x01, 0x04, 0x4B, 0x00, 0x00, static_cast<char>(position >> 4), static_cast<char>(position & 0x0F)};
  perform({{payload, sizeof payload}, kAcknowledgeLength, 2});
}

void Camera::IF_clear() {
  printf("IF CLEAR \n");
  perform(kInterfaceClear);
}

bool Camera::CAM_powerInq() {
  const std::vector<unsigned char> data = inquire(kPowerInquiry);
  return !data.empty() && data[0] == kPowerOn;
}

bool Camera::CAM_focusModeInq() {
  const std::vector<unsigned char> data = inquire(kFocusModeInquiry);
  return !data.empty() && data[0] == kAutoFocus;
}

void Camera::CAM_versionInq() { perform(kVersionInquiry); }

void Camera::CAM_DZoomPosInq() { perform(kDigitalZoomInquiry); }

uint16_t Camera::FocusDistance() {
  const std::vector<unsigned char> data = inquire(kFocusInquiry);
  if (data.size() < 4) return 0;
  return static_cast<uint16_t>(data[0] << 12 | data[1] << 8 | data[2] << 4 | data[3]);
}

uint8_t Camera::CAM_irisPosInq() {
  const std::vector<unsigned char> data = inquire(kIrisInquiry);
  return data.empty() ? 0 : data[0];
}
