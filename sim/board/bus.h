// The wires between the controller and the simulated power board: the mraa_* functions that the daemon calls,
// with one process-wide board behind them. Linked in libmraa's place by the tests, loaded in front of it in a
// running unit.
//
// What is sent is checked: SPI settings, chip select, the pauses, the lengths. A violation prints one line on
// standard error and aborts, unless a test has installed its own handler.
#pragma once

#include <mraa/types.h>

#include "base/mutex.h"
#include "sim/board/board_model.h"

inline constexpr int kChipSelectPin = 24;  // low: selected
inline constexpr int kBootPin = 13;        // both low while the board runs
inline constexpr int kResetPin = 15;
inline constexpr int kAnyPin = -1;

// Guards the board and the state of the bus. Never held while the wire is busy.
extern mutex board_mutex;

// The board behind the bus, the same one for the life of the process. Lets the time pass for it if real time
// is on.
board_model& the_board() REQUIRES(board_mutex);

// Calls f(board_model&) under the lock and returns its result; f calls no bus function. Any thread.
template <class F>
auto with_board(F f) EXCLUDES(board_mutex) {
  const mutex_lock lock(board_mutex);
  return f(the_board());
}

// A new board, every line and the bus closed, all of the settings below back at their start value. Not while
// another thread uses the bus.
void reset_board() EXCLUDES(board_mutex);

// Whether a transfer takes its time on the wire: 8 bits a byte at the set frequency, asleep. Starts on.
void set_wire_time(bool on) EXCLUDES(board_mutex);

// Whether the board's time follows the monotonic clock; else only board_advance moves it. Starts off.
void set_real_time(bool on) EXCLUDES(board_mutex);

// Called without the lock, on the thread that made the call, at most once a transaction. Null: print and
// abort.
using violation_handler = void (*)(const char* text);
void set_violation_handler(violation_handler handler) EXCLUDES(board_mutex);

enum class bus_call {
  none,
  gpio_init,
  gpio_dir,
  gpio_write,
  spi_init,
  spi_mode,
  spi_frequency,
  spi_lsbmode,
  spi_transfer,
};

// Makes the next such calls fail, one unless `times` says more; only one kind of call fails at a time
// (bus_call::none: none any more). The inits return null, the others `result`. The pin counts for the gpio
// calls only; `after` calls pass before.
void fail_next(bus_call call, mraa_result_t result = MRAA_ERROR_UNSPECIFIED, int pin = kAnyPin, int times = 1,
               int after = 0) EXCLUDES(board_mutex);
inline void fail_next_gpio_init(int pin) { fail_next(bus_call::gpio_init, MRAA_ERROR_UNSPECIFIED, pin); }

// Makes the transfer of the next `times` writes to register `reg` fail.
void fail_writes(uint8_t reg, int times) EXCLUDES(board_mutex);

// GPIO lines and SPI buses that are initialised and not closed: 4 on a running bus.
int open_bus_handles() EXCLUDES(board_mutex);
