// The SPI link: bring-up, the register write and the status read.

#include "power_board/link.h"

#include <mraa/gpio.h>
#include <mraa/spi.h>

#include <cstdio>

#include "base/application.h"
#include "base/clock.h"
#include "base/trace.h"
#include "power_board/frame.h"
#include "power_board/work.h"

namespace {

constexpr int kChipSelectPin = 24;
constexpr int kBootPin = 13;  // of the board's microcontroller
constexpr int kResetPin = 15;
constexpr int kSpiBus = 0;
constexpr int kSpiFrequency_hz = 100'000;
constexpr int kSelected = 0;
constexpr int kDeselected = 1;

constexpr int64_t kByteGap_ns = 10'000;      // after the command and after the data
constexpr int64_t kDeselectGap_ns = 50'000;  // after chip select has risen

constexpr uint8_t kWriteFlag = 0x80;
constexpr int kAttempts = 3;

// In the order of libmraa's result codes.
constexpr std::array kResultTexts{
    "Success",
    "Feature not implemented",
    "Feature not supported by hardware",
    "Invalid verbosity level",
    "Invalid parameter",
    "Invalid handle",
    "No resources",
    "Invalid resource",
    "Invalid queue type",
    "No data available",
    "Invalid platform",
    "Platform not initialised",
    "UART OW: Bus short",
    "UART OW: No devices",
    "UART OW: Bus error",
};

const char* result_text(mraa_result_t result) {
  const auto code = static_cast<size_t>(result);
  return code < kResultTexts.size() ? kResultTexts[code] : "Unspecified error";
}

const char* program_name(const orb_power_board* board) { return board->program_name.data(); }

// False after saying which call failed.
bool check(const orb_power_board* board, const char* call, int line, mraa_result_t result) {
  if (result == MRAA_SUCCESS) return true;
  fprintf(stderr, "%s: %s() failed at line %d: %s\n", program_name(board), call, line, result_text(result));
  return false;
}

// False after saying so.
bool is_open(const orb_power_board* board, const char* call, int line, const void* handle) {
  if (handle == nullptr) fprintf(stderr, "%s: %s() failed at line %d\n", program_name(board), call, line);
  return handle != nullptr;
}

void close_lines(orb_power_board* board) {
  for (mraa_gpio_context* line : {&board->chip_select, &board->boot_line, &board->reset_line}) {
    if (*line != nullptr) mraa_gpio_close(*line);
    *line = nullptr;
  }
}

void close_spi(orb_power_board* board) {
  if (board->spi != nullptr) mraa_spi_stop(board->spi);
  board->spi = nullptr;
}

bool open_line(const orb_power_board* board, int pin, int level, mraa_gpio_context* line) {
  *line = mraa_gpio_init(pin);
  return is_open(board, "mraa_gpio_init", __LINE__, *line) &&
         check(board, "mraa_gpio_dir", __LINE__, mraa_gpio_dir(*line, MRAA_GPIO_OUT)) &&
         check(board, "mraa_gpio_write", __LINE__, mraa_gpio_write(*line, level));
}

bool open_spi(orb_power_board* board) {
  board->spi = mraa_spi_init(kSpiBus);
  // Mode 2: the clock idles high, data is sampled on the first edge.
  return is_open(board, "mraa_spi_init", __LINE__, board->spi) &&
         check(board, "mraa_spi_mode", __LINE__, mraa_spi_mode(board->spi, MRAA_SPI_MODE2)) &&
         check(board, "mraa_spi_frequency", __LINE__, mraa_spi_frequency(board->spi, kSpiFrequency_hz)) &&
         check(board, "mraa_spi_lsbmode", __LINE__, mraa_spi_lsbmode(board->spi, 0));
}

// Selects the board and sends the command byte as it stands. A board that is not selected hears nothing.
mraa_result_t begin_transaction(orb_power_board* board, uint8_t command) {
  mraa_result_t result = mraa_gpio_write(board->chip_select, kSelected);
  if (result == MRAA_SUCCESS) result = mraa_spi_transfer_buf(board->spi, &command, nullptr, 1);
  sleep_ns(kByteGap_ns);
  return result;
}

// The transaction's result: its own, or that of the rise of chip select, with which the board takes it.
mraa_result_t end_transaction(orb_power_board* board, mraa_result_t result) {
  sleep_ns(kByteGap_ns);
  mraa_result_t rise = MRAA_SUCCESS;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    rise = mraa_gpio_write(board->chip_select, kDeselected);
    if (rise == MRAA_SUCCESS) break;
  }
  sleep_ns(kDeselectGap_ns);
  return result == MRAA_SUCCESS ? rise : result;
}

frame_check keep_frame(orb_power_board* board) {
  const mutex_lock lock(board->readings_lock);
  return take_frame({board->raw_frame.data(), board->read_length}, board->advanced != 0, &board->readings);
}

written_register speed_now(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  return board->speed;
}

// After a good frame. Not while a run waits that was queued behind a write that failed: it counts on that
// one's speed.
void trust_speed_reading(orb_power_board* board, unsigned performed_before) {
  const mutex_lock lock(board->queue_lock);
  if (board->speed.has_failed() && board->queue.has_motor_work()) return;
  board->speed.trust(performed_before);
}

void print_write(const work_item& item) {
  char text[2 * kWriteDataSize + 1] = "";
  for (size_t i = 0; i < item.length; ++i) snprintf(text + 2 * i, 3, "%02x", item.data[i]);
  printf("WRITE: (%d) %s\n", item.number, text);
}

mraa_result_t send_register(orb_power_board* board, const work_item& item, bool print) {
  mraa_result_t result = begin_transaction(board, reverse_bits(item.number | kWriteFlag));
  if (print) print_write(item);
  std::array<uint8_t, kWriteDataSize> wire{};
  for (size_t i = 0; i < item.length; ++i) wire[i] = reverse_bits(item.data[i]);
  if (result == MRAA_SUCCESS && item.length != 0) {
    result = mraa_spi_transfer_buf(board->spi, wire.data(), nullptr, item.length);
  }
  return end_transaction(board, result);
}

bool send_write(orb_power_board* board, const work_item& item) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const mraa_result_t result = send_register(board, item, attempt == 0);
    if (result == MRAA_SUCCESS) return true;
    trace(kTraceRefresh, "write failed %d", result);
  }
  return false;
}

bool try_write(orb_power_board* board, const work_item& item) {
  if (board->write_suspended != 0) {
    trace(kTraceRefresh, "write dropped %d", item.number);
    trace_data(kTraceRefresh, "write", item.data.data(), item.length);
    return false;
  }
  if (is_motor_run(item) && speed_now(board).has_failed()) {
    trace(kTraceRefresh, "run without its speed: stop");
    write_register(board, stop_item());
    return false;
  }
  trace(kTraceRefresh, "write to register %d", item.number);
  trace_data(kTraceRefresh, "write data", item.data.data(), item.length);
  const bool sent = send_write(board, item);
  // A stop is owed until it, or a newer run, has been taken.
  if (is_motor_stop(item) || (is_motor_run(item) && sent)) board->stop_owed = !sent;
  return sent;
}

}  // namespace

int open_bus(orb_power_board* board) {
  if (open_line(board, kChipSelectPin, kDeselected, &board->chip_select) &&
      open_line(board, kBootPin, 0, &board->boot_line) &&
      open_line(board, kResetPin, 0, &board->reset_line) && open_spi(board)) {
    return 0;
  }
  // Without a last word to chip select, which may not be an output yet.
  close_spi(board);
  close_lines(board);
  return -1;
}

void close_bus(orb_power_board* board) {
  close_spi(board);
  mraa_gpio_write(board->chip_select, kDeselected);
  close_lines(board);
}

bool write_register(orb_power_board* board, const work_item& item) {
  const bool sent = try_write(board, item);
  note_performed(board, item, sent);
  return sent;
}

void read_status(orb_power_board* board) {
  const uint8_t command = board->read_command;
  const uint8_t zero_buffer = board->zero_buffer;
  trace(kTraceRefresh, "refresh %02X %d %d %d", command, board->read_length, zero_buffer, board->all_zero);
  const unsigned performed = speed_now(board).performed();
  // Unlike a write's, this command byte goes out unreversed: the board expects it exactly as it is stored.
  mraa_result_t transfer = begin_transaction(board, command);
  if (transfer == MRAA_SUCCESS) {
    transfer = mraa_spi_transfer_buf(board->spi, nullptr, board->raw_frame.data(), board->read_length);
  }
  transfer = end_transaction(board, transfer);
  if (transfer != MRAA_SUCCESS) {  // no frame: the last one must not pass for a new one
    trace(kTraceRefresh, "refresh failed %d", transfer);
    return;
  }
  if (zero_buffer != 0) {
    trace(kTraceRefresh, "zero buffer");
    board->raw_frame = {};
  }
  const frame_check result = keep_frame(board);
  board->all_zero = result.all_zero ? 1 : 0;
  if (result.sum != 0) {
    trace(kTraceRefresh, "*** bad refresh %02X ***", result.sum);
  } else {
    board->has_frame = true;
    trust_speed_reading(board, performed);
  }
}
