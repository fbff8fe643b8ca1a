#include "CalendarDays.h"

#include <cmath>

#include "UsageLog.h"

// The host's DateTime does the calendar arithmetic; this unit only guards
// the double values of expressions on their way in and out.
namespace evaluator {

std::optional<std::int64_t> DayCountOfDateNumber(double dateNumber) {
    if (!(dateNumber >= 1) || dateNumber > 99991231 || dateNumber != std::floor(dateNumber)) return std::nullopt;
    auto const number = static_cast<int>(dateNumber);
    if (!DateTime::IsValidDateInt(number)) return std::nullopt;
    return DateTime(number, 0).ToDays();
}

std::optional<std::int64_t> DateNumberOfDayCount(double dayCount) {
    static int const first = DateTime(10101, 0).ToDays();
    static int const last = DateTime(99991231, 0).ToDays();
    double const whole = std::floor(dayCount);
    if (!(whole >= first && whole <= last)) return std::nullopt;
    return DateTime::FromDays(static_cast<int>(whole)).ToDateInt();
}

}  // namespace evaluator
