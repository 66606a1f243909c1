// The operating statistics of the unit as plain records: what the data logger (logger.h) keeps, folds once a
// minute, stores and shows. No lock, no clock and no file; the caller's lock guards the records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/json.h"

enum statistics_counter : size_t {
  kHeightMotorWarnings,
  kTiltMotorWarnings,
  kPanMotorWarnings,
  kHighTemperatureWarnings,
  kHighPressureWarnings,
  kHighHumidityWarnings,
  kInvalidCameraCpu,  // 9 to 11: readings of the camera that were missing or impossible
  kInvalidCameraFpga,
  kInvalidCameraLens,
  kCounterCount,
};
inline constexpr size_t kWarningCount = kInvalidCameraCpu;  // the first ones

enum statistics_quantity : size_t {
  kUpTemperature,  // degrees Celsius; upper housing
  kCameraCpuTemperature,
  kCameraFpgaTemperature,
  kCameraLensTemperature,
  kPsbTemperature,    // power supply board
  kInternalHumidity,  // percent
  kInternalPressure,  // millibar
  kQuantityCount,
};

inline constexpr int64_t kCounterLimit = 65535;         // every counter stays there
inline constexpr int64_t kSessionAverageLimit = 65535;  // minutes; from then on the average is a running mean
inline constexpr int64_t kHistoryAverageLimit = 4294967295;
inline constexpr int64_t kSessionMinimum_minutes = 3;  // a shorter run adds nothing to the history's run time

// The samples of one quantity since the last minute step.
struct minute_samples {
  int64_t count = 0;
  double sum = 0;
  double maximum = 0;
  double minimum = 0;
};

// One quantity in one set. Maximum and minimum are of samples, the average is over minutes.
struct quantity_statistics {
  double maximum = 0;
  double minimum = 0;
  double average_sum = 0;     // the average times its count
  int64_t average_count = 0;  // minutes; 0: no average; with both others 0, too, no data yet
};

// The numbers of a period: this run of the program, or the unit's life. No count is ever negative.
struct statistics_set {
  int64_t runtime_minutes = 0;  // 0 to 65535 in the session's set, to the type's limit in the history's
  int64_t sessions = 0;         // of at least 3 minutes; the history's set only
  std::array<int64_t, kCounterCount> counters{};
  std::array<quantity_statistics, kQuantityCount> quantities{};
};

struct statistics {
  statistics_set session;
  statistics_set history;
  std::array<minute_samples, kQuantityCount> minute{};
};

// Adds one to the counter in both sets, up to 65535.
void count_event(statistics& numbers, statistics_counter counter);

// Takes a sample into the minute; one that is not finite is ignored.
void add_sample(statistics& numbers, statistics_quantity quantity, double value);

// The minute is over: both sets grow by its run time and its samples, which are then forgotten. A quantity
// without samples stays as it is.
void step_minute(statistics& numbers);

// 0 while there is no data.
double average_of(const quantity_statistics& quantity);

// The history as its file holds it, without the generation numbers; null when it could not be built.
json_owner history_record(const statistics_set& history);

// The history of a file. What is missing, of another type, not finite or a negative count is 0, what is above
// a counter's limit stands at it; an average without its sum or its count starts afresh.
statistics_set parse_history(json_object* record);

// Adds both sets as texts with units ("present_...", "historical_..."); false when memory has run out.
bool add_statistics_texts(json_object* readings, const statistics& numbers);
