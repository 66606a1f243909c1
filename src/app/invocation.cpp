#include "app/invocation.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "store/identity.h"

namespace {

constexpr char kUsage[] = "usage: %s [--help | --version]\n";
constexpr char kHelp[] =
    "The controller daemon of the inspection camera. It takes no options: what can be chosen is in its\n"
    "settings, which its API reads and sets, and in %s.\n";
constexpr int kMisused = 2;

constexpr int64_t kClaimStep_ms = 10;
constexpr int kClaimSteps = 200;

// Of the folder, which is there as long as the unit runs. Closed by the end of the process.
constinit int claim = -1;

// Whether another process holds it. What else may keep us from it must not keep the unit from running.
bool is_claimed() {
  while (flock(claim, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return errno == EWOULDBLOCK;
  }
  return false;
}

}  // namespace

std::optional<int> answer_command_line(int count, const char* const* words) {
  if (count < 2) return std::nullopt;
  if (count == 2 && strcmp(words[1], "--version") == 0) {
    printf("orbd %s\n", kSoftwareVersion);
    return 0;
  }
  const bool is_help = count == 2 && strcmp(words[1], "--help") == 0;
  fprintf(is_help ? stdout : stderr, kUsage, words[0]);
  if (!is_help) return kMisused;
  printf(kHelp, paths::kSystemConfig);
  return 0;
}

bool claim_unit(const char* program_name) {
  make_missing_folder(paths::kRunFolder);
  claim = open(paths::kRunFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int step = 0; is_claimed(); ++step) {
    if (step == kClaimSteps) {
      fprintf(stderr, "%s: another one is running\n", program_name);
      return false;
    }
    sleep_ms(kClaimStep_ms);
  }
  return true;
}
