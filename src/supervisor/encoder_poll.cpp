// Asks the camera's encoder every 5 s, on one connection, for its pages. A poll that is not through when the
// next is due ends there. Main loop.

#include <arpa/inet.h>
#include <ev.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "store/logger.h"
#include "supervisor/encoder_poll.h"
#include "supervisor/encoder_response.h"

namespace {

constexpr double kPeriod_s = 5.0;
constexpr int kTransportFailure = 500;
constexpr int kGood = 200;

constexpr std::string_view kRequests[] = {
    "POST /cgi-bin/control.cgi?action=GetStatus&chn=1 HTTP/1.1\r\n\r\n",
    "POST /cgi-bin/control.cgi?action=GetStatus&chn=2 HTTP/1.1\r\n\r\n",
    "POST /cgi-bin/control.cgi?action=EncoderStatus HTTP/1.1\r\n\r\n",
    "POST /cgi-bin/control.cgi?action=StreamStatus HTTP/1.1\r\n\r\n",
    "POST /cgi-bin/control.cgi?action=TempStatus HTTP/1.1\r\n\r\n",
    "GET /cgi-bin/control.cgi?ctrl=stats&chn= HTTP/1.1\r\n\r\n",  // its answer is the one that is read
};

struct encoder_poll {
  unique_fd fd;
  bool connected = false;
  size_t request = 0;  // of kRequests, the one that waits for its response
  size_t received = 0;
  std::array<char, kEncoderHeadLimit + kEncoderBodyLimit> buffer{};
};

constinit encoder_poll current;
ev_timer poll_timer;
ev_io poll_socket;

mutex report_lock;
encoder_report report GUARDED_BY(report_lock);

struct temperature_row {
  camera_temperature camera_temperatures::*member;
  const char* path;
  void (*report)(double value);
  void (*report_invalid)();
};

constexpr temperature_row kTemperatures[] = {
    {&camera_temperatures::lens, paths::kLensTemperature, orb_report_logger_camera_lens_temperature,
     orb_report_logger_invalid_camera_lens_temperature},
    {&camera_temperatures::fpga, paths::kFpgaTemperature, orb_report_logger_camera_fpga_temperature,
     orb_report_logger_invalid_camera_fpga_temperature},
    {&camera_temperatures::cpu, paths::kCpuTemperature, orb_report_logger_camera_cpu_temperature,
     orb_report_logger_invalid_camera_cpu_temperature},
};

void end_poll(struct ev_loop* loop) {
  ev_io_stop(loop, &poll_socket);
  current.fd.reset();
}

void fail_open(struct ev_loop* loop, int error) {
  trace(kTraceSupervisor, "http open fail %d", error);
  end_poll(loop);
}

void fail_request(struct ev_loop* loop, int status) {
  trace(kTraceSupervisor, "http %c response %d", 'a' + static_cast<char>(current.request), status);
  end_poll(loop);
}

void report_temperature(const temperature_row& row, const camera_temperature& temperature) {
  if (!temperature.valid) return row.report_invalid();
  row.report(temperature.value);
  char text[32];
  snprintf(text, sizeof text, "%.2f", temperature.value);
  write_value_file(row.path, text);
}

void take_statistics(const encoder_statistics& statistics) {
  encoder_report next;
  for (size_t i = 0; i < next.channels.size(); ++i) {
    copy_text(next.channels[i], sizeof next.channels[i], statistics.channels[i]);
  }
  write_value_file(paths::kChannel1Status, statistics.channels[0].c_str());
  write_value_file(paths::kChannel2Status, statistics.channels[1].c_str());
  next.temperatures = statistics.temperatures;
  if (statistics.invalid) {
    trace(kTraceSupervisor, "*** INVALID ***");
    trace(kTraceSupervisor, "*** ctt: '%s'", statistics.temperature_text.c_str());
    trace(kTraceSupervisor, "***************");
  } else {
    for (const temperature_row& row : kTemperatures) report_temperature(row, next.temperatures.*row.member);
  }
  const mutex_lock lock(report_lock);
  report = next;
}

void send_request(struct ev_loop* loop) {
  const std::string_view request = kRequests[current.request];
  const ssize_t sent = send(current.fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
  if (sent == static_cast<ssize_t>(request.size())) return;
  if (sent < 0 && errno == EPIPE) trace(kTraceSupervisor, " tx fail EPIPE");
  fail_request(loop, kTransportFailure);
}

void take_response(struct ev_loop* loop, const encoder_response& response) {
  if (response.status != kGood) return fail_request(loop, response.status);
  if (current.request + 1 == std::size(kRequests)) {
    const auto statistics = parse_encoder_statistics(response.body);
    if (!statistics) return fail_request(loop, kTransportFailure);
    take_statistics(*statistics);
    return end_poll(loop);
  }
  current.received -= response.length;
  memmove(current.buffer.data(), current.buffer.data() + response.length, current.received);
  ++current.request;
  send_request(loop);
}

void finish_connect(struct ev_loop* loop) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(current.fd.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  if (error != 0) return fail_open(loop, error);
  current.connected = true;
  ev_io_stop(loop, &poll_socket);
  ev_io_set(&poll_socket, current.fd.get(), EV_READ);
  ev_io_start(loop, &poll_socket);
  send_request(loop);
}

void receive(struct ev_loop* loop) {
  const ssize_t count = recv(current.fd.get(), current.buffer.data() + current.received,
                             current.buffer.size() - current.received, 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) return fail_request(loop, kTransportFailure);
  current.received += static_cast<size_t>(count);
  encoder_response response;
  const response_step step = parse_encoder_response({current.buffer.data(), current.received}, &response);
  if (step == response_step::complete) take_response(loop, response);
  if (step == response_step::malformed) fail_request(loop, kTransportFailure);
}

void on_socket(struct ev_loop* loop, ev_io*, int) {
  current.connected ? receive(loop) : finish_connect(loop);
}

void begin_poll(struct ev_loop* loop) {
  current.connected = false;
  current.request = 0;
  current.received = 0;
  current.fd.reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(addresses::kEncoderHttpPort);
  inet_pton(AF_INET, addresses::kCamera, &address.sin_addr);
  if (!current.fd ||
      (connect(current.fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
       errno != EINPROGRESS)) {
    return fail_open(loop, errno);
  }
  ev_io_set(&poll_socket, current.fd.get(), EV_WRITE);
  ev_io_start(loop, &poll_socket);
}

void on_timer(struct ev_loop* loop, ev_timer*, int) {
  if (current.fd) current.connected ? fail_request(loop, kTransportFailure) : fail_open(loop, ETIMEDOUT);
  begin_poll(loop);
}

}  // namespace

void start_encoder_poll(struct ev_loop* loop) {
  ev_init(&poll_socket, on_socket);
  ev_timer_init(&poll_timer, on_timer, kPeriod_s, kPeriod_s);
  ev_timer_start(loop, &poll_timer);
}

encoder_report last_encoder_report() {
  const mutex_lock lock(report_lock);
  return report;
}
