// Setting the system's clock to what a client gives: the time of day or the date, as local time.
#pragma once

#include <ctime>
#include <optional>

// `now` with the time of day of a text "hour:minute:second", or the date of a text "year-month-day". A field
// may have any number of digits. Nothing for a field that is missing, no number, or outside 0 to 23, 59 and
// 59, or 1900 to 9999, 1 to 12 and 1 to 31; a day that the month does not have counts on into the next.
std::optional<time_t> with_time_of_day(time_t now, const char* text);
std::optional<time_t> with_date(time_t now, const char* text);

// False when the system refuses.
bool set_clock(time_t seconds);
