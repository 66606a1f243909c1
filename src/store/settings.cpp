#include "store/settings.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "base/file.h"
#include "base/json.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"
#include "store/alternating_file.h"

namespace {

enum class setting_type { integer, text, real };

struct setting {
  uint32_t index;
  const char* key;
  setting_type type;
  size_t size;  // bytes that read and write move
  int32_t default_integer;
  const char* default_text;
};

constexpr setting integer(uint32_t index, const char* key, int32_t value) {
  return {index, key, setting_type::integer, sizeof(int32_t), value, nullptr};
}
constexpr setting text(uint32_t index, const char* key, size_t size, const char* value) {
  return {index, key, setting_type::text, size, 0, value};
}
constexpr setting real(uint32_t index, const char* key) {
  return {index, key, setting_type::real, sizeof(double), 0, nullptr};
}

// Key, size of a text, default (0.0 for the doubles), in the order of the indexes.
constexpr std::array<setting, kSettingCount> kSettings{
    integer(kSettingDateTimeOsd, "date_time_osd", 1),
    integer(kSettingOperatorIdOsd, "operator_id_osd", 0),
    integer(kSettingTitleOsd, "title_osd", 0),
    integer(kSettingFlowDirectionOsd, "flow_direction_osd", 0),
    integer(kSettingZoomOsd, "zoom_osd", 0),
    integer(kSettingCompassOsd, "compass_direction_osd", 0),
    integer(kSettingViewerSeats, "viewer_seats", 5),
    text(kSettingLanguage, "language", 3, "ENG"),
    integer(kSettingInvertImage, "camera_invert_image", 0),
    integer(kSettingStabilizeImage, "camera_stabilize_image", 1),
    integer(kSettingSensitivity, "camera_sensitivity", 1),
    integer(kSettingIrFilter, "camera_ir_filter", 2),
    integer(kSettingDefog, "camera_defog", 2),
    text(kSettingOperatorId, "operator_id", 41, "ORB"),
    text(kSettingTitle, "title", 41, "ASSET"),
    text(kSettingFlowDirection, "flow_direction", 19, "UPSTREAM"),
    integer(kSettingOsdColor, "osd_color", 0),
    integer(kSettingOsdDelay, "osd_delay", 0),
    integer(kSettingHighBeamTime, "high_beam_time", 15),
    integer(kSettingPbSuspended, "pb_suspended", 0),
    integer(kSettingUnits, "units", 1),
    integer(kSettingMagnetometerCalibrated, "magnetometer_calibrated", 0),
    real(kSettingMagnetometerX, "magnetometer_calibration_x"),
    real(kSettingMagnetometerX + 1, "magnetometer_calibration_y"),
    real(kSettingMagnetometerX + 2, "magnetometer_calibration_z"),
    real(kSettingMagnetometerX + 3, "magnetometer_ellipsoid_00"),
    real(kSettingMagnetometerX + 4, "magnetometer_ellipsoid_01"),
    real(kSettingMagnetometerX + 5, "magnetometer_ellipsoid_02"),
    real(kSettingMagnetometerX + 6, "magnetometer_ellipsoid_10"),
    real(kSettingMagnetometerX + 7, "magnetometer_ellipsoid_11"),
    real(kSettingMagnetometerX + 8, "magnetometer_ellipsoid_12"),
    real(kSettingMagnetometerX + 9, "magnetometer_ellipsoid_20"),
    real(kSettingMagnetometerX + 10, "magnetometer_ellipsoid_21"),
    real(kSettingMagnetometerX + 11, "magnetometer_ellipsoid_22"),
};

constexpr bool are_in_order() {
  for (uint32_t i = 0; i < kSettings.size(); ++i) {
    if (kSettings[i].index != i) return false;
  }
  return true;
}
static_assert(are_in_order());

// One setting's bytes in the record. The largest is a text of 41 bytes and the zero byte after it that ends a
// text which fills its whole size.
using setting_bytes = std::array<char, 42>;
using orb_nv_record = std::array<setting_bytes, kSettingCount>;

// A save holds save_lock, outermost, for as long as the disk takes; nv_lock is never held meanwhile.
mutex save_lock;
alternating_file nv_files GUARDED_BY(save_lock) = {{paths::kSettingsFile0, paths::kSettingsFile1}};
mutex nv_lock;
orb_nv_record live GUARDED_BY(nv_lock);

template <typename Number>
void put_number(setting_bytes& bytes, Number value) {
  memcpy(bytes.data(), &value, sizeof value);
}

template <typename Number>
Number get_number(const setting_bytes& bytes) {
  Number value;
  memcpy(&value, bytes.data(), sizeof value);
  return value;
}

void put_text(setting_bytes& bytes, size_t size, std::string_view value) {
  bytes = {};
  copy_text(bytes.data(), size + 1, value);
}

// A key that is absent or null has its default.
orb_nv_record parse_values(json_object* record) {
  orb_nv_record values{};
  for (size_t i = 0; i < kSettings.size(); ++i) {
    const setting& setting = kSettings[i];
    json_object* value = json_member(record, setting.key);
    switch (setting.type) {
      case setting_type::integer:
        put_number(values[i], value == nullptr ? setting.default_integer : json_object_get_int(value));
        break;
      case setting_type::text:
        put_text(values[i], setting.size,
                 as_utf8(value == nullptr ? setting.default_text : json_object_get_string(value)));
        break;
      case setting_type::real:
        put_number(values[i], value == nullptr ? 0.0 : json_object_get_double(value));
        break;
    }
  }
  return values;
}

json_object* json_value(const setting& setting, const setting_bytes& bytes) {
  switch (setting.type) {
    case setting_type::integer:
      return json_object_new_int(get_number<int32_t>(bytes));
    case setting_type::text:
      return json_object_new_string(bytes.data());
    default:
      return json_object_new_double(get_number<double>(bytes));
  }
}

json_owner make_record(const orb_nv_record& values) {
  json_owner record(json_object_new_object());
  for (size_t i = 0; record && i < kSettings.size(); ++i) {
    if (!add_json_member(record.get(), kSettings[i].key, json_value(kSettings[i], values[i]))) return nullptr;
  }
  return record;
}

void save(const orb_nv_record& values) REQUIRES(save_lock) {
  const json_owner record = make_record(values);
  const int result = record ? save_alternating_file(&nv_files, record.get()) : -2;
  if (result == -2) return trace(kTraceSettings, "storage error");
  if (result != 0) return trace(kTraceSettings, "storage failure %d", result);
  trace(kTraceSettings, "stored %d to file %d", nv_files.current_id, nv_files.live);
}

void copy_setting(uint32_t index, void* buffer, int32_t length) REQUIRES(nv_lock) {
  if (index >= kSettingCount || length < 0) return;
  const size_t size = kSettings[index].size;
  const size_t asked = static_cast<size_t>(length);
  if (asked > size) memset(buffer, 0, asked);
  memcpy(buffer, live[index].data(), std::min(size, asked));
}

// False for what is no setting.
bool keep_setting(const nv_source& source) REQUIRES(nv_lock) {
  if (source.index >= kSettingCount || source.length < 0) return false;
  const size_t size = kSettings[source.index].size;
  const size_t given = static_cast<size_t>(source.length);
  if (kSettings[source.index].type == setting_type::text) {
    const char* text = static_cast<const char*>(source.buffer);
    put_text(live[source.index], size, {text, strnlen(text, given)});
    return true;
  }
  if (size > given) live[source.index] = {};
  memcpy(live[source.index].data(), source.buffer, std::min(size, given));
  return true;
}

}  // namespace

void orb_init_nv() {
  const mutex_lock saving(save_lock);
  if (make_missing_folder(paths::kSettingsFolder))
    trace(kTraceSettings, "create '%s'", paths::kSettingsFolder);
  const json_owner record = load_alternating_file(&nv_files);
  const orb_nv_record values = parse_values(record.get());
  {
    const mutex_lock lock(nv_lock);
    live = values;
  }
  if (record) return trace(kTraceSettings, "start %d from file %d", nv_files.current_id, nv_files.live);
  trace(kTraceSettings, "set defaults");
  save(values);
}

const char* setting_key(uint32_t index) { return kSettings[index].key; }

void orb_read_nv(uint32_t index, void* buffer, int32_t length) {
  const nv_target target{index, buffer, length};
  read_nv({&target, 1});
}

void read_nv(std::span<const nv_target> settings) {
  const mutex_lock lock(nv_lock);
  for (const nv_target& each : settings) copy_setting(each.index, each.buffer, each.length);
}

void orb_write_nv(uint32_t index, const void* buffer, int32_t length) {
  const nv_source source{index, buffer, length};
  write_nv({&source, 1});
}

void write_nv(std::span<const nv_source> settings) {
  const mutex_lock saving(save_lock);
  bool is_changed = false;
  orb_nv_record values;
  {
    const mutex_lock lock(nv_lock);
    for (const nv_source& each : settings) is_changed |= keep_setting(each);
    values = live;
  }
  if (is_changed) save(values);
}
