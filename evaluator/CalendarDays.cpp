#include "CalendarDays.h"

#include <cmath>

namespace evaluator {
namespace {

constexpr std::int64_t kFirstYear = 1;
constexpr std::int64_t kLastYear = 9999;

bool IsLeapYear(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

std::int64_t DaysInMonth(std::int64_t year, std::int64_t month) {
    static constexpr std::int64_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Counting from 1 March of year 0 puts the leap day at the end of each
// counted year, so that a month's first day follows from its index alone.
// The counts below use years that begin in March: January and February
// belong to the year before.
constexpr std::int64_t kDaysPer400Years = 146097;

std::int64_t DaysSinceMarchOfYearZero(std::int64_t year, std::int64_t month, std::int64_t day) {
    std::int64_t const marchYear = month <= 2 ? year - 1 : year;
    std::int64_t const monthFromMarch = month <= 2 ? month + 9 : month - 3;  // March 0 ... February 11
    std::int64_t const dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
    std::int64_t const era = marchYear / 400;  // years >= 0 only
    std::int64_t const yearOfEra = marchYear - era * 400;
    std::int64_t const dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * kDaysPer400Years + dayOfEra;
}

// 30-Dec-1899 counted from 1 March of year 0.
std::int64_t const kDayZero = DaysSinceMarchOfYearZero(1899, 12, 30);

}  // namespace

std::optional<std::int64_t> DayCountOfDateNumber(double dateNumber) {
    if (!(dateNumber >= 1) || dateNumber > 99991231 || dateNumber != std::floor(dateNumber)) return std::nullopt;
    auto const number = static_cast<std::int64_t>(dateNumber);
    std::int64_t const year = number / 10000;
    std::int64_t const month = number / 100 % 100;
    std::int64_t const day = number % 100;
    if (year < kFirstYear || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month)) return std::nullopt;
    return DaysSinceMarchOfYearZero(year, month, day) - kDayZero;
}

std::optional<std::int64_t> DateNumberOfDayCount(double dayCount) {
    static std::int64_t const kFirst = DaysSinceMarchOfYearZero(kFirstYear, 1, 1) - kDayZero;
    static std::int64_t const kLast = DaysSinceMarchOfYearZero(kLastYear, 12, 31) - kDayZero;
    double const whole = std::floor(dayCount);
    if (!(whole >= static_cast<double>(kFirst) && whole <= static_cast<double>(kLast))) return std::nullopt;
    std::int64_t const days = static_cast<std::int64_t>(whole) + kDayZero;
    std::int64_t const era = days / kDaysPer400Years;
    std::int64_t const dayOfEra = days - era * kDaysPer400Years;
    std::int64_t const yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    std::int64_t const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    std::int64_t const monthFromMarch = (5 * dayOfYear + 2) / 153;
    std::int64_t const day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    std::int64_t const month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    std::int64_t const year = era * 400 + yearOfEra + (month <= 2 ? 1 : 0);
    return year * 10000 + month * 100 + day;
}

}  // namespace evaluator
