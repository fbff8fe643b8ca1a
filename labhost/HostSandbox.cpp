#include "HostSandbox.h"

#include <utility>

#include "System.h"
#include "store/UsageStore.h"
#include "store/UsageStoreFile.h"

namespace {

// Read on every call to the store: fixed in the thread's block, not looked
// up through the dynamic loader.
thread_local HostSandbox* activeSandbox [[gnu::tls_model("initial-exec")]] = nullptr;

// Through the store's public face only, so that its internals may change.
void CopyItems(UsageStore const& from, UsageStore& to) {
    WStringArray keys;
    from.AppendAllKeys(keys);
    for (unsigned int i = 0; i < keys.count; ++i) {
        UsageReference item(from.Find(keys[i].str));
        if (item.IsEmpty()) continue;  // deleted since the keys were listed
        UsageReference copy(
            to.FindOrCreate(keys[i].str, item.GetDataType(), static_cast<std::uint32_t>(item.GetValue())));
        if (!item.HasHistory()) continue;
        for (int date : ParseUsageHistory(item.GetHistory().ToUtf8().c_str())) copy.AddDateToHistory(date);
    }
}

}  // namespace

HostSandbox::HostSandbox(UsageStore& live, int day)
    : store_(std::make_unique<UsageStore>()), day_(day), outer_(activeSandbox) {
    CopyItems(live, *store_);
    activeSandbox = this;
}

HostSandbox::~HostSandbox() { activeSandbox = outer_; }

void HostSandbox::SetDay(int day) { day_ = day; }

std::vector<WString> HostSandbox::TakeErrorLines() { return std::exchange(errorLines_, {}); }

HostSandbox* HostSandbox::Active() { return activeSandbox; }

void HostSandbox::HoldBack(LogFile const& log, WString const& line) {
    if (&log == &System::errorLog) errorLines_.push_back(line);
}
