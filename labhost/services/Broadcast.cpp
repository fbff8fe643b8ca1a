// Broadcasts: listeners are called in the order they were added, on the
// sender's thread, outside the list's lock so that a listener may work on
// the store or add and remove listeners.
#include <algorithm>
#include <utility>

#include "HostServices.h"

namespace {
struct Listeners {
    std::mutex mutex;
    int nextHandle = 1;
    std::vector<std::pair<int, BroadcastManager::Listener>> entries;
};

Listeners& TheListeners() {
    static Listeners listeners;
    return listeners;
}
}  // namespace

UpdateExternalUsageDataBroadcast::UpdateExternalUsageDataBroadcast(int processId, WString const& key, int value)
    : processId(processId), key(key), value(value), handled(false) {}

void BroadcastManager::Broadcast(int id, void* message) {
    std::vector<std::pair<int, Listener>> entries;
    {
        std::lock_guard<std::mutex> lock(TheListeners().mutex);
        entries = TheListeners().entries;
    }
    for (auto const& entry : entries) entry.second(id, message);
}

int BroadcastManager::AddListener(Listener listener) {
    Listeners& listeners = TheListeners();
    std::lock_guard<std::mutex> lock(listeners.mutex);
    int handle = listeners.nextHandle++;
    listeners.entries.emplace_back(handle, std::move(listener));
    return handle;
}

void BroadcastManager::RemoveListener(int handle) {
    Listeners& listeners = TheListeners();
    std::lock_guard<std::mutex> lock(listeners.mutex);
    std::erase_if(listeners.entries, [handle](auto const& entry) { return entry.first == handle; });
}
