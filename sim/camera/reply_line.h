// The way out of the simulated camera: packets wait for their time, then leave whole, or spoilt as a fault
// demands.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace sim_camera {

using packet = std::vector<uint8_t>;

// What the bench can spoil.
struct fault_switches {
  bool silent = false;  // nothing is executed or answered, no reports
  bool split = false;   // one byte a segment, one segment a millisecond
  bool merge = false;   // two packets a segment
  bool garble = false;  // random bytes in place of each packet
  bool full = false;    // every command is refused with "command buffer full"
  int ack_delay_ms = 0;
};

struct timed_packet {
  int64_t due_ms = 0;
  packet bytes;
};

struct reply_line {
  std::deque<timed_packet> waiting;   // by due time
  std::deque<timed_packet> segments;  // what has left the block, a piece a segment, by due time
  packet held;                        // a packet that waits for a second one (merge)
  int64_t held_until_ms = 0;
  int64_t last_reply_ms = 0;  // due time of the newest reply: a later one never overtakes it
  uint32_t random = 0x2545F491;
};

// Queues the answer to a command; it leaves after the acknowledge delay.
void line_reply(reply_line& line, const fault_switches& f, int64_t now_ms, packet bytes);

// Queues a report that leaves at once. It is lost if the way out is congested.
void line_report(reply_line& line, int64_t now_ms, packet bytes);

// Takes what is to be sent by now, one element a segment.
std::vector<packet> line_take(reply_line& line, const fault_switches& f, int64_t now_ms);

// When line_take has something to do next; -1 when nothing waits.
int64_t line_next_ms(const reply_line& line);

// Forgets everything that has not left, as when the link is lost.
void line_clear(reply_line& line);

}  // namespace sim_camera
