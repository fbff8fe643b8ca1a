// The host clock: the system's local time, shifted by whole days so that the
// date is the one that `--today` or `date YYYYMMDD` set, while the time of day
// runs on.
#pragma once

#include "UsageLog.h"

namespace HostClock {
DateTime Now();
// Moves the clock to that date (a valid UsageDateInt); false for an invalid one.
bool SetToday(int dateInt);
}  // namespace HostClock
