// What the power board's sources share. Service thread, unless it says otherwise.
#pragma once

#include "power_board/power_board.h"

// Registers.
inline constexpr uint8_t kPowerRegister = 0;  // power enable mask
inline constexpr uint8_t kLedRegister = 1;    // LED enable mask, LED pwm
inline constexpr uint8_t kLedDataSize = 2;
inline constexpr uint8_t kSpeedRegister = 3;  // motor pwm, signed; duration, low and high byte
inline constexpr uint8_t kMotorRegister = 6;  // motor command

inline constexpr std::array<uint8_t, 1> kStopCommand{kMotorStop};  // for the motor register

// Bits of the power enable mask.
inline constexpr uint8_t kPowerCut = 0x01;     // asks the board to cut the power
inline constexpr uint8_t kPowerAlways = 0x02;  // set in every write
inline constexpr uint8_t kPowerCamera = 0x04;
inline constexpr uint8_t kPowerLaser = 0x08;

// Brings GPIO lines and SPI bus up; on failure says why on standard error, closes what was opened and returns
// -1.
int open_bus(orb_power_board* board);
void close_bus(orb_power_board* board);

// The two transactions on the wire. While writes are suspended a write only traces that it was dropped, and
// the refresh that would read the status is skipped. A write that fails is sent again, three times in all;
// false when it was not taken. A run whose speed was not taken goes out as a stop, and counts as not taken.
bool write_register(orb_power_board* board, const work_item& item);
void read_status(orb_power_board* board);

// The steps of a refresh after its status read, each on the readings as they now are.
void detect_events(orb_power_board* board, const power_board_readings& readings);
void average_battery(orb_power_board* board, const power_board_readings& readings);
void average_pressure(orb_power_board* board, const power_board_readings& readings);
void average_humidity(orb_power_board* board, const power_board_readings& readings);
void run_motors(orb_power_board* board, const power_board_readings& readings);
// Ends homing and move, for `reason`, and stops the drives whatever they do.
void stop_motors(orb_power_board* board, const char* reason);
void update_laser(orb_power_board* board, const power_board_readings& readings);

// Appends all of the items or none, and wakes the service; false when the queue refuses them. Any thread.
bool append_work(orb_power_board* board, std::span<const work_item> items) REQUIRES(board->queue_lock);
bool queue_work(orb_power_board* board, const work_item& item);
// The same with a run and, unless the speed register holds it already, its speed.
bool queue_jog(orb_power_board* board, const work_item& speed, const work_item& run);

// Says on standard error that the queue has refused a setter's write; nothing once the service is stopping.
// Any thread.
void report_refused_write(orb_power_board* board, int line);

// For the registers' memory: note a write that is about to be made without having been queued, and that any
// write has been performed.
void note_write(orb_power_board* board, const work_item& item);
void note_performed(orb_power_board* board, const work_item& item, bool sent);

// Queues a setting that was lost, unless writes are suspended. Any thread.
void queue_lost_leds(orb_power_board* board);
// Writes one that is lost when the queue has been closed; false when it is lost again.
bool write_lost_leds(orb_power_board* board);

// The write of a register item.
work_item write_item(uint8_t number, std::span<const uint8_t> data);

// Starts the update thread, once.
void start_update_thread(orb_power_board* board);
// Gives the bus to the update thread, or drops the request when an update runs.
void hand_over_to_update(orb_power_board* board, completion_function completed);
