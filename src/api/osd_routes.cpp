// "/api/osd": what the overlay shows.

#include <optional>

#include "api/routes.h"
#include "http/response.h"
#include "osd/osd.h"

namespace {

// An item that is on or off.
struct item_route {
  osd_item item;
  const char* key;
  const char* label;
};

constexpr item_route kZoom{kOsdZoom, "zoom_osd", "osd zoom"};
constexpr item_route kFlowDirection{kOsdFlowDirection, "flow_direction_osd", "osd flow direction"};
constexpr item_route kDateTime{kOsdDateTime, "date_time_osd", "osd date time"};
constexpr item_route kCompass{kOsdCompass, "compass_osd", "osd compass"};
constexpr item_route kTitle{kOsdTitle, "title_osd", "osd title"};
constexpr item_route kOperatorId{kOsdOperatorId, "operator_id_osd", "osd operator id"};

int get_item(http_connection* connection, const item_route& route) {
  return send_flag(connection, route.key, orb_get_osd_item(route.item) != 0);
}

int put_item(http_connection* connection, json_object* body, const item_route& route) {
  const std::optional<int> value = take_number(body, route.key, route.label);
  if (value) orb_set_osd_item(route.item, *value);
  return send_status(connection, value.has_value());
}

int get_color(http_connection* connection) {
  return send_text(connection, "osd_color", kOsdColors[osd_color_code(orb_get_osd_item(kOsdColor))]);
}

int put_color(http_connection* connection, json_object* body) {
  const std::optional<int> color = take_choice(body, "osd_color", "osd color", kOsdColors);
  if (color) orb_set_osd_item(kOsdColor, *color);
  return send_status(connection, color.has_value());
}

int get_dwell(http_connection* connection) {
  return send_number(connection, "osd_dwell", orb_get_osd_item(kOsdDwell));
}

int put_dwell(http_connection* connection, json_object* body) {
  const std::optional<int> dwell = take_number(body, "osd_dwell", "osd dwell");
  const bool good = dwell && *dwell >= 0 && *dwell <= kOsdLongestDwell_s;
  if (good) orb_set_osd_item(kOsdDwell, *dwell);
  return send_status(connection, good);
}

constexpr http_route_row kRows[] = {
    {"GET", "/api/osd/zoom", handler<get_item, kZoom>},
    {"PUT", "/api/osd/zoom", handler<put_item, kZoom>},
    {"GET", "/api/osd/flow_direction", handler<get_item, kFlowDirection>},
    {"PUT", "/api/osd/flow_direction", handler<put_item, kFlowDirection>},
    {"GET", "/api/osd/date_time", handler<get_item, kDateTime>},
    {"PUT", "/api/osd/date_time", handler<put_item, kDateTime>},
    {"GET", "/api/osd/compass", handler<get_item, kCompass>},
    {"PUT", "/api/osd/compass", handler<put_item, kCompass>},
    {"GET", "/api/osd/title", handler<get_item, kTitle>},
    {"PUT", "/api/osd/title", handler<put_item, kTitle>},
    {"GET", "/api/osd/operator_id", handler<get_item, kOperatorId>},
    {"PUT", "/api/osd/operator_id", handler<put_item, kOperatorId>},
    {"GET", "/api/osd/color", handler<get_color>},
    {"PUT", "/api/osd/color", handler<put_color>},
    {"GET", "/api/osd/dwell", handler<get_dwell>},
    {"PUT", "/api/osd/dwell", handler<put_dwell>},
};

static_assert(count_rows(kRows) == route_counts{.get = 8, .put = 8});

}  // namespace

constinit const route_group osd_routes(kRows);
