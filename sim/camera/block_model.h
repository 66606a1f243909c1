// The VISCA side of the simulated zoom camera as a plain object: bytes in, bytes out, time passed in. It owns
// no descriptor, starts no thread and reads no clock; one thread uses it at a time. It answers as camera 1
// does: an acknowledge and a completion on one of two command sockets, errors, continuous zoom and focus
// reports (Sony VISCA command list).
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <span>
#include <string_view>
#include <vector>

#include "sim/camera/lens.h"
#include "sim/camera/reply_line.h"
#include "sim/camera/titles.h"

namespace sim_camera {

inline constexpr size_t kMaxPacket = 16;  // bytes, terminator included
inline constexpr size_t kMaxLog = 512;    // packets

// Settings that are one word each.
enum mode_id {
  kAutoFocusSensitivity,
  kAutoFocusMode,
  kIrCorrection,
  kWhiteBalance,
  kExposure,
  kFlip,
  kStabilizer,
  kHighSensitivity,
  kIcr,
  kAutoIcr,
  kModes
};

// Settings that are a number each.
enum level_id { kRedGain, kBlueGain, kGain, kIris, kShutter, kDefog, kLevels };

inline constexpr std::string_view kModeNames[kModes] = {"auto_focus_sensitivity",
                                                        "auto_focus_mode",
                                                        "ir_correction",
                                                        "white_balance",
                                                        "exposure",
                                                        "flip",
                                                        "stabilizer",
                                                        "high_sensitivity",
                                                        "icr",
                                                        "auto_icr"};

struct level_range {
  std::string_view name;
  int top;    // the lowest value is 0
  int start;  // after a reset
};

inline constexpr level_range kLevelRanges[kLevels] = {{"red_gain", 255, 128}, {"blue_gain", 255, 128},
                                                      {"gain", 15, 0},        {"iris", 17, 12},
                                                      {"shutter", 21, 7},     {"defog", 3, 0}};

struct camera_settings {
  std::array<std::string_view, kModes> modes{"normal", "normal", "standard", "auto", "auto",
                                             "off",    "off",    "off",      "off",  "off"};
  std::array<int, kLevels> levels{128, 128, 0, 12, 7, 0};
};

// A command socket is busy from the acknowledge of a direct move until the axes it waits for have arrived.
struct command_socket {
  bool busy = false;
  unsigned waits_for = 0;  // one bit an axis
};

struct continuous_report {
  bool on = false;
  bool wanted = false;  // one report is due whether or not the lens moves
  bool moving = false;
  int64_t next_ms = 0;
};

struct received_packet {
  int64_t time_ms = 0;
  packet bytes;
};

struct block_model {
  bool power = true;
  lens_state lens;
  title_memory titles;
  camera_settings settings;
  fault_switches faults;

  std::array<command_socket, 2> sockets;
  continuous_report zoom_report;
  continuous_report focus_report;
  std::deque<received_packet> log;  // newest last, at most kMaxLog

  packet receiving;       // the packet under way, without its terminator
  bool overlong = false;  // the packet under way has outgrown kMaxPacket
  reply_line replies;
  int64_t time_ms = 0;  // up to where the lens has moved
};

// Takes bytes from the controller, in any chunking. `now_ms` never runs backwards.
void block_receive(block_model& block, std::span<const uint8_t> bytes, int64_t now_ms);

// Lets time pass: moves the lens, queues reports and completions.
void block_advance(block_model& block, int64_t now_ms);

// Lets time pass and takes what the camera has sent by now, one element a TCP segment.
std::vector<packet> block_take_output(block_model& block, int64_t now_ms);

// Whether the lens moves or a socket waits, so that the owner must look again soon.
bool block_active(const block_model& block);

// Puts the zoom at a position at once and has it reported, as if somebody had turned the lens by hand.
void block_place_zoom(block_model& block, int position, int64_t now_ms);

// A new controller is connected: half a packet and answers that have not left are forgotten, the settings
// stay.
void block_new_link(block_model& block);

}  // namespace sim_camera
