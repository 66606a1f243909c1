#include "supervisor/identity.h"

#include "base/redis.h"
#include "base/text.h"

namespace {

void load_identity(const char* key, char* text, size_t size) {
  if (!redis_get_text(key, text, size)) copy_text(text, size, "unknown");
}

}  // namespace

void orb_load_supervisor_model_name(char* text, size_t size) { load_identity("orb-model-name", text, size); }

void orb_load_supervisor_serial_number(char* text, size_t size) {
  load_identity("orb-serial-number", text, size);
}

void orb_load_supervisor_battery_type(char* text, size_t size) { load_identity("orb-battery", text, size); }
