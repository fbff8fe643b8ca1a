// In-process host for the tests of the plug-in's commands: a data folder of
// the suite's own, the plug-in loaded once, command lines run in the
// foreground with their output captured or on threads of their own, and the
// run log read line by line without its time stamps.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <future>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "frame/host/System.h"
#include "labhost/Host.h"
#include "tests/support/test_support.h"

using Lines = std::vector<std::string>;

// Lines that a run writes, as they come. A test may keep the run inside the
// write of one chosen line, to act between two of its passes; the run then
// holds the output lock, so no other run may write a line meanwhile.
class LineCapture {
public:
    Pipe MakePipe() {
        return Pipe([this](WString const& text) {
            std::unique_lock<std::mutex> lock(mutex_);
            lines_.push_back(text.ToUtf8());
            changed_.notify_all();
            changed_.wait(lock, [&] { return !holdAt_ || lines_.back() != *holdAt_; });
        });
    }
    // The run that writes `line` stays in that write until the next HoldAt
    // or Release.
    void HoldAt(std::optional<std::string> const& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        holdAt_ = line;
        changed_.notify_all();
    }
    void Release() { HoldAt(std::nullopt); }
    // A guard, not a timing: false only when the line never came.
    bool AwaitLine(std::string const& line) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60),
                                 [&] { return std::find(lines_.begin(), lines_.end(), line) != lines_.end(); });
    }
    // The lines written since the last call.
    Lines Take() {
        std::lock_guard<std::mutex> lock(mutex_);
        Lines taken(lines_.begin() + static_cast<std::ptrdiff_t>(taken_), lines_.end());
        taken_ = lines_.size();
        return taken;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    Lines lines_;
    size_t taken_ = 0;
    std::optional<std::string> holdAt_;
};

class UsageLogHost : public ::testing::Test {
protected:
    static void SetUpTestSuite() { OpenSuiteHost("usagelog_unit", dataDir_); }
    static void TearDownTestSuite() {
        // Joins the threads of the suite's background runs before the process ends.
        Host::Shutdown();
        std::filesystem::remove_all(dataDir_);
    }

    void SetUp() override {
        System::runLog.enabled = true;
        System::status.Clear();
        System::status.Set(L"InfoDateTimeValid", true);
        // The narration's state outlives runs: bring it to a known start (no
        // operation, no chain, no cycle, no chip) and drop the lines.
        Run("UsageLog -c Control.Forget.Date Control.Chip.Undock.Date -vD");
        Run("UsageLog -a Control.Forget.AbortCount");
        TakeRunLog();
        DeleteAllUsageItems();
        System::usage.SaveChanges();
    }
    void TearDown() override {
        for (LineCapture& capture : captures_) capture.Release();
        Host::StopAllRuns(true);
        for (auto& run : runs_) run.wait();
    }

    // Runs the line in the foreground; its output, if any, is dropped.
    static unsigned int Run(std::string const& line) {
        return Host::RunLine(WString::FromUtf8(line), Pipe([](WString const&) {})).number;
    }
    // Runs the line on a thread of its own; the future gives its final code.
    std::shared_future<ExitCode> Start(std::string const& line, Pipe const& pipe = Pipe([](WString const&) {})) {
        WString text = WString::FromUtf8(line);
        runs_.push_back(std::async(std::launch::async, [text, pipe] { return Host::RunLine(text, pipe); }).share());
        return runs_.back();
    }
    // Lives until the runs that write to it have been stopped.
    LineCapture& NewCapture() { return captures_.emplace_back(); }

    // Lines written to the run log since the last call.
    static Lines TakeRunLog() {
        std::filesystem::path path = dataDir_ / "log" / "run.log";
        Lines lines;
        std::ifstream file(path);
        constexpr size_t StampLength = 20;  // "YYYY-MM-DD HH:MM:SS "
        for (std::string line; std::getline(file, line);) lines.push_back(line.substr(StampLength));
        file.close();
        std::filesystem::remove(path);
        return lines;
    }

    static inline std::filesystem::path dataDir_;
    std::list<LineCapture> captures_;
    std::vector<std::shared_future<ExitCode>> runs_;
};
