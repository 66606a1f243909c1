#include "sim/camera/reply_line.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace sim_camera {
namespace {

constexpr int kHoldMs = 100;            // a packet without a partner goes alone after this time
constexpr size_t kMaxWaiting = 64;      // packets
constexpr size_t kMaxSegments = 1024;   // enough for 64 packets of 16 bytes, split
constexpr uint32_t kGarbleLength = 24;  // longer than a packet, to overrun the receiver too

uint32_t next_random(reply_line& line) {
  line.random ^= line.random << 13;
  line.random ^= line.random >> 17;
  line.random ^= line.random << 5;
  return line.random;
}

packet garbled(reply_line& line) {
  packet bytes(1 + next_random(line) % kGarbleLength);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(next_random(line) >> 8);
  return bytes;
}

void insert_by_time(std::deque<timed_packet>& queue, timed_packet item) {
  const auto after = std::upper_bound(queue.begin(), queue.end(), item.due_ms,
                                      [](int64_t due, const timed_packet& p) { return due < p.due_ms; });
  queue.insert(after, std::move(item));
}

void emit(reply_line& line, const fault_switches& f, int64_t now_ms, const packet& bytes) {
  if (line.segments.size() >= kMaxSegments) return;
  int64_t due = line.segments.empty() ? now_ms : std::max(now_ms, line.segments.back().due_ms);
  if (!f.split) {
    line.segments.push_back({due, bytes});
    return;
  }
  for (const uint8_t b : bytes) line.segments.push_back({due++, {b}});
}

void release_held(reply_line& line, const fault_switches& f, int64_t now_ms) {
  if (line.held.empty()) return;
  emit(line, f, now_ms, line.held);
  line.held.clear();
}

void leave(reply_line& line, const fault_switches& f, const timed_packet& p) {
  packet bytes = f.garble ? garbled(line) : p.bytes;
  if (!f.merge) {
    release_held(line, f, p.due_ms);
    emit(line, f, p.due_ms, bytes);
    return;
  }
  const bool first = line.held.empty();
  line.held.insert(line.held.end(), bytes.begin(), bytes.end());
  if (first) {
    line.held_until_ms = p.due_ms + kHoldMs;
  } else {
    release_held(line, f, p.due_ms);
  }
}

}  // namespace

void line_reply(reply_line& line, const fault_switches& f, int64_t now_ms, packet bytes) {
  if (line.waiting.size() >= kMaxWaiting) return;
  line.last_reply_ms = std::max(line.last_reply_ms, now_ms + f.ack_delay_ms);
  insert_by_time(line.waiting, {line.last_reply_ms, std::move(bytes)});
}

void line_report(reply_line& line, int64_t now_ms, packet bytes) {
  if (line.waiting.size() < kMaxWaiting) insert_by_time(line.waiting, {now_ms, std::move(bytes)});
}

std::vector<packet> line_take(reply_line& line, const fault_switches& f, int64_t now_ms) {
  while (!line.waiting.empty() && line.waiting.front().due_ms <= now_ms) {
    leave(line, f, line.waiting.front());
    line.waiting.pop_front();
  }
  if (now_ms >= line.held_until_ms) release_held(line, f, now_ms);
  std::vector<packet> taken;
  while (!line.segments.empty() && line.segments.front().due_ms <= now_ms) {
    taken.push_back(std::move(line.segments.front().bytes));
    line.segments.pop_front();
  }
  return taken;
}

int64_t line_next_ms(const reply_line& line) {
  int64_t next = -1;
  const auto consider = [&next](int64_t due) { next = next < 0 ? due : std::min(next, due); };
  if (!line.waiting.empty()) consider(line.waiting.front().due_ms);
  if (!line.held.empty()) consider(line.held_until_ms);
  if (!line.segments.empty()) consider(line.segments.front().due_ms);
  return next;
}

void line_clear(reply_line& line) {
  line.waiting.clear();
  line.held.clear();
  line.segments.clear();
  line.last_reply_ms = 0;
}

}  // namespace sim_camera
