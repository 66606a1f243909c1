// The power board: a microcontroller that switches the camera, laser and LED supplies, drives the motors and
// measures. One service thread alone talks to it over SPI; every operation queues its work and never waits
// for the bus. Thread: any thread.
#pragma once

#include <ev.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/mutex.h"
#include "power_board/frame.h"
#include "power_board/motor.h"
#include "power_board/work_queue.h"
#include "power_board/written_register.h"
#include "store/units.h"

struct orb_application;
struct _gpio;  // libmraa's contexts: of its users only the link needs more
struct _spi;

// Service states.
inline constexpr int kServiceStopped = 0;
inline constexpr int kServiceStarting = 1;
inline constexpr int kServiceRunning = 2;
inline constexpr int kServiceStopping = 3;
inline constexpr int kServiceFailed = 255;  // the bus could not be brought up: queued work is never performed

struct led_setting {
  uint8_t mask = kLedOff;
  uint8_t pwm = 0;
};

// Input volts at which the battery level changes, falling.
using battery_threshold_table = std::array<float, 4>;
extern const battery_threshold_table orb_power_board_indepro_thresholds;
extern const battery_threshold_table orb_power_board_dewalt_thresholds;

// Average of the last 64 samples of the input volts, and the level 1 to 4 (0: unknown) that follows it with
// hysteresis.
struct battery_average {
  std::array<float, 64> samples{};
  size_t index = 0;
  float sum = 0;
  int warm_up = 64;
  std::atomic<float> volts = 0;  // read by anyone; the rest is the service thread's
};

// Averages of 50 samples each, after a start delay in refreshes.
template <typename number>
struct period_average {
  int start_delay = 150;
  number sum = 0;
  int count = 0;
};

// Laser range finder. Flags and modes are set by any thread, readings by the service thread.
struct laser_state {
  std::atomic<int> mode = 0;   // 0 off, 1 manual, 2 picture, 3 auto
  std::atomic<int> speed = 2;  // 0 slow, 1 fast, 2 auto
  std::atomic<int> trigger = 0;
  std::atomic<int> clear = 0;
  std::atomic<double> distance = 0;    // metres, the last valid reading
  std::atomic<int> invalid_count = 1;  // refreshes since it; not 0 until there is one
  std::atomic<double> shown = -1;      // last put on the overlay in auto mode; -1 none
};

struct orb_power_board {
  orb_application* application = nullptr;  // its loop carries the refresh timer
  std::array<char, 64> program_name{};     // starts the error messages, also when the application has gone
  int advanced = 0;                        // set once at init
  pthread_t thread{};
  bool thread_started = false;  // main thread
  std::atomic<int> service_state = kServiceStopped;

  mutex queue_lock;  // held only to append or take an item, and for the flags below
  condition queue_ready;
  work_queue queue GUARDED_BY(queue_lock);
  bool stopping GUARDED_BY(queue_lock) = false;
  bool shutdown_queued GUARDED_BY(queue_lock) = false;
  bool refresh_waiting GUARDED_BY(queue_lock) = false;  // one refresh in the queue at most
  written_register speed GUARDED_BY(queue_lock);        // no run while its last write has failed
  // Two bytes. A setting that is lost is queued again with every tick of the refresh timer until it is sent.
  written_register leds GUARDED_BY(queue_lock);
  // The timer has nothing to queue: a refresh waits or runs, or all are suspended.
  std::atomic<bool> refresh_queued = false;
  std::atomic<bool> refresh_suspended = false;
  ev_timer refresh_timer{};  // main loop

  std::atomic<uint8_t> read_command = 0;
  uint8_t read_length = 0;  // set once at init
  std::atomic<uint8_t> zero_buffer = 0;
  std::atomic<int> write_suspended = 0;  // while set, every bus transaction is dropped

  // Of the service thread alone.
  std::array<uint8_t, kFrameSize> raw_frame{};
  int all_zero = 0;
  _gpio* chip_select = nullptr;
  _gpio* boot_line = nullptr;
  _gpio* reset_line = nullptr;
  _spi* spi = nullptr;
  bool stop_owed = false;         // a motor stop could not be written: it is tried again with each refresh
  bool motors_disturbed = false;  // a motor register was written from the queue since the last refresh
  int64_t motors_ns = 0;          // when the machines last looked at the drives
  int64_t run_ns = 0;             // when they last told one to run
  int shutdown_requested = 0;     // latched: the board asks once per run
  void (*on_shutdown_request)() = nullptr;  // must not wait; set after init, before the service is started
  battery_average battery;
  period_average<uint32_t> pressure;
  period_average<float> humidity;

  // Written by the service thread, read by anyone.
  std::atomic<int> overcurrent = 0;            // 1 while a drive is
  std::atomic<int> tilt_overcurrent_hold = 0;  // refreshes
  std::atomic<int> drive_overcurrent_hold = 0;
  std::atomic<int> high_pressure_hold = 0;  // averaging periods
  std::atomic<int> high_humidity_hold = 0;
  std::atomic<int> battery_level = 0;  // 0 unknown, 1 to 4

  mutex motor_lock;
  motor_state motors GUARDED_BY(motor_lock);
  std::atomic<int> height_preset = kPresetHome;  // the last one asked for
  std::atomic<int> height_extension = 0;
  laser_state laser;

  const battery_threshold_table* battery_thresholds = nullptr;  // set once at init

  std::atomic<bool> has_frame = false;  // the board has been heard
  mutex readings_lock;
  power_board_readings readings GUARDED_BY(readings_lock);

  mutex update_lock;
  condition update_ready;
  bool update_requested GUARDED_BY(update_lock) = false;
  completion_function update_completed GUARDED_BY(update_lock) = nullptr;
  bool update_thread_started = false;  // service thread
};

// The one power board; null until start-up has made it. Never cleared.
extern std::atomic<orb_power_board*> power_board_instance;
inline orb_power_board* power_board_now() { return power_board_instance.load(std::memory_order_acquire); }

// Clears the record and sets its defaults for the advanced or the basic model; asks Redis for the battery
// type. Returns 0. Once: the update thread of a service that ran lives on in the record. Start-up.
int orb_power_board_init(orb_power_board* board, orb_application* application, int advanced);

// Starts the service thread and the refresh timer (0.1 s). Returns 0, or -1 with a message when it runs
// already or cannot be started. Start-up.
int orb_power_board_start_service(orb_power_board* board);

// Lets the service end after the work that waits, with a motor stop as its last act, and joins it; later work
// is refused. Main loop, when it has ended.
void orb_power_board_stop_service(orb_power_board* board);
void orb_power_board_destroy(orb_power_board* board);

// Queues a write of `length` bytes (0 to 16) to register `number` (0 to 127). Returns 0, -2 for a bad
// register or length, -1 when 256 items wait already or the service has been stopped.
int orb_power_board_issue_write(orb_power_board* board, uint8_t number, const uint8_t* data, uint32_t length);

// A copy of the last good readings.
power_board_readings current_readings(orb_power_board* board);
void orb_power_board_load_registers(orb_power_board* board, power_board_readings* destination);

// The command byte that starts a status read.
uint8_t orb_power_board_get_read_command(const orb_power_board* board);
void orb_power_board_set_read_command(orb_power_board* board, uint8_t command);

// While set, each received frame is replaced by zeros before it is decoded (a diagnostic).
void orb_power_board_set_zero_buffer(orb_power_board* board, int flag);

// Asks the board to cut the power; once at a time.
void orb_power_board_signal_shutdown(orb_power_board* board);

// 1 when the board reports the extended frame, else 0.
int orb_power_board_get_board_type(orb_power_board* board);

// Refresh control: while suspended, each trigger yields one refresh (two within a tick of 0.1 s are one). No
// homing or move outlives a suspension, nor one that was asked for during it: unwatched for so long, it must
// not drive at the resume.
void orb_power_board_suspend_refresh(orb_power_board* board);
void orb_power_board_resume_refresh(orb_power_board* board);
void orb_power_board_trigger_refresh(orb_power_board* board);

// Supplies and lights. Each queues one register write that keeps the other bits as last read; 0, or -1 with a
// message when the queue refuses it.
int orb_power_board_enable_camera_power(orb_power_board* board);
int orb_power_board_disable_camera_power(orb_power_board* board);
int orb_power_board_enable_laser_power(orb_power_board* board);
int orb_power_board_disable_laser_power(orb_power_board* board);
// The same for both bytes of the LEDs; also what is refused stands, and is tried again.
int orb_power_board_enable_led_power(orb_power_board* board, uint8_t mask, uint8_t pwm);
// The LEDs as they were last given, by whomever; nothing before that.
std::optional<led_setting> given_leds(orb_power_board* board);
// The same; before that as the board reports them.
led_setting current_leds(orb_power_board* board);

// Laser modes: 0 off, 1 manual, 2 picture, 3 auto; each switches the laser's supply. Other values change
// nothing. Returns 0.
int orb_power_board_set_laser_mode(orb_power_board* board, int mode);
// 0 slow, 1 fast, 2 auto; stored only.
void orb_power_board_set_laser_speed(orb_power_board* board, int speed);
// Asks for the next valid reading to be shown. -1 unless the mode is manual or picture.
int orb_power_board_trigger_laser_reading(orb_power_board* board);
// Takes the shown reading away at the next refresh; tolerates a null board. Returns 0.
int orb_power_board_clear_laser_reading(orb_power_board* board);
// The last reading in the operator's units; empty while the laser reads nothing or the board is null.
distance_text load_laser_distance(const orb_power_board* board);

// "25%" to "100%", "?" while the level is not known.
void orb_power_board_load_battery_level(const orb_power_board* board, char* text, size_t size);
// The average input voltage, "19.7 V"; "" while the level is not known.
void orb_power_board_load_battery_voltage(const orb_power_board* board, char* text, size_t size);

// What an update of this board on the stick is: there is none. 0, and an empty path (which may be null) and
// version. The board may be null.
int orb_power_board_get_update_available(const orb_power_board* board, char* path, size_t size);
void orb_power_board_load_update_version(const orb_power_board* board, char* version, size_t size);
// How far a running one has come (base/update_progress.h): it ends as it begins.
void orb_power_board_load_update_status(const orb_power_board* board, char* step, size_t step_size,
                                        char* description_1, size_t description_1_size, char* description_2,
                                        size_t description_2_size);

// Hands the bus to the update thread: until that thread has ended the update, refreshes are skipped and
// writes dropped. Then, or when another update has the bus, `completed` (which may be null) is called.
// Returns not 0, or 0 when the queue refuses it.
int orb_power_board_trigger_firmware_update(orb_power_board* board, completion_function completed);
