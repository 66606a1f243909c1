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

constexpr http_path kPaths[] = {
    {"/api/osd/zoom", get<get_item, kZoom>, put<put_item, kZoom>.in(store_lane)},
    {"/api/osd/flow_direction", get<get_item, kFlowDirection>, put<put_item, kFlowDirection>.in(store_lane)},
    {"/api/osd/date_time", get<get_item, kDateTime>, put<put_item, kDateTime>.in(store_lane)},
    {"/api/osd/compass", get<get_item, kCompass>, put<put_item, kCompass>.in(store_lane)},
    {"/api/osd/title", get<get_item, kTitle>, put<put_item, kTitle>.in(store_lane)},
    {"/api/osd/operator_id", get<get_item, kOperatorId>, put<put_item, kOperatorId>.in(store_lane)},
    {"/api/osd/color", get<get_color>, put<put_color>.in(store_lane)},
    {"/api/osd/dwell", get<get_dwell>, put<put_dwell>.in(store_lane)},
};

}  // namespace

constinit const route_group osd_routes(kRows<kPaths, route_counts{.get = 8, .put = 8}>);
