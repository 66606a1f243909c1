#include "base/application.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void end_loop(struct ev_loop* loop, ev_signal*, int) { ev_break(loop, EVBREAK_ALL); }

void ignore_signal(struct ev_loop*, ev_signal*, int) {}

void start_signal(orb_application* application, ev_signal* watcher, int number,
                  void (*callback)(struct ev_loop*, ev_signal*, int)) {
  ev_signal_init(watcher, callback, number);
  watcher->data = application;
  ev_signal_start(application->loop, watcher);
}

}  // namespace

int orb_application_init(orb_application* application, const char* program_name) {
  *application = {};
  // The line numbers are fixed parts of the messages.
  application->program_name = strdup(program_name);
  if (application->program_name == nullptr) {
    fprintf(stderr, "%s: strdup() failed at line %d: %s\n", program_name, 36, strerror(errno));
    return -1;
  }
  application->loop = ev_default_loop(ev_recommended_backends());
  if (application->loop == nullptr) {
    fprintf(stderr, "%s: ev_default_loop() failed at line %d\n", program_name, 43);
    free(application->program_name);
    application->program_name = nullptr;
    return -1;
  }
  // The default loop reaps every child, which would rob waitpid, pclose and system of their results.
  signal(SIGCHLD, SIG_DFL);

  start_signal(application, &application->hangup, SIGHUP, end_loop);
  start_signal(application, &application->interrupt, SIGINT, end_loop);
  start_signal(application, &application->terminate, SIGTERM, end_loop);
  start_signal(application, &application->user_1, SIGUSR1, ignore_signal);
  start_signal(application, &application->user_2, SIGUSR2, ignore_signal);
  return 0;
}

void orb_application_destroy(orb_application* application) {
  ev_signal_stop(application->loop, &application->user_2);
  ev_signal_stop(application->loop, &application->user_1);
  ev_signal_stop(application->loop, &application->terminate);
  ev_signal_stop(application->loop, &application->interrupt);
  ev_signal_stop(application->loop, &application->hangup);
  ev_loop_destroy(application->loop);
  application->loop = nullptr;
  free(application->program_name);
  application->program_name = nullptr;
}

int orb_application_run(orb_application* application) { return ev_run(application->loop, 0); }

void orb_application_set_power_board(orb_application* application, orb_power_board* board) {
  application->power_board = board;
}

orb_power_board* orb_application_get_power_board(const orb_application* application) {
  return application->power_board;
}
