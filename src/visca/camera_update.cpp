// The hand-over of the camera's link to a camera firmware update. No update image exists for this camera's
// software, so the update finds nothing to do and gives the link back at once.

#include "base/text.h"
#include "base/thread.h"
#include "base/update_progress.h"
#include "visca/camera_thread.h"

namespace {

completion_function wait_for_request(visca_thread_record* data) {
  const mutex_lock lock(data->update_lock);
  while (!data->update_wanted) data->update_ready.wait(data->update_lock);
  return data->update_completed;
}

void end_request(visca_thread_record* data) {
  const mutex_lock lock(data->update_lock);
  data->update_wanted = false;
}

void* update_thread(void* argument) {
  auto* data = static_cast<visca_thread_record*>(argument);
  for (;;) {
    const completion_function completed = wait_for_request(data);
    visca_suspend_link(data);
    visca_resume_link(data);
    end_request(data);
    if (completed != nullptr) completed();
  }
}

}  // namespace

void visca_init_update(visca_thread_record* data) {
  if (data->update_thread_started) return;
  data->update_thread_started = start_detached_thread("camera-update", update_thread, data) == 0;
}

int visca_get_update_available(char* path, size_t size) {
  if (path != nullptr) copy_text(path, size, "");
  return 0;
}

void visca_load_update_version(char* version, size_t size) { copy_text(version, size, ""); }

void visca_load_update_status(char* step, size_t step_size, char* description_1, size_t description_1_size,
                              char* description_2, size_t description_2_size) {
  copy_update_progress({}, step, step_size, description_1, description_1_size, description_2,
                       description_2_size);
}

int visca_start_update(visca_thread_record* data, completion_function completed) {
  const mutex_lock lock(data->update_lock);
  if (data->update_wanted) return 0;
  data->update_wanted = true;
  data->update_completed = completed;
  data->update_ready.signal();
  return 1;
}

void visca_suspend_link(visca_thread_record* data) {
  const mutex_lock lock(data->suspend_lock);
  data->released = false;
  data->update_requested = 1;
  while (!data->released) data->suspend_done.wait(data->suspend_lock);
}

void visca_resume_link(visca_thread_record* data) {
  const mutex_lock lock(data->resume_lock);
  data->resumed = true;
  data->resume.signal();
}
