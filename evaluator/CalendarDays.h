// Dates as decimal numbers (year * 10000 + month * 100 + day) and day counts
// (days since 30-Dec-1899), on the Gregorian calendar of years 1 to 9999.
#pragma once

#include <cstdint>
#include <optional>

namespace evaluator {

// The day count of a date number; nothing for a number that is no whole
// number or names no date of the calendar (month 13, 30 February, 0).
std::optional<std::int64_t> DayCountOfDateNumber(double dateNumber);

// The date number of the day that a day count falls on (a fraction is the
// time within that day); nothing outside the calendar's years.
std::optional<std::int64_t> DateNumberOfDayCount(double dayCount);

}  // namespace evaluator
