#include "store/statistics.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

namespace {

constexpr int64_t kNoLimit = std::numeric_limits<int64_t>::max();

constexpr std::array<const char*, kWarningCount> kWarnings{
    "height_motor_warnings",     "tilt_motor_warnings",    "pan_motor_warnings",
    "high_temperature_warnings", "high_pressure_warnings", "high_humidity_warnings"};

struct quantity_row {
  statistics_quantity quantity;
  const char* place;  // the keys are PLACE_max_KIND and so on
  const char* kind;
  int decimals;  // of its texts
  const char* unit;
  statistics_counter invalid = kCounterCount;  // its invalid readings; kCounterCount: they are not counted
};

// In the order of the file and of the readings.
constexpr std::array<quantity_row, kQuantityCount> kQuantities{{
    {kUpTemperature, "up", "temperature", 1, "°C"},
    {kCameraCpuTemperature, "camera_cpu", "temperature", 1, "°C", kInvalidCameraCpu},
    {kCameraFpgaTemperature, "camera_fpga", "temperature", 1, "°C", kInvalidCameraFpga},
    {kCameraLensTemperature, "camera_lens", "temperature", 1, "°C", kInvalidCameraLens},
    {kPsbTemperature, "psb", "temperature", 1, "°C"},
    {kInternalHumidity, "internal", "humidity", 0, "%"},
    {kInternalPressure, "internal", "pressure", 0, "mb"},
}};

std::string key_of(const quantity_row& row, const char* number) {
  return std::string(row.place) + "_" + number + "_" + row.kind;
}
std::string invalid_key_of(const quantity_row& row) {
  return std::string("invalid_") + row.place + "_" + row.kind;
}

constexpr double kLargestSample = 1e10;  // what is larger is nonsense and would spoil an average for good

// --- the minute -------------------------------------------------------------------------------------------

void add_up_to(int64_t& number, int64_t amount, int64_t limit) {
  number = number > limit - amount ? limit : number + amount;
}

void fold(quantity_statistics& quantity, const minute_samples& minute, int64_t count_limit) {
  // An average that starts afresh leaves the extremes of a lifetime.
  const bool first = quantity.average_count == 0 && quantity.maximum == 0 && quantity.minimum == 0;
  quantity.maximum = first ? minute.maximum : std::max(quantity.maximum, minute.maximum);
  quantity.minimum = first ? minute.minimum : std::min(quantity.minimum, minute.minimum);
  if (quantity.average_count < count_limit) {
    ++quantity.average_count;
  } else {
    quantity.average_sum -= average_of(quantity);
  }
  quantity.average_sum += minute.sum / static_cast<double>(minute.count);
}

void step_runtime(statistics& numbers) {
  add_up_to(numbers.session.runtime_minutes, 1, kCounterLimit);
  const int64_t minutes = numbers.session.runtime_minutes;
  if (minutes < kSessionMinimum_minutes) return;
  const bool counts_now = minutes == kSessionMinimum_minutes;
  add_up_to(numbers.history.runtime_minutes, counts_now ? minutes : 1, kNoLimit);
  if (counts_now) add_up_to(numbers.history.sessions, 1, kCounterLimit);
}

// --- the file ---------------------------------------------------------------------------------------------

// Shows every number of the history to `visit`, with its key and a count with its limit, in the file's order.
template <typename Set, typename Visitor>
void visit_history(Set& history, const Visitor& visit) {
  visit("total_runtime", history.runtime_minutes, kNoLimit);
  visit("session_count", history.sessions, kCounterLimit);
  for (size_t i = 0; i < kWarningCount; ++i) visit(kWarnings[i], history.counters[i], kCounterLimit);
  for (const quantity_row& row : kQuantities) {
    auto& quantity = history.quantities[row.quantity];
    visit(key_of(row, "max"), quantity.maximum);
    visit(key_of(row, "min"), quantity.minimum);
    visit(key_of(row, "avg") + "_acc", quantity.average_sum);
    visit(key_of(row, "avg") + "_count", quantity.average_count, kNoLimit);
    if (row.invalid != kCounterCount) {
      visit(invalid_key_of(row) + "_count", history.counters[row.invalid], kCounterLimit);
    }
  }
}

struct history_writer {
  json_object* record;
  bool* good;

  void add(const std::string& key, json_object* value) const {
    *good &= add_json_member(record, key.c_str(), value);
  }
  void operator()(const std::string& key, double number) const { add(key, json_object_new_double(number)); }
  void operator()(const std::string& key, int64_t count, int64_t) const {
    add(key, json_object_new_int64(count));
  }
};

struct history_reader {
  json_object* record;

  // NaN stands for a number that is not there or is none.
  void operator()(const std::string& key, double& number) const {
    json_object* value = json_member(record, key.c_str());
    const bool is_number =
        json_object_is_type(value, json_type_double) != 0 || json_object_is_type(value, json_type_int) != 0;
    number = is_number ? json_object_get_double(value) : NAN;
  }
  void operator()(const std::string& key, int64_t& count, int64_t limit) const {
    json_object* value = json_member(record, key.c_str());
    const bool is_count = json_object_is_type(value, json_type_int) != 0;
    count = is_count ? std::clamp<int64_t>(json_object_get_int64(value), 0, limit) : 0;
  }
};

void mend(quantity_statistics& quantity) {
  if (!std::isfinite(quantity.maximum)) quantity.maximum = 0;
  if (!std::isfinite(quantity.minimum)) quantity.minimum = 0;
  if (!std::isfinite(quantity.average_sum)) quantity.average_count = 0;
  if (quantity.average_count == 0) quantity.average_sum = 0;
}

// --- the texts --------------------------------------------------------------------------------------------

struct text_writer {
  json_object* readings;
  const char* prefix;
  bool good = true;

  void add(const std::string& key, const char* text) {
    good &= add_json_member(readings, (prefix + key).c_str(), json_object_new_string(text));
  }
  void add_count(const std::string& key, int64_t count, const char* unit = "") {
    char text[32];
    snprintf(text, sizeof text, "%" PRId64 "%s", count, unit);
    add(key, text);
  }
  void add_number(const std::string& key, double number, int decimals, const char* unit) {
    char text[336];  // the largest double has 309 digits before the point
    snprintf(text, sizeof text, "%.*f %s", decimals, number, unit);
    add(key, text);
  }
};

void add_warnings(text_writer& texts, const statistics_set& set) {
  for (size_t i = 0; i < kWarningCount; ++i) texts.add_count(kWarnings[i], set.counters[i]);
}

void add_quantities(text_writer& texts, const statistics_set& set) {
  for (const quantity_row& row : kQuantities) {
    const quantity_statistics& quantity = set.quantities[row.quantity];
    texts.add_number(key_of(row, "max"), quantity.maximum, row.decimals, row.unit);
    texts.add_number(key_of(row, "min"), quantity.minimum, row.decimals, row.unit);
    texts.add_number(key_of(row, "avg"), average_of(quantity), row.decimals, row.unit);
    if (row.invalid != kCounterCount) texts.add_count(invalid_key_of(row), set.counters[row.invalid]);
  }
}

double average_runtime(const statistics_set& history) {
  if (history.sessions == 0) return 0;
  return static_cast<double>(history.runtime_minutes) / static_cast<double>(history.sessions);
}

}  // namespace

void count_event(statistics& numbers, statistics_counter counter) {
  add_up_to(numbers.session.counters[counter], 1, kCounterLimit);
  add_up_to(numbers.history.counters[counter], 1, kCounterLimit);
}

void add_sample(statistics& numbers, statistics_quantity quantity, double value) {
  if (!(std::abs(value) <= kLargestSample)) return;  // nor what is no number
  minute_samples& minute = numbers.minute[quantity];
  const bool first = minute.count == 0;
  minute.maximum = first ? value : std::max(minute.maximum, value);
  minute.minimum = first ? value : std::min(minute.minimum, value);
  minute.sum += value;
  ++minute.count;
}

void step_minute(statistics& numbers) {
  step_runtime(numbers);
  for (size_t i = 0; i < kQuantityCount; ++i) {
    if (numbers.minute[i].count == 0) continue;
    fold(numbers.session.quantities[i], numbers.minute[i], kSessionAverageLimit);
    fold(numbers.history.quantities[i], numbers.minute[i], kHistoryAverageLimit);
  }
  numbers.minute = {};
}

double average_of(const quantity_statistics& quantity) {
  if (quantity.average_count == 0) return 0;
  return quantity.average_sum / static_cast<double>(quantity.average_count);
}

json_owner history_record(const statistics_set& history) {
  json_owner record(json_object_new_object());
  bool good = record != nullptr;
  visit_history(history, history_writer{record.get(), &good});
  return good ? std::move(record) : nullptr;
}

statistics_set parse_history(json_object* record) {
  statistics_set history;
  visit_history(history, history_reader{record});
  for (quantity_statistics& quantity : history.quantities) mend(quantity);
  return history;
}

bool add_statistics_texts(json_object* readings, const statistics& numbers) {
  text_writer present{readings, "present_"};
  present.add_count("runtime", numbers.session.runtime_minutes, " MIN");
  add_warnings(present, numbers.session);
  add_quantities(present, numbers.session);

  text_writer history{readings, "historical_"};
  history.add_count("total_runtime", numbers.history.runtime_minutes, " MIN");
  history.add_number("average_runtime", average_runtime(numbers.history), 0, "MIN");
  history.add_count("session_count", numbers.history.sessions);
  add_warnings(history, numbers.history);
  add_quantities(history, numbers.history);
  return present.good && history.good;
}
