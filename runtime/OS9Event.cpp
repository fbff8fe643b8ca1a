// Named events: one value per name for the whole process, kept under the
// host's run lock so that a wait on it is a wait like any other (a stop of
// the waiting run ends it). An event lives on after its last object.
#include <map>

#include "HostServices.h"
#include "Runs.h"

struct OS9Event::Shared {
    int value;
};

namespace {
// Under Runs::Mutex().
std::map<std::wstring, std::shared_ptr<OS9Event::Shared>>& Events() {
    static std::map<std::wstring, std::shared_ptr<OS9Event::Shared>> events;
    return events;
}
}  // namespace

OS9Event::OS9Event(int, wchar_t const* name, int initialValue, int, int) {
    std::lock_guard<std::mutex> lock(Runs::Mutex());
    std::shared_ptr<Shared>& event = Events()[name != nullptr ? name : L""];
    if (!event) event = std::make_shared<Shared>(Shared{initialValue});
    shared_ = event;
}

void OS9Event::Set(int value) const {
    std::lock_guard<std::mutex> lock(Runs::Mutex());
    shared_->value = value;
    Runs::NotifyAll();
}

void OS9Event::Wait(int smallest, int largest, unsigned int milliseconds, bool& reached) const {
    reached = TryWait(smallest, largest, milliseconds, nullptr) != 0;
}

int OS9Event::TryWait(int smallest, int largest, unsigned int milliseconds, int* value) const {
    std::unique_lock<std::mutex> lock(Runs::Mutex());
    bool reached = Runs::WaitUntil(lock, Runs::DeadlineIn(milliseconds),
                                   [&] { return shared_->value >= smallest && shared_->value <= largest; });
    if (value != nullptr) *value = shared_->value;
    return reached ? 1 : 0;
}
