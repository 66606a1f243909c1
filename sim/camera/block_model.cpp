#include "sim/camera/block_model.h"

#include <algorithm>
#include <utility>

#include "sim/camera/commands.h"

namespace sim_camera {
namespace {

constexpr uint8_t kTerminator = 0xFF;
constexpr uint8_t kFromCamera = 0x90;  // camera 1 to the controller
constexpr uint8_t kToCamera = 0x81;    // the controller to camera 1
constexpr uint8_t kBroadcast = 0x88;
constexpr unsigned kAcknowledge = 0x40;  // plus the socket number
constexpr unsigned kCompletion = 0x50;
constexpr unsigned kError = 0x60;
constexpr uint8_t kZoomReport = 0x69;
constexpr uint8_t kFocusReport = 0x16;
constexpr int64_t kReportMs = 33;  // one picture
constexpr unsigned kNoSocket = 0;

void reply(block_model& block, packet bytes) {
  bytes.push_back(kTerminator);
  line_reply(block.replies, block.faults, block.time_ms, std::move(bytes));
}

void reply_word(block_model& block, unsigned word, unsigned socket) {
  reply(block, {kFromCamera, static_cast<uint8_t>(word | socket)});
}

void reply_error(block_model& block, unsigned socket, command_error error) {
  reply(block, {kFromCamera, static_cast<uint8_t>(kError | socket), error});
}

// The number (1 or 2) of the first free socket; kNoSocket when all are busy.
unsigned free_socket(const block_model& block) {
  for (unsigned i = 0; i < block.sockets.size(); ++i) {
    if (!block.sockets[i].busy) return i + 1;
  }
  return kNoSocket;
}

void complete_arrived(block_model& block) {
  for (unsigned i = 0; i < block.sockets.size(); ++i) {
    command_socket& socket = block.sockets[i];
    bool arrived = true;
    for (const axis_id id : {kZoom, kDigital, kFocus}) {
      if ((socket.waits_for & 1U << id) != 0 && axis_busy(block.lens.axes[id])) arrived = false;
    }
    if (!socket.busy || !arrived) continue;
    socket = command_socket{};
    reply_word(block, kCompletion, i + 1);
  }
}

void send_report(block_model& block, uint8_t kind, int digital, int position) {
  packet bytes{kFromCamera,
               0x07,
               0x04,
               kind,
               static_cast<uint8_t>(digital >> 4),
               static_cast<uint8_t>(digital & 0x0F)};
  for (const uint8_t nibble : position_nibbles(position)) bytes.push_back(nibble);
  bytes.push_back(kTerminator);
  line_report(block.replies, block.time_ms, std::move(bytes));
}

// Whether a report is due now: on demand, at the report's pace while something moves, and once when it has
// come to rest.
bool report_due(continuous_report& report, bool moving, int64_t now_ms) {
  const bool started = moving && !report.moving;
  const bool ended = !moving && report.moving;
  report.moving = moving;
  if (started) report.next_ms = now_ms + kReportMs;
  const bool due = std::exchange(report.wanted, false) || ended || (moving && now_ms >= report.next_ms);
  if (due) report.next_ms = now_ms + kReportMs;
  return due && report.on;
}

void send_due_reports(block_model& block) {
  const auto& axes = block.lens.axes;
  if (report_due(block.focus_report, axes[kFocus].moved, block.time_ms)) {
    send_report(block, kFocusReport, 0, lens_position(block.lens, kFocus));
  }
  if (report_due(block.zoom_report, axes[kZoom].moved || axes[kDigital].moved, block.time_ms)) {
    send_report(block, kZoomReport, lens_digital_value(block.lens), lens_position(block.lens, kZoom));
  }
}

void handle_command(block_model& block, std::span<const uint8_t> body) {
  const parsed_command command = command_find(body);
  if (command.row == nullptr) return reply_error(block, kNoSocket, kSyntaxError);
  const unsigned socket = free_socket(block);
  if (socket == kNoSocket) return reply_error(block, kNoSocket, kBufferFull);
  if (!command_allowed(block, command)) return reply_error(block, socket, kNotExecutable);
  const command_outcome outcome = command_execute(block, command);
  if (outcome.error != kNoError) return reply_error(block, kNoSocket, outcome.error);
  reply_word(block, kAcknowledge, socket);
  if (outcome.waits_for == 0) {
    reply_word(block, kCompletion, socket);
  } else {
    block.sockets[socket - 1] = {true, outcome.waits_for};
  }
  complete_arrived(block);
}

void handle_inquiry(block_model& block, std::span<const uint8_t> body) {
  packet answer = inquiry_answer(block, body);
  if (answer.empty()) return reply_error(block, kNoSocket, kSyntaxError);
  if (!block.power) return reply_error(block, kNoSocket, kNotExecutable);
  answer.insert(answer.begin(), {kFromCamera, kCompletion});
  reply(block, std::move(answer));
}

void clear_interface(block_model& block) {
  block.sockets = {};
  reply_word(block, kCompletion, kNoSocket);
}

bool starts_with(std::span<const uint8_t> bytes, std::initializer_list<uint8_t> head) {
  return bytes.size() >= head.size() && std::equal(head.begin(), head.end(), bytes.begin());
}

// `bytes` is a packet without its terminator.
void handle_packet(block_model& block, std::span<const uint8_t> bytes) {
  const bool to_me = !bytes.empty() && (bytes[0] == kToCamera || bytes[0] == kBroadcast);
  const bool to_another = !to_me && !bytes.empty() && (bytes[0] & 0x80) != 0;
  if (to_another) return;
  if (!to_me) return reply_error(block, kNoSocket, kSyntaxError);
  const auto rest = bytes.subspan(1);
  if (rest.size() == 3 && starts_with(rest, {0x01, 0x00, 0x01})) return clear_interface(block);
  if (block.faults.full) return reply_error(block, kNoSocket, kBufferFull);
  if (starts_with(rest, {0x01, 0x04})) return handle_command(block, rest.subspan(2));
  if (starts_with(rest, {0x09})) return handle_inquiry(block, rest.subspan(1));
  reply_error(block, kNoSocket, kSyntaxError);
}

void end_of_packet(block_model& block) {
  packet bytes = std::exchange(block.receiving, {});
  const bool overlong = std::exchange(block.overlong, false);
  if (!block.faults.silent) {
    if (overlong) {
      reply_error(block, kNoSocket, kSyntaxError);
    } else {
      handle_packet(block, bytes);
    }
    send_due_reports(block);
  }
  bytes.push_back(kTerminator);
  block.log.push_back({block.time_ms, std::move(bytes)});
  if (block.log.size() > kMaxLog) block.log.pop_front();
}

void step(block_model& block) {
  lens_step(block.lens);
  ++block.time_ms;
  if (block.faults.silent) return;
  complete_arrived(block);
  send_due_reports(block);
}

}  // namespace

void block_receive(block_model& block, std::span<const uint8_t> bytes, int64_t now_ms) {
  block_advance(block, now_ms);
  for (const uint8_t byte : bytes) {
    if (byte == kTerminator) {
      end_of_packet(block);
    } else if (block.receiving.size() + 1 < kMaxPacket) {
      block.receiving.push_back(byte);
    } else {
      block.overlong = true;
    }
  }
}

bool block_active(const block_model& block) {
  const bool moving = std::any_of(block.lens.axes.begin(), block.lens.axes.end(),
                                  [](const axis& a) { return axis_busy(a) || a.moved; });
  const bool focusing = block.lens.auto_focus &&
                        lens_position(block.lens, kFocus) != lens_auto_focus_position(block.lens) &&
                        lens_position(block.lens, kFocus) < block.lens.near_limit;
  const bool waiting =
      std::any_of(block.sockets.begin(), block.sockets.end(), [](const command_socket& s) { return s.busy; });
  return block.power &&
         (moving || focusing || waiting || block.zoom_report.wanted || block.focus_report.wanted);
}

void block_advance(block_model& block, int64_t now_ms) {
  while (block.time_ms < now_ms && block_active(block)) step(block);
  block.time_ms = std::max(block.time_ms, now_ms);
}

std::vector<packet> block_take_output(block_model& block, int64_t now_ms) {
  block_advance(block, now_ms);
  return line_take(block.replies, block.faults, now_ms);
}

void block_place_zoom(block_model& block, int position, int64_t now_ms) {
  block_advance(block, now_ms);
  lens_place(block.lens, kZoom, position);
  block.zoom_report.wanted = true;
}

void block_new_link(block_model& block) {
  block.receiving.clear();
  block.overlong = false;
  line_clear(block.replies);
}

}  // namespace sim_camera
