// The camera thread: it owns the link to the camera, keeps the positions that the camera reports, reconnects
// for ever, and can be asked to let the link go for a camera firmware update.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/mutex.h"
#include "base/thread.h"
#include "visca/connection.h"

struct visca_thread_record {
  const char* address = nullptr;  // "192.168.0.127", for others: the thread connects to the constant
  pthread_t thread{};
  std::atomic<visca_connection*> connection = nullptr;  // null while there is none
  std::atomic<visca_camera*> camera = nullptr;          // of address 1; what callers pass to visca_camera_*
  std::atomic<uint32_t> link_number = 0;  // one more with each link that is built, connected or not
  std::atomic<uint32_t> update_requested = 0;
  std::atomic<uint32_t> suspended = 0;

  mutex suspend_lock;
  condition suspend_done;
  bool released GUARDED_BY(suspend_lock) = false;  // the thread has let the link go
  mutex resume_lock;
  condition resume;
  bool resumed GUARDED_BY(resume_lock) = false;

  // Camera firmware update.
  mutex update_lock;
  condition update_ready;
  bool update_wanted GUARDED_BY(update_lock) = false;  // until it has ended
  completion_function update_completed GUARDED_BY(update_lock) = nullptr;
  bool update_thread_started = false;  // camera thread
};

extern visca_thread_record visca_thread_data;

// Whether what is queued now can reach the camera. Any thread.
bool visca_link_is_up(const visca_thread_record* data);

// The thread's body; the argument is the record. Never returns.
void* visca_thread_procedure(void* data);

// What the thread sets as the camera's callbacks. Camera thread.
void visca_acknowledge_callback(visca_camera* camera, int socket);
void visca_completion_callback(visca_camera* camera, int socket);

// Starts the thread that runs camera firmware updates, once. Camera thread.
void visca_init_update(visca_thread_record* data);

// What a camera update on the stick is: there is none. 0, and an empty path (which may be null) and version.
// Any thread.
int visca_get_update_available(char* path, size_t size);
void visca_load_update_version(char* version, size_t size);
// How far a running one has come (base/update_progress.h): it ends as it begins.
void visca_load_update_status(char* step, size_t step_size, char* description_1, size_t description_1_size,
                              char* description_2, size_t description_2_size);

// Runs an update: the link is let go, the update finds no image and ends, the link is built again, and
// `completed` (which may be null) is called. Returns not 0, or 0 while one runs. Any thread.
int visca_start_update(visca_thread_record* data, completion_function completed);

// Waits until the camera thread has let the link go; visca_resume_link makes it build the link again. One
// caller at a time, not the camera thread.
void visca_suspend_link(visca_thread_record* data);
void visca_resume_link(visca_thread_record* data);
