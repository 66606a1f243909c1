// The sentence is NMEA 0183's GGA:
// "$GPGGA,hhmmss.ss,ddmm.mmmm,N,dddmm.mmmm,E,…".
#include "recorder/gps.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string_view>

#include "base/mutex.h"
#include "base/text.h"
#include "base/trace.h"

namespace {

constexpr std::string_view kSentenceName = "$GPGGA";
constexpr size_t kSentenceSize = 81;
constexpr size_t kTextSize = 21;
constexpr size_t kMaximumFields = 15;

// A number as the sentence writes it: the last two digits before the point are minutes, or a time's seconds.
struct gps_range {
  double maximum;
  double sixtieths_end;
};
constexpr gps_range kLatitude{9000, 60};
constexpr gps_range kLongitude{18000, 60};
constexpr gps_range kTime{235960.999, 61};  // with a leap second

struct gps_location {
  char latitude[kTextSize] = "";
  char longitude[kTextSize] = "";
  char time[kTextSize] = "";
};

struct gps_state {
  mutex lock;
  char sentence[kSentenceSize] GUARDED_BY(lock) = "";
  gps_location location GUARDED_BY(lock);
};

constinit gps_state gps;

struct gps_fields {
  std::array<std::string_view, kMaximumFields> values;  // empty behind the last
  int count = 0;
};

gps_fields split(std::string_view sentence) {
  gps_fields fields;
  for (std::string_view& value : fields.values) {
    const size_t comma = sentence.find(',');
    value = sentence.substr(0, comma);
    ++fields.count;
    if (comma == sentence.npos) break;
    sentence.remove_prefix(comma + 1);
  }
  return fields;
}

std::optional<double> number_in(const gps_range& range, std::string_view field) {
  double value = 0;
  const auto [rest, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  const bool whole = error == std::errc() && rest == field.data() + field.size();
  const bool in_range = value >= 0 && value <= range.maximum && std::fmod(value, 100) < range.sixtieths_end;
  return whole && in_range ? std::optional(value) : std::nullopt;
}

double degrees(double value, bool negative) {
  const double whole = std::trunc(value / 100);
  const double result = whole + (value - 100 * whole) / 60;
  return negative ? -result : result;
}

std::optional<gps_location> parse_location(const gps_fields& fields) {
  const auto& values = fields.values;
  const std::optional<double> time = number_in(kTime, values[1]);
  const std::optional<double> latitude = number_in(kLatitude, values[2]);
  const std::optional<double> longitude = number_in(kLongitude, values[4]);
  if (!time || !latitude || !longitude) return std::nullopt;
  gps_location location;
  snprintf(location.latitude, kTextSize, "%.5f", degrees(*latitude, values[3] == "S"));
  snprintf(location.longitude, kTextSize, "%.5f", degrees(*longitude, values[5] == "W"));
  const double hours = std::trunc(*time / 10000);
  const double rest = *time - 10000 * hours;
  const double minutes = std::trunc(rest / 100);
  if (minutes >= 60) return std::nullopt;
  snprintf(location.time, kTextSize, "%02.0f:%02.0f:%02.2f UTC", hours, minutes, rest - 100 * minutes);
  return location;
}

void store_sentence(const char* sentence) {
  const mutex_lock lock(gps.lock);
  copy_text(gps.sentence, sizeof gps.sentence, sentence);
}

void store_location(const gps_location& location) {
  const mutex_lock lock(gps.lock);
  gps.location = location;
}

}  // namespace

int orb_set_recorder_gps_data(const char* sentence) {
  char text[kSentenceSize];
  copy_text(text, sizeof text, sentence);
  store_sentence(text);
  const gps_fields fields = split(text);
  trace(kTraceRecorder, "gps values %d", fields.count);
  if (fields.values[0] != kSentenceName) return -1;
  const std::optional<gps_location> location = parse_location(fields);
  if (!location) return 0;
  trace(kTraceRecorder, "gps location '%s' '%s' '%s'", location->latitude, location->longitude,
        location->time);
  store_location(*location);
  return 0;
}

void orb_load_recorder_gps_data(char* text, size_t size) {
  const mutex_lock lock(gps.lock);
  copy_text(text, size, gps.sentence);
}

void orb_set_recorder_gps_location(const char* latitude, const char* longitude, const char* time) {
  gps_location location;
  copy_text(location.latitude, sizeof location.latitude, latitude);
  copy_text(location.longitude, sizeof location.longitude, longitude);
  copy_text(location.time, sizeof location.time, time);
  store_location(location);
}

void orb_load_recorder_gps_location(char* latitude, size_t latitude_size, char* longitude,
                                    size_t longitude_size, char* time, size_t time_size) {
  const mutex_lock lock(gps.lock);
  copy_text(latitude, latitude_size, gps.location.latitude);
  copy_text(longitude, longitude_size, gps.location.longitude);
  copy_text(time, time_size, gps.location.time);
}
