// What the hot paths cost, and how often they allocate.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>

#include "base/application.h"
#include "base/trace.h"
#include "http/request.h"
#include "power_board/events.h"
#include "power_board/laser.h"
#include "power_board/link.h"
#include "power_board/power_board.h"
#include "sim/board/bus.h"
#include "visca/connection.h"

namespace {

std::atomic<long> allocations = 0;

void report_allocations(benchmark::State& state, long before) {
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

void parse_request(benchmark::State& state) {
  const char text[] =
      "POST /api/camera/zoom/increment HTTP/1.1\r\nHost: 192.168.0.1:60102\r\nUser-Agent: tablet/2.1\r\n"
      "Accept: application/json\r\nConnection: keep-alive\r\nContent-Length: 2\r\n\r\n{}";
  static http_request request;
  const long before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    http_request_reset(&request);
    benchmark::DoNotOptimize(http_request_parse_http_header(&request, text, sizeof text - 1, nullptr));
  }
  report_allocations(state, before);
}
BENCHMARK(parse_request);

void disabled_trace(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) trace(kTraceRefresh, "refresh %02X %d %d %d", 0x88, 141, 0, 0);
}
BENCHMARK(disabled_trace);

// A refresh without its wire time: frame, detectors, averages and machines, the mast at rest.
void refresh_cycle(benchmark::State& state) {
  static orb_power_board board;
  static orb_application application;
  orb_power_board_init(&board, &application, 1);
  set_wire_time(false);
  open_bus(&board);
  uint8_t frame[kAdvancedFrameLength] = {};
  power_board_readings readings;
  const long before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(take_frame(frame, true, &readings));
    detect_events(&board, readings);
    average_battery(&board, readings);
    average_pressure(&board, readings);
    average_humidity(&board, readings);
    run_motors(&board, readings);
    update_laser(&board, readings);
  }
  report_allocations(state, before);
}
BENCHMARK(refresh_cycle);

// A register write up to the queue. The queue is emptied as the service would.
void queue_write(benchmark::State& state) {
  static orb_power_board board;
  static orb_application application;
  orb_power_board_init(&board, &application, 1);
  const uint8_t data[] = {0x09, 25};
  const long before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    orb_power_board_issue_write(&board, 1, data, sizeof data);
    const mutex_lock lock(board.queue_lock);
    board.queue.take();
  }
  report_allocations(state, before);
}
BENCHMARK(queue_write);

// A command through the ring and its acknowledge; the send itself fails at once, the socket being closed.
void camera_command(benchmark::State& state) {
  static visca_connection connection;
  connection.loop = ev_loop_new(EVBACKEND_POLL);
  visca_camera* camera = visca_connection_add_camera(&connection, 1, 0);
  const uint8_t acknowledge[] = {0x90, 0x41, 0xFF};
  const long before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    connection.connected = 1;
    visca_camera_zoom_tele_variable(camera, 3);
    visca_connection_receive(&connection, acknowledge, sizeof acknowledge);
  }
  report_allocations(state, before);
}
BENCHMARK(camera_command);

}  // namespace

// Every allocation of the program, C's and C++'s, comes through these.
extern "C" void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)

extern "C" void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
