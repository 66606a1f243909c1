// One VISCA camera and its command queue. VISCA is Sony's published camera control protocol ("VISCA command
// list").
//
// The visca_camera_* operations build one packet each, queue it and, when nothing is outstanding, send it at
// once; none waits for the camera. The camera thread retires the outstanding command on the camera's
// acknowledge, completion or error, or when 0.25 s have passed, and sends the next. A reply does not say
// which command it is for: within a burst a command's acknowledge sends the next, and its completion retires
// that one too, so that several can be on the wire. The operations may be called on any thread, and on a
// camera record whose link has gone: records are recycled, never freed.
#pragma once

#include <ev.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/mutex.h"

struct visca_connection;

inline constexpr size_t kViscaPacketSize = 16;
inline constexpr int32_t kViscaRingSize = 128;
inline constexpr size_t kViscaSocketCount = 8;
inline constexpr uint8_t kViscaTerminator = 0xFF;
inline constexpr uint32_t kViscaNotReported = 0xFFFFFFFF;  // of positions; -1 as a signed number

// Why a command was retired.
inline constexpr int kViscaAcknowledged = 0;
inline constexpr int kViscaCompleted = 1;
inline constexpr int kViscaRefused = 2;
inline constexpr int kViscaTimedOut = 3;

struct visca_command {
  std::array<uint8_t, kViscaPacketSize> packet{};
  size_t length = 0;  // 5 to 16
};

// One of the camera's command sockets. Slot 0 counts the commands that wait for their acknowledge: a command
// that is lost behind one that is acknowledged late is noticed, whichever of them was retired by what.
struct visca_socket_slot {
  std::atomic<uint32_t> state = 0;  // 0 free
  std::atomic<int64_t> sent_at_ns = 0;
};

struct visca_camera {
  visca_connection* connection = nullptr;  // owner, for the life of the record
  uint8_t address = 0;                     // 1 for the single camera
  uint64_t user = 0;

  // The ring, changed under `lock`; the indexes and `busy` may be read without it. Full when insert_index
  // equals last_completed_index, empty when it equals extract_index.
  std::atomic<int32_t> insert_index = 1;
  std::atomic<int32_t> extract_index = 1;
  std::atomic<int32_t> last_completed_index = 0;
  std::atomic<uint32_t> busy = 0;  // 1 while a command is outstanding; changed by compare-and-swap
  std::atomic<int64_t> outstanding_since_ns = 0;  // 0: nothing sent since the last command was retired
  mutex lock;
  std::array<visca_command, kViscaRingSize> commands GUARDED_BY(lock){};
  ev_timer command_timer{};  // camera thread

  std::array<visca_socket_slot, kViscaSocketCount> sockets{};
  std::atomic<uint32_t> lost_commands = 0;  // refused by the camera, or not acknowledged within 0.25 s
  std::atomic<int64_t> lost_ns = 0;         // when the last was; 0 none
  std::atomic<uint8_t> digital_zoom = 0;
  std::atomic<uint32_t> zoom_position = kViscaNotReported;
  std::atomic<uint32_t> focus_position = kViscaNotReported;
  uint32_t version_state = kViscaNotReported;  // 0 once the version has been asked; camera thread
  std::atomic<uint16_t> model_id = 0;          // 0 until the version reply
  std::atomic<uint16_t> rom_version = 0;

  // Camera thread; null when unset.
  void (*on_acknowledge)(visca_camera* camera, int socket) = nullptr;
  void (*on_completion)(visca_camera* camera, int socket) = nullptr;
  void (*on_error)(visca_camera* camera, int socket, int error_code) = nullptr;
};

// Queues `payload` between the address byte and the terminator. 0, or -1 when the link is down or 127
// commands wait.
int visca_camera_queue_command(visca_camera* camera, std::span<const uint8_t> payload);

// Retires the outstanding command with `status` and sends the next; nothing when none is outstanding. Camera
// thread.
void visca_camera_complete_command(visca_camera* camera, int status);

// Empties the ring and forgets what was reported, for a new link. Camera thread.
void visca_camera_reset(visca_camera* camera);

// The direct commands carry positions of 16 bits.
constexpr bool is_visca_position(int number) { return number >= 0 && number <= 0xFFFF; }

// Nothing waits and nothing is outstanding.
bool visca_camera_is_idle(const visca_camera* camera);

// The commands. Each returns 0, or -1 when it could not be queued. Speeds 0 to 7 and ranges are the caller's
// to check: an operation only masks what its packet cannot hold.
int visca_camera_power_on(visca_camera* camera);
int visca_camera_power_off(visca_camera* camera);
int visca_camera_version_inq(visca_camera* camera);

int visca_camera_zoom_stop(visca_camera* camera);
int visca_camera_zoom_tele(visca_camera* camera);
int visca_camera_zoom_wide(visca_camera* camera);
int visca_camera_zoom_tele_variable(visca_camera* camera, int speed);
int visca_camera_zoom_wide_variable(visca_camera* camera, int speed);
int visca_camera_zoom_direct(visca_camera* camera, int position);
int visca_camera_digital_zoom_on(visca_camera* camera);
int visca_camera_digital_zoom_off(visca_camera* camera);
int visca_camera_digital_zoom_combine_mode(visca_camera* camera);
int visca_camera_digital_zoom_separate_mode(visca_camera* camera);
int visca_camera_digital_zoom_stop(visca_camera* camera);
int visca_camera_digital_zoom_tele_variable(visca_camera* camera, int speed);
int visca_camera_digital_zoom_wide_variable(visca_camera* camera, int speed);
int visca_camera_digital_zoom_direct(visca_camera* camera, unsigned value);

int visca_camera_focus_stop(visca_camera* camera);
int visca_camera_focus_far(visca_camera* camera);
int visca_camera_focus_near(visca_camera* camera);
int visca_camera_focus_far_variable(visca_camera* camera, int speed);
int visca_camera_focus_near_variable(visca_camera* camera, int speed);
int visca_camera_focus_direct(visca_camera* camera, int position);
int visca_camera_auto_focus(visca_camera* camera);
int visca_camera_manual_focus(visca_camera* camera);
int visca_camera_auto_focus_trigger(visca_camera* camera);
int visca_camera_auto_focus_trigger_full_scan(visca_camera* camera);
int visca_camera_focus_near_limit(visca_camera* camera, int position);
int visca_camera_auto_focus_sensitivity_normal(visca_camera* camera);
int visca_camera_auto_focus_sensitivity_low(visca_camera* camera);
int visca_camera_auto_focus_mode_normal(visca_camera* camera);
int visca_camera_auto_focus_mode_interval(visca_camera* camera);
int visca_camera_auto_focus_mode_zoom_trigger(visca_camera* camera);
int visca_camera_ir_correction_standard(visca_camera* camera);
int visca_camera_ir_correction_ir_light(visca_camera* camera);
int visca_camera_zoom_focus_direct(visca_camera* camera, int zoom, int focus);
int visca_camera_initialize_lens(visca_camera* camera);
int visca_camera_initialize_camera(visca_camera* camera);

int visca_camera_white_balance_auto(visca_camera* camera);
int visca_camera_white_balance_indoor(visca_camera* camera);
int visca_camera_white_balance_outdoor(visca_camera* camera);
int visca_camera_white_balance_one_push(visca_camera* camera);
int visca_camera_white_balance_auto_tracing(visca_camera* camera);
int visca_camera_white_balance_manual(visca_camera* camera);
int visca_camera_white_balance_one_push_trigger(visca_camera* camera);
int visca_camera_white_balance_outdoor_auto(visca_camera* camera);
int visca_camera_white_balance_sodium_lamp_auto(visca_camera* camera);
int visca_camera_white_balance_sodium_lamp(visca_camera* camera);
int visca_camera_white_balance_sodium_lamp_outdoor_auto(visca_camera* camera);
int visca_camera_red_gain_reset(visca_camera* camera);
int visca_camera_red_gain_up(visca_camera* camera);
int visca_camera_red_gain_down(visca_camera* camera);
int visca_camera_red_gain_direct(visca_camera* camera, unsigned value);
int visca_camera_blue_gain_reset(visca_camera* camera);
int visca_camera_blue_gain_up(visca_camera* camera);
int visca_camera_blue_gain_down(visca_camera* camera);
int visca_camera_blue_gain_direct(visca_camera* camera, unsigned value);

int visca_camera_gain_reset(visca_camera* camera);
int visca_camera_gain_up(visca_camera* camera);
int visca_camera_gain_down(visca_camera* camera);
int visca_camera_gain_direct(visca_camera* camera, unsigned value);
int visca_camera_iris_reset(visca_camera* camera);
int visca_camera_iris_up(visca_camera* camera);
int visca_camera_iris_down(visca_camera* camera);
int visca_camera_iris_direct(visca_camera* camera, unsigned value);
int visca_camera_shutter_reset(visca_camera* camera);
int visca_camera_shutter_up(visca_camera* camera);
int visca_camera_shutter_down(visca_camera* camera);
int visca_camera_shutter_direct(visca_camera* camera, unsigned value);
int visca_camera_exposure_mode_auto(visca_camera* camera);
int visca_camera_exposure_mode_manual(visca_camera* camera);
int visca_camera_exposure_mode_shutter_priority(visca_camera* camera);
int visca_camera_exposure_mode_iris_priority(visca_camera* camera);

int visca_camera_continuous_zoom_position_on(visca_camera* camera);
int visca_camera_continuous_zoom_position_off(visca_camera* camera);
int visca_camera_continuous_focus_position_on(visca_camera* camera);
int visca_camera_continuous_focus_position_off(visca_camera* camera);

int visca_camera_picture_flip_on(visca_camera* camera);
int visca_camera_picture_flip_off(visca_camera* camera);
int visca_camera_stabilizer_on(visca_camera* camera);
int visca_camera_stabilizer_off(visca_camera* camera);
int visca_camera_high_sensitivity_on(visca_camera* camera);
int visca_camera_high_sensitivity_off(visca_camera* camera);
int visca_camera_icr_on(visca_camera* camera);  // infrared cut filter removed
int visca_camera_icr_off(visca_camera* camera);
int visca_camera_auto_icr_on(visca_camera* camera);
int visca_camera_auto_icr_off(visca_camera* camera);
int visca_camera_defog_off(visca_camera* camera);
int visca_camera_defog_level(visca_camera* camera, int level);  // 1 low, 2 mid, 3 high

// Titles: lines of 20 characters, sent as two halves of ten (set 2 and set 3); a half is filled up with
// blanks.
// Lines count from 0 to 10.
int visca_camera_title_set_1(visca_camera* camera, int line, int h_position, unsigned color, int blink);
int visca_camera_title_set_2(visca_camera* camera, int line, const char* text);
int visca_camera_title_set_3(visca_camera* camera, int line, const char* text);
int visca_camera_title_clear_all(visca_camera* camera);
int visca_camera_title_turn_all_on(visca_camera* camera);
int visca_camera_title_turn_all_off(visca_camera* camera);
int visca_camera_title_clear_line(visca_camera* camera, int line);
int visca_camera_title_turn_line_on(visca_camera* camera, int line);
int visca_camera_title_turn_line_off(visca_camera* camera, int line);
