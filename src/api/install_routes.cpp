#include "api/install_routes.h"

#include "base/trace.h"
#include "http/response.h"
#include "installer/installer.h"

namespace {

constexpr size_t kTextSize = 64;

void add_text(json_object* answer, const char* key, const char* text) {
  json_object_object_add(answer, key, json_object_new_string(text));
}

int post_install(http_connection* connection, const char* message, int (*trigger)()) {
  trace(kTraceApi, "%s", message);
  return send_status(connection, trigger() != 0);
}

}  // namespace

int get_install_versions(http_connection* connection, const char*, unsigned long, void*) {
  return send_object(connection, [](json_object* answer) {
    char version[kTextSize];
    orb_load_installer_software_update_version(version, sizeof version);
    add_text(answer, "software_update", version);
    orb_load_installer_firmware_update_version(version, sizeof version);
    add_text(answer, "firmware_update", version);
    orb_load_installer_camera_update_version(version, sizeof version);
    add_text(answer, "camera_update", version);
  });
}

int get_install_status(http_connection* connection, const char*, unsigned long, void*) {
  char target[kTextSize];
  char step[kTextSize];
  char description_1[kTextSize];
  char description_2[kTextSize];
  orb_load_installer_status(target, sizeof target, step, sizeof step, description_1, sizeof description_1,
                            description_2, sizeof description_2);
  return send_object(connection, [&](json_object* answer) {
    add_text(answer, "target", target);
    add_text(answer, "stage", step);
    add_text(answer, "description_1", description_1);
    add_text(answer, "description_2", description_2);
  });
}

int post_install_software(http_connection* connection, const char*, unsigned long, void*) {
  return post_install(connection, "install software", orb_trigger_software_update);
}

int post_install_firmware(http_connection* connection, const char*, unsigned long, void*) {
  return post_install(connection, "install firmware", orb_trigger_firmware_update);
}

int post_install_camera(http_connection* connection, const char*, unsigned long, void*) {
  return post_install(connection, "install camera", orb_trigger_camera_update);
}
