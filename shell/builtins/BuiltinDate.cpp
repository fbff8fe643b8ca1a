// date / date YYYYMMDD: shows or moves the host clock's date.
#include "../../labhost/services/HostClock.h"
#include "../Shell.h"

namespace Shell {

void AddDateBuiltin() {
    Host::AddBuiltin(L"date",
                     L"Usage: date [<YYYYMMDD>]\n"
                     L" Shows the host clock's date, or moves the clock to that date.",
                     [](Host::BuiltinContext& context) {
                         if (context.words.empty()) {
                             context.pipe.WriteLine(L"%d", HostClock::Now().ToDateInt());
                             return ExitCode(0);
                         }
                         int date = 0;
                         if (context.words.size() != 1 || context.words[0].Length() != 8 ||
                             !context.words[0].TryGetInt(date, 10000101, 99991231, nullptr) ||
                             !HostClock::SetToday(date)) {
                             return Misuse(L"date", L"one valid date as YYYYMMDD");
                         }
                         return ExitCode(0);
                     });
}

}  // namespace Shell
