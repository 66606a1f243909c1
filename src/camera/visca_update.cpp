// The hand-over of the camera's link to a camera firmware update. No update image exists for this camera's
// software, so the update finds nothing to do and gives the link back at once.

#include "base/thread.h"
#include "camera/visca_thread.h"

namespace {

void* update_thread(void* argument) {
  auto* data = static_cast<visca_thread_record*>(argument);
  for (;;) {
    {
      const mutex_lock lock(data->update_lock);
      while (!data->update_wanted) data->update_ready.wait(data->update_lock);
      data->update_wanted = false;
    }
    visca_suspend_link(data);
    visca_resume_link(data);
  }
}

}  // namespace

void visca_init_update(visca_thread_record* data) {
  if (data->update_thread_started) return;
  data->update_thread_started = start_detached_thread("camera-update", update_thread, data) == 0;
}

void visca_trigger_update(visca_thread_record* data) {
  const mutex_lock lock(data->update_lock);
  data->update_wanted = true;
  data->update_ready.signal();
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
