// Start-up, in one fixed order: every later step may rely on the earlier ones.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "api/http_thread.h"
#include "app/command_pipe.h"
#include "app/invocation.h"
#include "app/redis_publisher.h"
#include "base/application.h"
#include "base/file.h"
#include "base/json.h"
#include "base/paths.h"
#include "base/thread.h"
#include "base/trace.h"
#include "camera/defaults_worker.h"
#include "camera/lens_loops.h"
#include "installer/installer.h"
#include "log_files/log_files.h"
#include "osd/osd.h"
#include "power_board/intensity_loop.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"
#include "seats/seats.h"
#include "store/identity.h"
#include "store/logger.h"
#include "store/settings.h"
#include "store/texts.h"
#include "supervisor/shutdown.h"
#include "supervisor/supervisor.h"
#include "usb/stick.h"
#include "visca/camera_thread.h"

namespace {

orb_application application;
orb_power_board power_board;

bool is_advanced_model() { return json_text(unit_config().get(), "model_name") == "ORB Advanced"; }

// Until the loop has its watchers a signal waits: by its default it would end the process half-started.
void block_signals(bool block) {
  sigset_t signals;
  sigfillset(&signals);
  pthread_sigmask(block ? SIG_BLOCK : SIG_UNBLOCK, &signals, nullptr);
}

// A console that nobody reads must not hold the unit: what it does not take is lost. Opened afresh, because
// the flag would be that of every other program on the same pipe or terminal.
void unblock_console(int fd) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || S_ISREG(info.st_mode)) return;
  char path[32];
  snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  const unique_fd fresh(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fresh || dup2(fresh.get(), fd) < 0) fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void prepare_console() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  unblock_console(STDOUT_FILENO);
  unblock_console(STDERR_FILENO);
}

void* http_thread(void*) {
  http_server_thread();
  return nullptr;
}

// What a stick may bring: an update, or the mark that empties the logger.
bool visit_stick() {
  const bool has_update = is_update_on_stick();
  orb_check_logger_reset();
  return has_update;
}

void start_workers() {
  visca_thread_data.address = addresses::kCamera;
  start_thread(&visca_thread_data.thread, "camera", visca_thread_procedure, &visca_thread_data);
  start_detached_thread("http", http_thread, nullptr);
  orb_init_camera();
  orb_create_focus_loop();
  orb_create_intensity_loop();
  orb_create_zoom_loop();
  orb_start_installer();
  orb_init_osd();
  orb_create_recorder();
  orb_init_supervisor(1);
  start_usb_stick(visit_stick);
}

// From the board to the end of the loop; returns the exit status.
int run_unit(bool advanced) {
  if (orb_power_board_init(&power_board, &application, advanced) < 0) return 1;
  power_board.on_shutdown_request = [] { orb_trigger_supervisor_shutdown(kShutdownBoard); };
  power_board_instance.store(&power_board, std::memory_order_release);
  int refresh_suspended = 0;
  orb_read_nv(kSettingPbSuspended, &refresh_suspended, sizeof refresh_suspended);
  if (refresh_suspended != 0) orb_power_board_suspend_refresh(&power_board);
  orb_power_board_start_service(&power_board);

  // The process ends as it stands, board and loop with it.
  if (start_command_pipe(&application, &power_board) != 0) exit(EXIT_FAILURE);
  start_redis_publisher(&application);
  start_seat_tick(application.loop);
  start_logger_timer(application.loop);
  start_osd_tick(application.loop);
  start_supervisor_timers(application.loop);
  start_high_beam_timer(application.loop);
  orb_power_board_enable_camera_power(&power_board);
  fputs("entering loop...\n", stderr);
  run_before_others();
  orb_application_run(&application);
  orb_close_lens_loops();  // the API still runs, and a button may still be held
  close_high_beam();
  stop_high_beam_timer();
  orb_power_board_destroy(&power_board);
  orb_await_lens_stops();
  close_recorder();
  save_logger_minute();
  return 0;
}

}  // namespace

int main(int count, char** words) {
  if (const std::optional<int> status = answer_command_line(count, words)) return *status;
  prepare_console();
  if (!claim_unit(words[0])) return EXIT_FAILURE;
  block_signals(true);
  signal(SIGPIPE, SIG_IGN);
  const bool advanced = is_advanced_model();
  init_trace();
  start_trace_writer();
  orb_init_nv();
  load_recorder_texts();
  start_log_file_workers();
  orb_init_logger();
  fputs("start\n", stderr);

  start_workers();
  if (orb_application_init(&application, words[0]) != 0) return 1;
  block_signals(false);
  const int status = run_unit(advanced);
  orb_application_destroy(&application);
  if (!drain_trace()) _exit(status);
  return status;
}
