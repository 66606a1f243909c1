// A request takes its worker in one step, or is refused at once; the job then owns the request's list.
//
// A copy job holds the stick's folder open, found mounted, and names files relative to it: an eject fails
// once a second until the job has let go, and what comes after it cannot land in the folder under the mount.
// A pulled stick ends the job after the file in hand.
//
// A deletion removes the file, flushes the folder, and then its kind rewrites or removes what lists it: a cut
// between leaves an entry without a file, which can be deleted again, and never a file that nobody lists.
#include "usb/stored_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "base/file_copy.h"
#include "base/paths.h"
#include "base/thread.h"
#include "base/trace.h"
#include "usb/stick.h"

namespace {

constexpr char kMainStore[] = "Main USB";
constexpr char kStickStore[] = "External USB";

void trace_missing(const stored_files& kind, const std::string& path) {
  trace(kind.trace_level, "file '%s' missing", path.c_str());
}

// --- the stick ---

// The folder itself is there without a stick, too, and would take the copies.
bool is_mount_root(int fd) {
  struct statx info {};
  return statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS, &info) == 0 &&
         (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// None when no stick is mounted.
unique_fd open_stick() {
  if (!orb_is_external_usb_mounted()) return {};
  unique_fd stick(open(paths::kStick, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (stick && !is_mount_root(stick.get())) stick.reset();
  return stick;
}

// -1 when the stick has nothing of that name; what is no file is as large as anything.
int64_t size_on_stick(int stick, const std::string& name) {
  struct stat info {};
  if (fstatat(stick, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return -1;
  return S_ISREG(info.st_mode) ? info.st_size : INT64_MAX;
}

struct source_file {
  unique_fd fd;  // none when there is no regular file
  int64_t size = -1;
};

// The size is that of the open file: its name may be another's by now, or nobody's.
source_file open_source(const std::string& path) {
  source_file source{unique_fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC))};
  struct stat info {};
  if (!source.fd || fstat(source.fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  source.size = info.st_size;
  return source;
}

// A copy that ended short goes: it would look like one that still grows.
bool copy_to_stick(const source_file& source, int stick, const std::string& name) {
  unique_fd target(
      openat(stick, name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!target) return false;
  if (copy_over(source.fd.get(), target.get(), source.size) && fsync(stick) == 0) return true;
  const int error = errno;
  target.reset();
  unlinkat(stick, name.c_str(), 0);
  errno = error;
  return false;
}

// --- the workers ---

void* serve_for_ever(void* worker);

bool start_worker(const stored_files* kind, file_worker* worker) REQUIRES(worker->lock) {
  if (worker->kind != nullptr) return true;
  worker->kind = kind;
  if (start_detached_thread(worker->thread_name, serve_for_ever, worker) != 0) worker->kind = nullptr;
  return worker->kind != nullptr;
}

// Takes the worker in one step: of two requests one is refused. A thread that could not be had at the start
// is asked for again.
int offer(const stored_files& kind, file_worker* worker, std::unique_ptr<file_task> task, bool is_possible) {
  const mutex_lock lock(worker->lock);
  if (worker->is_busy) return 1;
  if (!is_possible || !start_worker(&kind, worker)) return -1;
  worker->is_busy = true;
  worker->task = task.release();
  worker->requested.signal();
  return 0;
}

int request(const stored_files& kind, file_worker* worker, file_task task, bool is_possible) {
  const bool is_list = json_object_is_type(task.list, json_type_array) != 0;
  const int result =
      is_list ? offer(kind, worker, std::make_unique<file_task>(std::move(task)), is_possible) : -1;
  if (result != 0) trace(kind.trace_level, "no %s %d", worker->verb, result);
  return result;
}

std::unique_ptr<file_task> await_task(file_worker* worker) {
  const mutex_lock lock(worker->lock);
  while (worker->task == nullptr) worker->requested.wait(worker->lock);
  return std::unique_ptr<file_task>(std::exchange(worker->task, nullptr));
}

// A stick that has been pulled can only be unmounted when the job has ended.
bool is_stick_gone(const file_task& task) { return task.stick && access(paths::kStickDevice, F_OK) != 0; }

void run_task(const file_worker& worker, const file_task& task) {
  for (json_object* entry : json_elements(task.list)) {
    if (is_stick_gone(task)) return trace(worker.kind->trace_level, "stick gone");
    worker.act(*worker.kind, entry, task);
  }
}

void serve(file_worker* worker) {
  const int level = worker->kind->trace_level;
  std::unique_ptr<file_task> task = await_task(worker);
  trace(level, "%s starting", worker->verb);
  run_task(*worker, *task);
  task.reset();
  {
    const mutex_lock lock(worker->lock);
    worker->is_busy = false;
  }
  trace(level, "%s end", worker->verb);
}

void* serve_for_ever(void* worker) {
  for (;;) serve(static_cast<file_worker*>(worker));
}

}  // namespace

file_location locate_file(int64_t main_size, int64_t copy_size) {
  if (main_size < 0 && copy_size < 0) return {};
  if (main_size == copy_size) return {kStickStore, main_size, copy_size};
  return {kMainStore, main_size, copy_size};
}

double copied_part(double copied, double whole) { return whole == 0 ? 1 : copied / whole; }

void start_file_workers(stored_files* kind) {
  for (file_worker* worker : {&kind->copier, &kind->deleter}) {
    const mutex_lock lock(worker->lock);
    start_worker(kind, worker);
  }
}

int copy_stored_files(stored_files* kind, json_object* list, json_owner root) {
  file_task task{list, std::move(root), open_stick()};
  const bool is_possible = static_cast<bool>(task.stick);
  return request(*kind, &kind->copier, std::move(task), is_possible);
}

int delete_stored_files(stored_files* kind, json_object* list, json_owner root) {
  return request(*kind, &kind->deleter, {list, std::move(root), {}}, true);
}

void append_location(std::string* json, const stored_files& kind, const file_location& place) {
  const char* store = place.data_store != nullptr ? place.data_store : kind.nowhere;
  if (store != nullptr) json->append(",\"data_store\":\"").append(store).append(1, '"');
  json->append(",\"size\":\"");
  if (place.data_store != nullptr) json->append(std::to_string(place.size));
  json->append("\",\"percent_copied\":\"");
  if (place.copied >= 0) {
    // A size of -1 counts as the largest unsigned one, of which any copy is 0.0 %: on purpose.
    const auto whole = static_cast<double>(static_cast<uint64_t>(place.size));
    char percent[32];
    snprintf(percent, sizeof percent, "%.1f %%", 100 * copied_part(static_cast<double>(place.copied), whole));
    json->append(percent);
  }
  json->append(1, '"');
}

bool is_file_name(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find_first_of({"/\0", 2}) == name.npos;
}

std::string entry_name(json_object* entry, const char* key) {
  const std::string_view name = text_member(entry, key).value_or("");
  return is_file_name(name) ? std::string(name) : "";
}

bool remove_stored_file(const stored_files& kind, const std::string& name) {
  const std::string path = path_in(kind.folder, name);
  if (name.empty() || file_size(path) < 0) {
    trace_missing(kind, path);
    return true;
  }
  trace(kind.trace_level, "rm '%s'", path.c_str());
  if (unlink(path.c_str()) == 0) return flush_folder_of(path.c_str());
  trace(kind.trace_level, "rm failed %d '%s'", errno, strerror(errno));
  return false;
}

void copy_entry(const stored_files& kind, json_object* entry, const file_task& task) {
  const int level = kind.trace_level;
  trace(level, "copy '%s'", json_text(entry, "name").c_str());
  const std::string name = entry_name(entry, "name");
  const std::string from = path_in(kind.folder, name);
  const std::string to = path_in(paths::kStick, name);
  if (name.empty()) return trace_missing(kind, from);
  if (kind.are_copies_followed) trace(level, "cp src '%s'", from.c_str());
  if (kind.are_copies_followed) trace(level, "cp dst '%s'", to.c_str());
  const source_file source = open_source(from);
  const int64_t there = size_on_stick(task.stick.get(), name);
  if (there >= 0 && there >= source.size) return trace(level, "file '%s' exists", to.c_str());
  if (!source.fd) return trace_missing(kind, from);
  if (kind.are_copies_followed) trace(level, "cp start '%s'", name.c_str());
  if (!copy_to_stick(source, task.stick.get(), name)) {
    trace(level, "cp failed %d '%s'", errno, strerror(errno));
  } else if (kind.are_copies_followed) {
    trace(level, "cp done");
  }
}
