#include "supervisor/camera_ping.h"

#include <arpa/inet.h>
#include <ev.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>

#include "base/file.h"
#include "base/paths.h"
#include "base/value_file.h"

namespace {

constexpr double kPeriod_s = 1.0;
// 90 looks 5 ms apart: so many packets at most, for so long.
constexpr int kLooks = 90;
constexpr double kPatience_s = 0.45;

constexpr int kTimeToLive = 255;
constexpr size_t kIpHeaderSize = 20;  // without options
constexpr size_t kIpSource = 12;
constexpr size_t kIcmpHeaderSize = 8;
constexpr uint8_t kFirstPayloadByte = '0';

ev_timer ping_timer;
ev_timer patience_timer;
ev_io ping_socket;
constinit unique_fd ping_fd;
uint16_t sequence = 0;
int looks_left = 0;

std::atomic<bool> reachable = false;

// The Internet checksum (RFC 1071): 0 over a packet that carries its own.
uint16_t checksum(std::span<const uint8_t> bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i) sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

void put_word(std::span<uint8_t> bytes, size_t at, uint16_t value) {
  bytes[at] = static_cast<uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<uint8_t>(value);
}

uint16_t word_at(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] * 256 + bytes[at + 1]);
}

// What an IPv4 packet of ICMP carries; empty when it is none.
std::span<const uint8_t> icmp_part(std::span<const uint8_t> packet) {
  if (packet.size() < kIpHeaderSize || packet[0] >> 4 != 4) return {};
  const size_t header_size = size_t{packet[0]} % 16 * 4;
  const bool good = header_size >= kIpHeaderSize && packet.size() >= header_size + kIcmpHeaderSize &&
                    packet[9] == IPPROTO_ICMP;
  return good ? packet.subspan(header_size) : std::span<const uint8_t>();
}

in_addr camera_address() {
  in_addr address{};
  inet_pton(AF_INET, addresses::kCamera, &address);
  return address;
}

bool is_from_camera(std::span<const uint8_t> packet) {
  const in_addr camera = camera_address();
  return memcmp(&packet[kIpSource], &camera, sizeof camera) == 0;
}

bool is_numbered(std::span<const uint8_t> icmp, uint16_t identifier, uint16_t number) {
  return word_at(icmp, 4) == identifier && word_at(icmp, 6) == number;
}

void report(bool is_there) {
  reachable = is_there;
  write_value_file(paths::kCameraSignal, is_there ? 0 : 1);
}

void end_ping(struct ev_loop* loop, bool is_there) {
  ev_timer_stop(loop, &patience_timer);
  ev_io_stop(loop, &ping_socket);
  ping_fd.reset();
  report(is_there);
}

uint16_t own_identifier() { return static_cast<uint16_t>(getpid()); }

// Looks at what has come; false when there is no answer among it.
bool look(struct ev_loop* loop) {
  uint8_t packet[256];
  for (; looks_left > 0; --looks_left) {
    const ssize_t size = recv(ping_fd.get(), packet, sizeof packet, 0);
    if (size < 0) return false;
    const std::span<const uint8_t> bytes(packet, static_cast<size_t>(size));
    const echo_answer answer = judge_echo_packet(bytes, own_identifier(), sequence);
    if (answer == echo_answer::none) continue;
    end_ping(loop, answer == echo_answer::reply);
    return true;
  }
  end_ping(loop, false);
  return true;
}

void on_packet(struct ev_loop* loop, ev_io*, int) { look(loop); }

// A late loop can see the reply and the end of its time at once.
void on_patience_end(struct ev_loop* loop, ev_timer*, int) {
  if (!look(loop)) end_ping(loop, false);
}

bool send_echo() {
  ping_fd.reset(socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_ICMP));
  if (!ping_fd) return false;
  setsockopt(ping_fd.get(), IPPROTO_IP, IP_TTL, &kTimeToLive, sizeof kTimeToLive);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = camera_address();
  const auto packet = echo_request(own_identifier(), ++sequence);
  return sendto(ping_fd.get(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == static_cast<ssize_t>(packet.size());
}

void on_timer(struct ev_loop* loop, ev_timer*, int) {
  if (ping_fd) end_ping(loop, false);
  if (!send_echo()) return end_ping(loop, false);
  looks_left = kLooks;
  ev_io_set(&ping_socket, ping_fd.get(), EV_READ);
  ev_io_start(loop, &ping_socket);
  ev_now_update(loop);  // or a long step of the loop before this one counts as waiting
  ev_timer_set(&patience_timer, kPatience_s, 0.);
  ev_timer_start(loop, &patience_timer);
}

}  // namespace

std::array<uint8_t, kEchoSize> echo_request(uint16_t identifier, uint16_t number) {
  std::array<uint8_t, kEchoSize> packet{};
  packet[0] = ICMP_ECHO;
  put_word(packet, 4, identifier);
  put_word(packet, 6, number);
  for (size_t i = kIcmpHeaderSize; i < kEchoSize; ++i) {
    packet[i] = static_cast<uint8_t>(kFirstPayloadByte + i - kIcmpHeaderSize);
  }
  put_word(packet, 2, checksum(packet));
  return packet;
}

echo_answer judge_echo_packet(std::span<const uint8_t> packet, uint16_t identifier, uint16_t number) {
  const std::span<const uint8_t> icmp = icmp_part(packet);
  if (icmp.empty() || checksum(icmp) != 0) return echo_answer::none;
  if (icmp[0] == ICMP_ECHOREPLY && is_numbered(icmp, identifier, number) && is_from_camera(packet)) {
    return echo_answer::reply;
  }
  if (icmp[0] != ICMP_DEST_UNREACH) return echo_answer::none;
  // It carries the start of the packet that could not be delivered.
  const std::span<const uint8_t> lost = icmp_part(icmp.subspan(kIcmpHeaderSize));
  const bool ours = !lost.empty() && lost[0] == ICMP_ECHO && is_numbered(lost, identifier, number);
  return ours ? echo_answer::unreachable : echo_answer::none;
}

void start_camera_ping(struct ev_loop* loop) {
  ev_init(&ping_socket, on_packet);
  ev_init(&patience_timer, on_patience_end);
  ev_timer_init(&ping_timer, on_timer, kPeriod_s, kPeriod_s);
  ev_timer_start(loop, &ping_timer);
}

bool is_camera_reachable() { return reachable; }
