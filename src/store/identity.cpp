#include "store/identity.h"

#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/redis.h"
#include "base/text.h"
#include "base/trace.h"

namespace {

constexpr const char* kBatteryTypes[] = {"Dewalt", "Indipro"};
constexpr const char* kKeptMembers[] = {"model_number", "model_name", "serial_number"};
constexpr size_t kReleaseLimit = 1 << 20;

mutex release_lock;
char release[256] GUARDED_BY(release_lock) = "";

// What is no UTF-8 would break the JSON that it goes into.
void load_identity(const char* key, char* text, size_t size) {
  copy_text(text, size, redis_get_text(key, text, size) ? as_utf8(text) : "unknown");
}

void store_battery_type_in_redis(const char* type) {
  redis_connection connection = redis_connect();
  const redis_reply reply = redis_command(connection, "SET orb-battery %s", type);
  trace(kTraceSupervisor, "db reply '%s'", reply && reply->str != nullptr ? reply->str : "");
}

// A configuration that cannot be read stays as it is: it may hold more than we could write.
void store_battery_type_in_file(const char* type) {
  const json_owner old = unit_config();
  if (!json_object_is_type(old.get(), json_type_object)) return;
  const json_owner config(json_object_new_object());
  for (const char* key : kKeptMembers) {
    json_object* value = json_member(old.get(), key);
    if (value != nullptr) json_object_object_add(config.get(), key, json_object_get(value));
  }
  json_object_object_add(config.get(), "battery", json_object_new_string(type));
  trace(kTraceSupervisor, "config stored %d", replace_json_file(paths::kSystemConfig, config.get()) ? 0 : -1);
}

}  // namespace

json_owner unit_config() { return load_json_file(paths::kSystemConfig); }

void orb_load_supervisor_model_name(char* text, size_t size) { load_identity("orb-model-name", text, size); }

void orb_load_supervisor_serial_number(char* text, size_t size) {
  load_identity("orb-serial-number", text, size);
}

void orb_load_supervisor_battery_type(char* text, size_t size) { load_identity("orb-battery", text, size); }

void load_release() {
  const std::string text = read_file(paths::kRelease, kReleaseLimit).value_or("");
  const mutex_lock lock(release_lock);
  copy_text(release, sizeof release, as_utf8(text));
}

void orb_load_supervisor_software_version(char* text, size_t size) {
  const mutex_lock lock(release_lock);
  copy_text(text, size, release);
}

int orb_set_supervisor_battery_type(const char* type) {
  if (!find_word(kBatteryTypes, type)) return -1;
  store_battery_type_in_redis(type);
  store_battery_type_in_file(type);
  return 0;
}
