#include "heading/direction.h"

#include "base/mutex.h"
#include "base/text.h"

namespace {

mutex direction_lock;
char direction[8] GUARDED_BY(direction_lock) = "??";

}  // namespace

void set_supervisor_direction(const char* text) {
  const mutex_lock lock(direction_lock);
  copy_text(direction, sizeof direction, text);
}

void orb_load_supervisor_direction(char* text, size_t size) {
  const mutex_lock lock(direction_lock);
  copy_text(text, size, direction);
}
