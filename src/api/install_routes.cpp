// "/api/install": updates from the stick.

#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "installer/installer.h"

namespace {

constexpr size_t kTextSize = 64;

struct install_route {
  const char* message;
  int (*trigger)();
};

constexpr install_route kSoftware{"install software", orb_trigger_software_update};
constexpr install_route kFirmware{"install firmware", orb_trigger_firmware_update};
constexpr install_route kCamera{"install camera", orb_trigger_camera_update};

int post_install(http_connection* connection, const install_route& route) {
  trace(kTraceApi, "%s", route.message);
  return send_status(connection, route.trigger() != 0);
}

int get_versions(http_connection* connection) {
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

int get_status(http_connection* connection) {
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

constexpr http_path kPaths[] = {
    {"/api/install/versions", get<get_versions>.in(files_lane)},
    {"/api/install/status", get<get_status>},
    {"/api/install/software", post<post_install, kSoftware>.in(files_lane)},
    {"/api/install/firmware", post<post_install, kFirmware>.in(files_lane)},
    {"/api/install/camera", post<post_install, kCamera>.in(files_lane)},
};

}  // namespace

constinit const route_group install_routes(kRows<kPaths, route_counts{.get = 2, .post = 3}>);
