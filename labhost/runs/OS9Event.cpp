// Named events: one value per name for the whole process, kept under the
// host's run lock so that a wait on it is a wait like any other (a stop of
// the waiting run ends it). An event lives on after its last object.
#include <map>

#include "HostServices.h"
#include "Runs.h"

struct OS9Event::Shared {
    int value;
    WaitList waiters;
};

namespace {
// Under the runs' lock (Runs::Locked).
std::map<std::wstring, std::shared_ptr<OS9Event::Shared>>& Events() {
    static std::map<std::wstring, std::shared_ptr<OS9Event::Shared>> events;
    return events;
}
}  // namespace

OS9Event::OS9Event(int, wchar_t const* name, int initialValue, int, int) {
    Runs::Locked([&] {
        std::shared_ptr<Shared>& event = Events()[name != nullptr ? name : L""];
        if (!event) event = std::make_shared<Shared>(Shared{initialValue, {}});
        shared_ = event;
    });
}

void OS9Event::Set(int value) const {
    Runs::Change(shared_->waiters, [&] { shared_->value = value; });
}

void OS9Event::Wait(int smallest, int largest, unsigned int milliseconds, bool& reached) const {
    reached = TryWait(smallest, largest, milliseconds, nullptr) != 0;
}

int OS9Event::TryWait(int smallest, int largest, unsigned int milliseconds, int* value) const {
    int seen = 0;
    bool reached = Runs::Await(&shared_->waiters, Runs::DeadlineIn(milliseconds), [&] {
        seen = shared_->value;
        return seen >= smallest && seen <= largest;
    });
    if (value != nullptr) *value = seen;
    return reached ? 1 : 0;
}
