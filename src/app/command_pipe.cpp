#include "app/command_pipe.h"

#include <ev.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/application.h"
#include "base/paths.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"

namespace {

constexpr int kLineSize = 1024;

FILE* fifo_stream = nullptr;
ev_io fifo_watcher;

void set_pwm(orb_power_board* board, const char* number) {
  const long pwm = std::clamp(strtol(number, nullptr, 10), 0L, 255L);
  set_led_pwm(board, static_cast<uint8_t>(pwm));
}

struct command {
  std::string_view word;
  void (*action)(orb_power_board* board, const char* rest);
};

template <auto Function, auto... About>
void call(orb_power_board* board, const char*) {
  Function(board, About...);
}

constexpr command kCommands[] = {
    {"camera enable", call<orb_power_board_enable_camera_power>},
    {"camera disable", call<orb_power_board_disable_camera_power>},
    {"laser enable", call<orb_power_board_enable_laser_power>},
    {"laser disable", call<orb_power_board_disable_laser_power>},
    {"low", call<set_led_mask, kLedLow>},
    {"medium", call<set_led_mask, kLedMedium>},
    {"high", call<set_led_mask, kLedHigh>},
    {"strip", call<set_led_mask, kLedStrip>},
    {"leds_off", call<set_led_mask, kLedOff>},
    {"pwm", set_pwm},
};

}  // namespace

int start_command_pipe(orb_application* application, orb_power_board* board) {
  unlink(paths::kCommandPipe);
  // The line numbers and the misspelt call name are fixed parts of the messages.
  if (mkfifo(paths::kCommandPipe, 0600) != 0) {
    fprintf(stderr, "%s: mkdifo() failed at line %d: %s\n", application->program_name, 208, strerror(errno));
    return -1;
  }
  // Read and write: the pipe then never reports an end of file when the last writer closes it.
  const int fd = open(paths::kCommandPipe, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    fprintf(stderr, "%s: open() failed at line %d: %s\n", application->program_name, 215, strerror(errno));
    return -1;
  }
  fifo_stream = fdopen(fd, "r");
  if (fifo_stream == nullptr) return 0;  // out of memory: the unit works on without the pipe
  ev_io_init(&fifo_watcher, fifo_callback, fd, EV_READ);
  fifo_watcher.data = board;
  ev_io_start(application->loop, &fifo_watcher);
  return 0;
}

void fifo_callback(struct ev_loop*, struct ev_io* watcher, int) {
  char line[kLineSize];
  clearerr(fifo_stream);
  if (fgets(line, sizeof line, fifo_stream) == nullptr) return;
  obey_command_line(static_cast<orb_power_board*>(watcher->data), line);
}

void obey_command_line(orb_power_board* board, const char* line) {
  for (const command& command : kCommands) {
    if (std::string_view(line).starts_with(command.word)) command.action(board, line + command.word.size());
  }
}
