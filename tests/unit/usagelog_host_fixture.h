// In-process host for the UsageLog tests: a data folder of the suite's own,
// the plug-in loaded once, command lines run with their output captured,
// and the run log read line by line without its time stamps.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host/System.h"
#include "runtime/Host.h"
#include "test_support.h"

class UsageLogHost : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OpenSuiteHost("usagelog_unit", dataDir_);
    }
    static void TearDownTestSuite() {
        // Joins the threads of the suite's background runs before the process ends.
        Host::Shutdown();
        std::filesystem::remove_all(dataDir_);
    }

    void SetUp() override {
        System::runLog.enabled = true;
        System::status.Clear();
        System::status.Set(L"InfoDateTimeValid", true);
        ForgetNarrationState();
        DeleteAllUsageItems();
    }

    // The narration's state outlives runs: bring it to a known start
    // (no operation, no chain, no pending tool date, no chip) and drop the lines.
    void ForgetNarrationState() {
        Run("UsageLog -c Control.Forget.Date Control.Chip.Undock.Date -vD");
        Run("UsageLog -a Control.Forget.AbortCount");
        TakeRunLog();
    }

    unsigned int Run(std::string const& line) {
        std::lock_guard<std::mutex> lock(outputMutex_);
        output_.clear();
        Pipe capture([this](WString const& text) { output_.push_back(text.ToUtf8()); });
        return Host::RunLine(WString::FromUtf8(line), capture).number;
    }

    // Lines written to the run log since the last call.
    static std::vector<std::string> TakeRunLog() {
        std::filesystem::path path = dataDir_ / "log" / "run.log";
        std::vector<std::string> lines;
        std::ifstream file(path);
        constexpr size_t StampLength = 20;  // "YYYY-MM-DD HH:MM:SS "
        for (std::string line; std::getline(file, line);) lines.push_back(line.substr(StampLength));
        file.close();
        std::filesystem::remove(path);
        return lines;
    }

    static inline std::filesystem::path dataDir_;
    std::mutex outputMutex_;
    std::vector<std::string> output_;
};
