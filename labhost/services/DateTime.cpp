// Dates as seconds since 30-Dec-1899 00:00 local time, by integer civil-date
// arithmetic, and the host clock that `--today` shifts by whole days.
#include <atomic>
#include <ctime>

#include "../HostSandbox.h"
#include "ExitCode.h"
#include "HostClock.h"
#include "UsageLog.h"

// The system clock is read as time_t: 32 bits of it end in January 2038.
static_assert(sizeof(std::time_t) >= 8, "build with 64-bit time_t (_TIME_BITS=64 on 32-bit targets)");

namespace {
constexpr std::int64_t SecondsPerDay = 86400;
// Days from 30-Dec-1899 to 1-Jan-1970.
constexpr std::int64_t UnixEpochDay = 25569;

// Days since 1-Mar-0000 style civil arithmetic, shifted to 30-Dec-1899 = 0.
std::int64_t DaysFromCivil(int year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    std::int64_t yearOfEra = year - era * 400;
    std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468 + UnixEpochDay;
}

void CivilFromDays(std::int64_t days, int& year, int& month, int& day) {
    std::int64_t z = days - UnixEpochDay + 719468;
    std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    std::int64_t dayOfEra = z - era * 146097;
    std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    std::int64_t mp = (5 * dayOfYear + 2) / 153;
    day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
    month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
}

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0); }

// Whole days added to the system date; set by HostClock::SetToday.
std::atomic<std::int64_t> dayShift{0};

std::int64_t SystemLocalSeconds() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return DaysFromCivil(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday) * SecondsPerDay +
           local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
}
}  // namespace

bool DateTime::IsValidDateInt(int date) {
    int year = date / 10000, month = date / 100 % 100, day = date % 100;
    if (date <= 0 || year < 1 || year > 9999 || month < 1 || month > 12 || day < 1) return false;
    int nextYear = month == 12 ? year + 1 : year, nextMonth = month == 12 ? 1 : month + 1;
    return day <= DaysFromCivil(nextYear, nextMonth, 1) - DaysFromCivil(year, month, 1);
}

DateTime::DateTime() : value(NoDate) {}

DateTime::DateTime(int date, int time) : value(NoDate) {
    if (!TrySetValue(date, time)) throw ExitCode(0, 1, HostExit::InvalidDate);
}

bool DateTime::TrySetValue(int date, int time) {
    if (date == 0) {
        value = NoDate;
        return true;
    }
    if (!IsValidDateInt(date)) return false;
    int hours = time / 10000, minutes = time / 100 % 100, seconds = time % 100;
    value = DaysFromCivil(date / 10000, date / 100 % 100, date % 100) * SecondsPerDay + hours * 3600 + minutes * 60 +
            seconds;
    return true;
}

DateTime DateTime::Now() { return HostClock::Now(); }

int DateTime::ToDateInt() const {
    if (value == NoDate) return 0;
    int year = 0, month = 0, day = 0;
    CivilFromDays(FloorDiv(value, SecondsPerDay), year, month, day);
    return year * 10000 + month * 100 + day;
}

int DateTime::ToDays() const { return value == NoDate ? 0 : static_cast<int>(FloorDiv(value, SecondsPerDay)); }

DateTime DateTime::FromDays(int days) {
    DateTime result;
    result.value = static_cast<std::int64_t>(days) * SecondsPerDay;
    return result;
}

int DateTime::SecondOfDay() const {
    if (value == NoDate) return 0;
    return static_cast<int>(value - FloorDiv(value, SecondsPerDay) * SecondsPerDay);
}

DateTime HostClock::Now() {
    DateTime now;
    now.value = SystemLocalSeconds() + dayShift.load() * SecondsPerDay;
    if (HostSandbox* sandbox = HostSandbox::Active()) now.value = sandbox->Day() * SecondsPerDay + now.SecondOfDay();
    return now;
}

bool HostClock::SetToday(int dateInt) {
    if (!DateTime::IsValidDateInt(dateInt)) return false;
    std::int64_t today = FloorDiv(SystemLocalSeconds(), SecondsPerDay);
    dayShift.store(DateTime(dateInt, 0).ToDays() - today);
    return true;
}
