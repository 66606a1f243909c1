#include "installer/installer.h"

#include <glob.h>
#include <sys/stat.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "base/child_process.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/thread.h"
#include "base/trace.h"
#include "base/update_progress.h"
#include "base/value_file.h"
#include "power_board/power_board.h"
#include "supervisor/shutdown.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kShownSteps = 11;  // whatever the script prints
constexpr size_t kLineSize = 128;
constexpr std::string_view kWordEnds = " :";

// A shell that could not start a script.
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;

enum class update_target : uint32_t { none, software, firmware, camera };
constexpr const char* kTargetNames[] = {"none", "software", "firmware", "camera"};

struct installer_state {
  mutex install_lock;
  condition deploy_ready;
  update_target target GUARDED_BY(install_lock) = update_target::none;
  bool deploy_requested GUARDED_BY(install_lock) = false;
  char archive[PATH_MAX] GUARDED_BY(install_lock) = "";  // to be deployed

  mutex progress_lock;
  update_progress progress GUARDED_BY(progress_lock);  // of the software update
};

constinit installer_state installer;

// --- the archive on the stick ---

// The archive whose name sorts last (as text: 2.9.0 behind 2.10.0); "" when there is none.
std::string find_archive() {
  glob_t found{};
  const std::unique_ptr<glob_t, decltype(&globfree)> owner(&found, globfree);
  if (glob(paths::kUpdateArchives, 0, nullptr, &found) != 0) return "";
  for (size_t i = found.gl_pathc; i > 0; --i) {
    struct stat info {};
    if (stat(found.gl_pathv[i - 1], &info) == 0 && S_ISREG(info.st_mode)) return found.gl_pathv[i - 1];
  }
  return "";
}

// What stands between the last "_" and the last ".".
std::string version_of(const std::string& archive) {
  const std::string name = archive.substr(0, archive.rfind('.'));
  return name.substr(name.rfind('_') + 1);
}

// --- the target: who may update ---

bool claim(update_target target) {
  const mutex_lock lock(installer.install_lock);
  if (installer.target != update_target::none) return false;
  installer.target = target;
  return true;
}

void release_target() {
  const mutex_lock lock(installer.install_lock);
  installer.target = update_target::none;
}

update_target target_now() {
  const mutex_lock lock(installer.install_lock);
  return installer.target;
}

// --- the deploy script ---

void set_progress(const update_progress& progress) {
  const mutex_lock lock(installer.progress_lock);
  installer.progress = progress;
}

// The words of a line of the deploy script: the first, and the first that begins behind a blank after it.
// Words end at blanks and colons; a missing one is empty.
struct progress_words {
  std::string_view first;
  std::string_view second;
};
progress_words find_progress_words(std::string_view line) {
  const auto word_from = [line](size_t at) {
    at = line.find_first_not_of(kWordEnds, at);
    return at == line.npos ? std::string_view() : line.substr(at, line.find_first_of(kWordEnds, at) - at);
  };
  const size_t begin = line.find_first_not_of(kWordEnds);
  const size_t blank = line.find(' ', begin);
  return {word_from(0), blank == line.npos ? std::string_view() : word_from(blank)};
}

void take_line(int number, std::string_view printed) {
  char cut[kLineSize];
  copy_text(cut, sizeof cut, printed);
  const std::string line = as_utf8(cut);
  trace(kTraceInstaller, "sw '%s'", line.c_str());
  write_value_file(paths::kUpdateStatus, line.c_str());
  const progress_words words = find_progress_words(line);
  if (words.second.empty()) return;
  update_progress progress;
  snprintf(progress.step, sizeof progress.step, "%d of %d", number, kShownSteps);
  copy_text(progress.description_1, sizeof progress.description_1, words.first);
  copy_text(progress.description_2, sizeof progress.description_2, words.second);
  set_progress(progress);
}

// False when the script could not be started.
bool deploy(const std::string& archive) {
  set_progress({.step = "", .description_1 = "", .description_2 = ""});
  int lines = 0;
  // One byte more than is shown, so that a character that the cut would divide is seen.
  const int status = run_shell(std::string(paths::kDeployScript) + " " + shell_word(archive), kLineSize,
                               [&lines](std::string_view line) { take_line(++lines, line); });
  trace(kTraceInstaller, "sw exit %d", status);
  return lines != 0 || (status >= 0 && status != kNotExecutable && status != kNotFound);
}

std::string wait_for_request() {
  const mutex_lock lock(installer.install_lock);
  while (!installer.deploy_requested) installer.deploy_ready.wait(installer.install_lock);
  installer.deploy_requested = false;
  return installer.archive;
}

void* install_worker(void*) {
  for (;;) {
    if (deploy(wait_for_request())) orb_trigger_supervisor_shutdown(kShutdownReboot);
  }
}

}  // namespace

int orb_start_installer() { return start_detached_thread("installer", install_worker, nullptr); }

int orb_get_installer_software_update_available(char* path, size_t size) {
  const std::string archive = find_archive();
  if (path != nullptr) copy_text(path, size, archive);
  return archive.empty() ? 0 : 1;
}

int orb_get_installer_firmware_update_available(char* path, size_t size) {
  return orb_power_board_get_update_available(power_board_now(), path, size);
}

int orb_get_installer_camera_update_available(char* path, size_t size) {
  return visca_get_update_available(path, size);
}

bool is_update_on_stick() {
  const int software = orb_get_installer_software_update_available(nullptr, 0);
  const int firmware = orb_get_installer_firmware_update_available(nullptr, 0);
  const int camera = orb_get_installer_camera_update_available(nullptr, 0);
  trace(kTraceSupervisor, "update %d %d %d", software, firmware, camera);
  return software != 0 || firmware != 0 || camera != 0;
}

void orb_load_installer_software_update_version(char* version, size_t size) {
  copy_text(version, size, as_utf8(version_of(find_archive())));
}

void orb_load_installer_firmware_update_version(char* version, size_t size) {
  orb_power_board_load_update_version(power_board_now(), version, size);
}

void orb_load_installer_camera_update_version(char* version, size_t size) {
  visca_load_update_version(version, size);
}

int orb_trigger_software_update() {
  if (!claim(update_target::software)) return 0;
  const std::string archive = find_archive();
  if (archive.empty()) {
    release_target();
    return 0;
  }
  const mutex_lock lock(installer.install_lock);
  copy_text(installer.archive, sizeof installer.archive, archive);
  installer.deploy_requested = true;
  installer.deploy_ready.signal();
  return 1;
}

// The target is claimed before the update begins, because the update may have ended when its trigger returns.
int orb_trigger_firmware_update() {
  orb_power_board* board = power_board_now();
  if (orb_power_board_get_update_available(board, nullptr, 0) == 0 || !claim(update_target::firmware))
    return 0;
  const int started = orb_power_board_trigger_firmware_update(board, release_target);
  if (started == 0) release_target();
  return started;
}

int orb_trigger_camera_update() {
  if (visca_get_update_available(nullptr, 0) == 0 || !claim(update_target::camera)) return 0;
  const int started = visca_start_update(&visca_thread_data, release_target);
  if (started == 0) release_target();
  return started;
}

void orb_load_installer_status(char* target, size_t target_size, char* step, size_t step_size,
                               char* description_1, size_t description_1_size, char* description_2,
                               size_t description_2_size) {
  const update_target now = target_now();
  copy_text(target, target_size, kTargetNames[static_cast<size_t>(now)]);
  if (now == update_target::firmware) {
    return orb_power_board_load_update_status(power_board_now(), step, step_size, description_1,
                                              description_1_size, description_2, description_2_size);
  }
  if (now == update_target::camera) {
    return visca_load_update_status(step, step_size, description_1, description_1_size, description_2,
                                    description_2_size);
  }
  update_progress progress;
  if (now == update_target::software) {
    const mutex_lock lock(installer.progress_lock);
    progress = installer.progress;
  }
  copy_update_progress(progress, step, step_size, description_1, description_1_size, description_2,
                       description_2_size);
}
