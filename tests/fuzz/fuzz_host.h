// What the schedule and command-line targets share: a host of their own with
// UsageLog.dll and the shell's builtins in a fresh data folder, and an input
// that runs within a time budget and leaves nothing behind for the next.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "System.h"
#include "fuzz_check.h"
#include "labhost/Host.h"
#include "labhost/services/HostClock.h"
#include "shell/Shell.h"

namespace fuzz {

namespace fs = std::filesystem;

// Started once per process.
inline fs::path const& DataFolder() {
    static fs::path const folder = [] {
        // A folder in memory where there is one: saves sync the file.
        std::string pattern = (fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/labshell_fuzz_XXXXXX");
        Check(mkdtemp(pattern.data()) != nullptr, "a data folder");
        std::string error, warning;
        Check(Host::OpenDataFolder(WString::FromUtf8(pattern), error), "the data folder opens");
        fs::path bin = fs::read_symlink("/proc/self/exe").parent_path();
        Check(Host::LoadPlugin((bin / "UsageLog.dll").string(), error, warning), "UsageLog.dll loads");
        Shell::AddBuiltins();
        return fs::path(pattern);
    }();
    return folder;
}

// Shell-thread waits that no stop ends: `sleep MS` and `wait ID NAME MS`,
// also behind SHELL, are run only with at most 50 ms, else skipped.
inline bool IsBounded(WString const& line) {
    std::vector<WString> words = SplitCommandWords(line);
    std::size_t first = 0;
    while (first < words.size() && words[first].str == L"SHELL") ++first;
    if (first == words.size()) return true;
    std::size_t timeWord = words[first].str == L"sleep" ? first + 1 : words[first].str == L"wait" ? first + 2 : 0;
    unsigned int milliseconds = 0;
    return timeWord == 0 || (timeWord < words.size() && words[timeWord].TryGetUInt(milliseconds, 0, 50, nullptr));
}

// One input: past its budget the shell's foreground run is stopped, as
// Ctrl-C does, and the caller runs nothing more. At its end every run is
// stopped (none may survive that) and the items are deleted; clock, status
// table and run log start as at the first input.
class Input {
public:
    Input() : deadline_(std::chrono::steady_clock::now() + std::chrono::milliseconds(100)) {
        Shell::WithdrawExit();
        HostClock::SetToday(20240615);
        System::status.Clear();
        System::status.Set(L"InfoDateTimeValid", true);
        System::runLog.enabled = true;
        guard_ = std::thread([this, ended = finished_.get_future()] {
            if (ended.wait_until(deadline_) == std::future_status::ready) return;
            while (ended.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready)
                if (int id = Host::ForegroundRunId()) Host::StopRun(id);
        });
    }
    ~Input() {
        finished_.set_value();
        guard_.join();
        Host::StopAllRuns(true);
        Check(Host::LiveRuns().empty(), "no run outlives a stop of all");
        WStringArray keys;
        System::usage.GetAllKeys(keys);
        for (unsigned int i = 0; i < keys.count; ++i) System::usage.TryDeleteItem(keys[i].c_str());
        System::usage.SaveChanges();
    }
    bool Spent() const { return std::chrono::steady_clock::now() >= deadline_ || Shell::ExitRequested(); }

private:
    std::chrono::steady_clock::time_point const deadline_;
    std::promise<void> finished_;
    std::thread guard_;
};

}  // namespace fuzz

// The host starts before the first input, so that no input's time counts
// it, and ends, with its folder, before the folder's name is destroyed.
// Defined here: each target includes this header once.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::DataFolder();
    std::atexit([] { Host::Shutdown(), fuzz::fs::remove_all(fuzz::DataFolder()); });
    return 0;
}
