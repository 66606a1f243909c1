// Files that are kept on the USB store, takes and log files alike: where each of them is, and the two workers
// that copy them to the external stick and delete them. What differs between the kinds stands in their
// record. Any thread; a request never waits for a job that runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/file.h"
#include "base/json.h"
#include "base/mutex.h"

// --- where a file is ---

struct file_location {
  const char* data_store = nullptr;  // "Main USB", "External USB"; null: nowhere
  int64_t size = -1;                 // bytes; -1 when only a copy is left
  int64_t copied = -1;               // bytes that the next store has of it; -1: it has no copy
};

// From the sizes on the USB store and on the stick, -1 where there is no file.
file_location locate_file(int64_t main_size, int64_t copy_size);

// The part of `whole` that `copied` is; of an empty file everything is copied.
double copied_part(double copied, double whole);

// --- the kinds ---

struct stored_files;

// A job of a worker: asked for, it is the worker's until it ends.
struct file_task {
  json_object* list = nullptr;  // array, in `root`
  json_owner root;
  unique_fd stick;  // the stick's folder, held as long as the job: no eject can come between two files
};

struct file_worker {
  const char* thread_name;
  const char* verb;  // in the trace
  void (*act)(const stored_files& kind, json_object* entry, const file_task& task);
  const stored_files* kind = nullptr;  // whose it is; set before its thread starts
  mutex lock{};
  condition requested{};
  bool is_busy GUARDED_BY(lock) = false;
  file_task* task GUARDED_BY(lock) = nullptr;  // owned, until the worker takes it
};

struct stored_files {
  const char* folder;
  int trace_level;
  const char* nowhere;       // "data_store" of a file that is nowhere; null: it has no such member
  bool are_copies_followed;  // in the trace: source, destination, begin and end of each
  file_worker copier;
  file_worker deleter;
};

// Starts both workers; later calls do nothing.
void start_file_workers(stored_files* kind);

// Hands {"name"} objects to the worker, and with them the value that owns them: 0 when it has taken them, 1
// when it is busy, -1 when `list` is no array, the worker's thread cannot be started or, for a copy, no stick
// is mounted.
int copy_stored_files(stored_files* kind, json_object* list, json_owner root);
int delete_stored_files(stored_files* kind, json_object* list, json_owner root);

// Appends "data_store", "size" and "percent_copied", as texts, to an object that has other members.
void append_location(std::string* json, const stored_files& kind, const file_location& place);

// --- what the workers do with an entry ---

// Whether a text from outside is the name of a file: not empty, "." or "..", and without "/".
bool is_file_name(std::string_view name);

// The member as the name of a file, "" when it is none.
std::string entry_name(json_object* entry, const char* key);

// Removes the regular file `name` from the kind's folder, for good; "" and what is not there count as
// missing. False when the file stays, or may come back after a power cut.
bool remove_stored_file(const stored_files& kind, const std::string& name);

// Copies the entry's file to the stick, unless it has one that is at least as long.
void copy_entry(const stored_files& kind, json_object* entry, const file_task& task);
