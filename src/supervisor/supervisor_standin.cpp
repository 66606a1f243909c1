// Stands for the supervisor's operations that others call already.

#include <cstring>

#include "base/child_process.h"
#include "base/text.h"
#include "supervisor/supervisor.h"



int orb_set_supervisor_battery_type(const char* type) {
  return strcmp(type, "Dewalt") == 0 || strcmp(type, "Indipro") == 0 ? 0 : -1;
}

void orb_trigger_supervisor_shutdown(int reason) {
  if (reason == kShutdownReboot) shell_first_line("reboot", 1);
}

int orb_request_supervisor_eject() { return -1; }
