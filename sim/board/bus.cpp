#include "sim/board/bus.h"

#include <mraa/gpio.h>
#include <mraa/spi.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sim/board/format.h"

// The two types behind libmraa's opaque handles.
struct _gpio {
  int pin = 0;
  bool open = false;
  bool output = false;
  int level = 1;
};

struct _spi {
  bool open = false;
  int mode = -1;  // -1: never set
  int hz = -1;
  int lsb_first = -1;
};

mutex board_mutex;

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // ns
constexpr int64_t kByteGap = 10'000;        // command to data, data to the rise of chip select
constexpr int64_t kSelectGap = 50'000;      // rise of chip select to the next transaction
constexpr int kFrequency = 100'000;         // Hz
constexpr int kMaxTransfer = 4096;

// Bits of a command byte on the wire: a write carries the board's bit 7, which the controller sends as bit 0.
constexpr uint8_t kWireWrite = 0x01;

enum class phase : uint8_t { deselected, selected, command, reading, writing };

struct bus_state {
  std::array<_gpio, 3> lines{{{.pin = kChipSelectPin}, {.pin = kBootPin}, {.pin = kResetPin}}};
  _spi spi;

  phase now = phase::deselected;
  bool spoiled = false;  // this transaction had its violation
  uint8_t command = 0;
  std::array<uint8_t, kMaxWriteData> written{};
  size_t moved = 0;             // data bytes of this transaction
  int64_t last_byte = 0;        // ns, when the last transfer ended
  int64_t last_deselected = 0;  // ns; 0: no transaction yet

  bool wire_time = true;
  bool real_time = false;
  int64_t board_time = 0;  // ns, until when the board's time has passed
  violation_handler handler = nullptr;
  bus_call failing = bus_call::none;
  mraa_result_t failing_result = MRAA_SUCCESS;
  int failing_pin = kAnyPin;
  int failing_times = 0;
  int failing_after = 0;
  uint8_t failing_register = 0;
  int failing_writes = 0;
};

// Neither is ever destroyed: the service thread may outlive main().
bus_state& the_bus() REQUIRES(board_mutex) {
  static bus_state& bus = *new bus_state;
  return bus;
}

board_model& board_storage() REQUIRES(board_mutex) {
  static board_model& board = *new board_model;
  return board;
}

int64_t now_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

void sleep_until(int64_t ns) {
  const timespec until{.tv_sec = ns / kSecond, .tv_nsec = ns % kSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) continue;
}

// Notes the violation, if it is the first of this call and of this transaction.
void complain(bus_state& bus, std::string& violation, const std::string& text) {
  if (bus.spoiled || !violation.empty()) return;
  bus.spoiled = bus.now != phase::deselected;
  violation = text;
}

// Without the lock, so that a handler may look at the board.
void report(const std::string& violation) EXCLUDES(board_mutex) {
  if (violation.empty()) return;
  violation_handler handler = nullptr;
  {
    const mutex_lock lock(board_mutex);
    handler = the_bus().handler;
  }
  if (handler != nullptr) return handler(violation.c_str());
  fprintf(stderr, "board: violation: %s\n", violation.c_str());
  abort();
}

// MRAA_SUCCESS, or the result that was asked for with fail_next.
mraa_result_t failure_of(bus_state& bus, bus_call call, int pin = kAnyPin) {
  if (bus.failing != call) return MRAA_SUCCESS;
  if (bus.failing_pin != kAnyPin && bus.failing_pin != pin) return MRAA_SUCCESS;
  if (bus.failing_after-- > 0) return MRAA_SUCCESS;
  if (--bus.failing_times <= 0) bus.failing = bus_call::none;
  return bus.failing_result;
}

mraa_result_t failure_of_transfer(bus_state& bus, const uint8_t* out) {
  const bool write = bus.failing_writes > 0 && bus.now == phase::selected && out != nullptr &&
                     mirror_bits(*out) == (bus.failing_register | 0x80);
  if (!write) return failure_of(bus, bus_call::spi_transfer);
  --bus.failing_writes;
  return MRAA_ERROR_UNSPECIFIED;
}

void check_settings(bus_state& bus, std::string& violation) {
  const _spi& spi = bus.spi;
  if (spi.mode != MRAA_SPI_MODE2 || spi.hz != kFrequency || spi.lsb_first != 0) {
    complain(bus, violation,
             format_text("SPI mode %d, %d Hz, lsb first %d; expected mode 2, 100000 Hz, 0", spi.mode, spi.hz,
                         spi.lsb_first));
  }
}

void select_board(bus_state& bus, int64_t now, std::string& violation) {
  bus.now = phase::selected;
  bus.spoiled = false;
  bus.moved = 0;
  for (const _gpio& line : bus.lines) {
    if (line.pin == kChipSelectPin || (line.open && line.output && line.level == 0)) continue;
    complain(bus, violation, format_text("selected while GPIO %d is not held low", line.pin));
  }
  if (bus.last_deselected != 0 && now - bus.last_deselected < kSelectGap) {
    complain(bus, violation,
             format_text("selected %d us after the last transaction",
                         static_cast<int>((now - bus.last_deselected) / 1000)));
  }
}

void check_length(bus_state& bus, const char* what, unsigned number, size_t expected,
                  std::string& violation) {
  if (bus.moved == expected) return;
  complain(bus, violation,
           format_text("%s 0x%02X with %zu bytes, expected %zu (\"strict off\" lets it pass)", what, number,
                       bus.moved, expected));
}

void end_write(bus_state& bus, board_model& board, std::string& violation) {
  const auto reg = static_cast<uint8_t>(mirror_bits(bus.command) & 0x7F);
  const int expected = register_length(reg);
  if (board.strict && expected >= 0 && bus.moved > 0) {
    check_length(bus, "write to register", reg, static_cast<size_t>(expected), violation);
  }
  if (bus.moved > kMaxWriteData) {
    complain(bus, violation, format_text("write with %zu data bytes", bus.moved));
  }
  if (!bus.spoiled) board_write(board, reg, std::span(bus.written).first(bus.moved));
}

void end_read(bus_state& bus, board_model& board, std::string& violation) {
  const size_t expected = frame_size(bus.command);
  if (expected == 0) return;
  if (board.strict) return check_length(bus, "read", bus.command, expected, violation);
  if (bus.moved != expected) ++board.counts.odd_lengths;
}

void deselect_board(bus_state& bus, int64_t now, std::string& violation) REQUIRES(board_mutex) {
  board_model& board = the_board();
  if (bus.now == phase::deselected) return;
  if (bus.now == phase::selected) {
    complain(bus, violation, "selected without a command byte");
  } else {
    if (now - bus.last_byte < kByteGap) {
      complain(
          bus, violation,
          format_text("chip select high %d ns after the last byte", static_cast<int>(now - bus.last_byte)));
    }
    // A command byte with the write bit is a write, unless bytes were clocked in after it.
    const bool write = (bus.command & kWireWrite) != 0 && bus.now != phase::reading;
    write ? end_write(bus, board, violation) : end_read(bus, board, violation);
  }
  bus.now = phase::deselected;
  bus.spoiled = false;
  bus.last_deselected = now;
}

void take_command(bus_state& bus, const uint8_t* out, size_t length, std::string& violation) {
  check_settings(bus, violation);
  if (out == nullptr || length != 1) complain(bus, violation, "a transaction starts with one command byte");
  bus.command = out == nullptr ? 0 : out[0];
  bus.now = phase::command;
}

void take_data(bus_state& bus, std::span<const uint8_t> out, std::string& violation) {
  if (bus.now == phase::reading || (bus.command & kWireWrite) == 0) {
    complain(bus, violation, format_text("bytes sent inside read 0x%02X", bus.command));
    return;
  }
  bus.now = phase::writing;
  for (const uint8_t byte : out) {
    if (bus.moved < kMaxWriteData) bus.written[bus.moved] = mirror_bits(byte);
    ++bus.moved;
  }
}

void give_data(bus_state& bus, std::span<uint8_t> in, std::string& violation) REQUIRES(board_mutex) {
  if (bus.now == phase::writing) {
    complain(bus, violation, "bytes clocked in inside a write");
    return;
  }
  if (bus.now == phase::reading) {  // one answer a transaction: whoever comes back for more gets zeros
    bus.moved += in.size();
    return;
  }
  bus.now = phase::reading;
  bus.moved = in.size();
  board_answer(the_board(), bus.command, in);
}

void exchange(bus_state& bus, int64_t now, const uint8_t* out, uint8_t* in, size_t length,
              std::string& violation) REQUIRES(board_mutex) {
  if (bus.now == phase::deselected) {
    complain(bus, violation, format_text("transfer of %zu bytes with chip select high", length));
  } else if (bus.now == phase::selected) {
    take_command(bus, out, length, violation);
  } else {
    if (bus.now == phase::command && now - bus.last_byte < kByteGap) {
      complain(bus, violation,
               format_text("data %d ns after the command byte", static_cast<int>(now - bus.last_byte)));
    }
    if (out != nullptr) {
      take_data(bus, {out, length}, violation);
    } else if (in != nullptr) {
      give_data(bus, {in, length}, violation);
    }
  }
}

// One transfer; `out` null sends zeros, `in` null throws away what comes. Returns when the last bit has left.
mraa_result_t transfer(mraa_spi_context spi, const uint8_t* out, uint8_t* in, int length) {
  const int64_t start = now_ns();
  std::string violation;
  mraa_result_t result = MRAA_SUCCESS;
  int64_t duration = 0;
  if (in != nullptr && length > 0) std::fill_n(in, length, uint8_t{0});
  {
    const mutex_lock lock(board_mutex);
    bus_state& bus = the_bus();
    if (spi == nullptr || !spi->open) {
      complain(bus, violation, "transfer on a closed SPI bus");
      result = MRAA_ERROR_INVALID_HANDLE;
    } else if (length < 0 || length > kMaxTransfer) {
      complain(bus, violation, format_text("transfer of %d bytes", length));
      result = MRAA_ERROR_INVALID_PARAMETER;
    } else if (result = failure_of_transfer(bus, out); result != MRAA_SUCCESS) {
      bus.now = phase::deselected;  // the board has heard nothing of it, and has nothing more to hear
    } else if (length > 0) {
      exchange(bus, start, out, in, static_cast<size_t>(length), violation);
      if (bus.wire_time) duration = int64_t{length} * 8 * kSecond / (spi->hz > 0 ? spi->hz : kFrequency);
    }
  }
  report(violation);
  if (length <= 0) return result;
  if (duration > 0) sleep_until(start + duration);
  const int64_t end = duration > 0 ? now_ns() : start;
  const mutex_lock lock(board_mutex);
  the_bus().last_byte = end;
  return result;
}

// Sets one word of the SPI settings; what is wrong with it shows at the next transaction.
mraa_result_t set_spi(mraa_spi_context spi, bus_call call, int _spi::*member, int value) {
  const mutex_lock lock(board_mutex);
  if (spi == nullptr || !spi->open) return MRAA_ERROR_INVALID_HANDLE;
  const mraa_result_t result = failure_of(the_bus(), call);
  if (result == MRAA_SUCCESS) spi->*member = value;
  return result;
}

void drive_line(bus_state& bus, _gpio& line, int level, int64_t now, std::string& violation)
    REQUIRES(board_mutex) {
  const bool falls = level == 0 && line.level != 0;
  const bool rises = level != 0 && line.level == 0;
  line.level = level;
  if (!line.output) {
    complain(bus, violation, format_text("GPIO %d written before it is an output", line.pin));
  } else if (line.pin != kChipSelectPin) {
    if (level != 0) complain(bus, violation, format_text("GPIO %d driven high", line.pin));
  } else if (falls) {
    select_board(bus, now, violation);
  } else if (rises) {
    deselect_board(bus, now, violation);
  }
}

}  // namespace

board_model& the_board() {
  bus_state& bus = the_bus();
  board_model& board = board_storage();
  if (bus.real_time) {
    const int64_t now = now_ns();
    board_advance(board, static_cast<double>(now - bus.board_time) / kSecond);
    bus.board_time = now;
  }
  return board;
}

void reset_board() {
  const mutex_lock lock(board_mutex);
  the_bus() = bus_state{};
  board_storage() = board_model{};
}

void set_wire_time(bool on) {
  const mutex_lock lock(board_mutex);
  the_bus().wire_time = on;
}

void set_real_time(bool on) {
  const mutex_lock lock(board_mutex);
  the_bus().real_time = on;
  the_bus().board_time = now_ns();
}

void set_violation_handler(violation_handler handler) {
  const mutex_lock lock(board_mutex);
  the_bus().handler = handler;
}

void fail_writes(uint8_t reg, int times) {
  const mutex_lock lock(board_mutex);
  the_bus().failing_register = reg;
  the_bus().failing_writes = times;
}

void fail_next(bus_call call, mraa_result_t result, int pin, int times, int after) {
  const mutex_lock lock(board_mutex);
  the_bus().failing = call;
  the_bus().failing_result = result;
  the_bus().failing_pin = pin;
  the_bus().failing_times = times;
  the_bus().failing_after = after;
}

int open_bus_handles() {
  const mutex_lock lock(board_mutex);
  const bus_state& bus = the_bus();
  const auto lines =
      std::count_if(bus.lines.begin(), bus.lines.end(), [](const _gpio& line) { return line.open; });
  return static_cast<int>(lines) + (bus.spi.open ? 1 : 0);
}

extern "C" {

mraa_gpio_context mraa_gpio_init(int pin) {
  const mutex_lock lock(board_mutex);
  bus_state& bus = the_bus();
  if (failure_of(bus, bus_call::gpio_init, pin) != MRAA_SUCCESS) return nullptr;
  auto* line =
      std::find_if(bus.lines.begin(), bus.lines.end(), [pin](const _gpio& one) { return one.pin == pin; });
  if (line == bus.lines.end()) return nullptr;
  *line = {.pin = pin, .open = true};
  if (pin == kChipSelectPin) bus.now = phase::deselected;
  return line;
}

mraa_result_t mraa_gpio_dir(mraa_gpio_context line, mraa_gpio_dir_t direction) {
  const mutex_lock lock(board_mutex);
  if (line == nullptr || !line->open) return MRAA_ERROR_INVALID_HANDLE;
  const mraa_result_t result = failure_of(the_bus(), bus_call::gpio_dir, line->pin);
  if (result == MRAA_SUCCESS) line->output = direction != MRAA_GPIO_IN;
  return result;
}

mraa_result_t mraa_gpio_write(mraa_gpio_context line, int value) {
  const int64_t now = now_ns();
  std::string violation;
  mraa_result_t result = MRAA_ERROR_INVALID_HANDLE;
  {
    const mutex_lock lock(board_mutex);
    bus_state& bus = the_bus();
    if (line == nullptr || !line->open) {
      complain(bus, violation, "write to a closed GPIO line");
    } else {
      result = failure_of(bus, bus_call::gpio_write, line->pin);
      if (result == MRAA_SUCCESS) drive_line(bus, *line, value, now, violation);
    }
  }
  report(violation);
  return result;
}

mraa_result_t mraa_gpio_close(mraa_gpio_context line) {
  const mutex_lock lock(board_mutex);
  if (line == nullptr || !line->open) return MRAA_ERROR_INVALID_HANDLE;
  line->open = false;
  return MRAA_SUCCESS;
}

mraa_spi_context mraa_spi_init(int bus_number) {
  const mutex_lock lock(board_mutex);
  bus_state& bus = the_bus();
  if (failure_of(bus, bus_call::spi_init) != MRAA_SUCCESS || bus_number != 0) return nullptr;
  bus.spi = {.open = true};
  return &bus.spi;
}

mraa_result_t mraa_spi_mode(mraa_spi_context spi, mraa_spi_mode_t mode) {
  return set_spi(spi, bus_call::spi_mode, &_spi::mode, static_cast<int>(mode));
}

mraa_result_t mraa_spi_frequency(mraa_spi_context spi, int hz) {
  return set_spi(spi, bus_call::spi_frequency, &_spi::hz, hz);
}

mraa_result_t mraa_spi_lsbmode(mraa_spi_context spi, mraa_boolean_t lsb) {
  return set_spi(spi, bus_call::spi_lsbmode, &_spi::lsb_first, lsb != 0 ? 1 : 0);
}

int mraa_spi_write(mraa_spi_context spi, uint8_t data) {
  return transfer(spi, &data, nullptr, 1) == MRAA_SUCCESS ? 0 : -1;
}

// As libmraa does, returns what was clocked in meanwhile (zeros), for the caller to free.
uint8_t* mraa_spi_write_buf(mraa_spi_context spi, uint8_t* data, int length) {
  if (transfer(spi, data, nullptr, length) != MRAA_SUCCESS) return nullptr;
  return static_cast<uint8_t*>(calloc(static_cast<size_t>(length) + 1, 1));
}

mraa_result_t mraa_spi_transfer_buf(mraa_spi_context spi, uint8_t* data, uint8_t* rxbuf, int length) {
  return transfer(spi, data, rxbuf, length);
}

mraa_result_t mraa_spi_stop(mraa_spi_context spi) {
  const mutex_lock lock(board_mutex);
  if (spi == nullptr || !spi->open) return MRAA_ERROR_INVALID_HANDLE;
  spi->open = false;
  return MRAA_SUCCESS;
}

}  // extern "C"
