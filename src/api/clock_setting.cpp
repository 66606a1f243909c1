#include "api/clock_setting.h"

#include <sys/time.h>

#include <cstring>

#include "base/clock.h"
#include "base/text.h"

namespace {

struct clock_field {
  int lowest;
  int highest;
  int tm::*member;
  int origin;  // what the member counts from
};

struct clock_form {
  char separator;
  clock_field fields[3];
};

constexpr clock_form kTimeOfDay{':',
                                {{0, 23, &tm::tm_hour, 0}, {0, 59, &tm::tm_min, 0}, {0, 59, &tm::tm_sec, 0}}};
constexpr clock_form kDate{
    '-', {{1900, 9999, &tm::tm_year, 1900}, {1, 12, &tm::tm_mon, 1}, {1, 31, &tm::tm_mday, 0}}};

std::optional<time_t> with_fields(const clock_form& form, time_t now, const char* text) {
  tm local = local_time(now);
  for (const clock_field& field : form.fields) {
    if (text == nullptr) return std::nullopt;
    const int value = number_or_zero(text);
    if (value < field.lowest || value > field.highest) return std::nullopt;
    local.*field.member = value - field.origin;
    const char* separator = strchr(text, form.separator);
    text = separator == nullptr ? nullptr : separator + 1;
  }
  local.tm_isdst = -1;  // another day can have another offset
  return mktime(&local);
}

}  // namespace

std::optional<time_t> with_time_of_day(time_t now, const char* text) {
  return with_fields(kTimeOfDay, now, text);
}

std::optional<time_t> with_date(time_t now, const char* text) { return with_fields(kDate, now, text); }

bool set_clock(time_t seconds) {
  const timeval time{.tv_sec = seconds, .tv_usec = 0};
  return settimeofday(&time, nullptr) == 0;
}
