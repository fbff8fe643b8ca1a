// UsageLog runs side by side in one host: concurrent increments of one
// counter all count, narrations of concurrent runs never interleave within
// one handler, and measuring runs stopped in the middle book their time.
#include <chrono>
#include <condition_variable>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "usagelog_host_fixture.h"

namespace {

using namespace std::chrono_literals;

class UsageLogConcurrency : public UsageLogHost {
protected:
    // A run of its own output, for threads that run lines at the same time.
    static unsigned int RunQuietly(std::string const& line) {
        Pipe discard([](WString const&) {});
        return Host::RunLine(WString::FromUtf8(line), discard).number;
    }
};

TEST_F(UsageLogConcurrency, EightRunnersIncrementingOneCounterLoseNothing) {
    constexpr int Runners = 8;
    constexpr int LinesEach = 2000 / LABSHELL_SLOW_FACTOR;
    std::vector<std::thread> runners;
    std::vector<int> failures(Runners, 0);
    for (int runner = 0; runner < Runners; ++runner) {
        runners.emplace_back([runner, &failures] {
            // Every runner also names a chip and docks now and then: the
            // narration's shared state is used from all threads at once.
            std::string chip = "UsageLog -a Control.Chip.Chip" + std::to_string(runner) + ".Count";
            for (int line = 0; line < LinesEach; ++line) {
                if (RunQuietly("UsageLog -a Shared.Count") != 0) ++failures[runner];
                if (line % 100 == 0 && RunQuietly(chip) + RunQuietly("UsageLog -c Control.Chip.Dock.Date -vD") != 0)
                    ++failures[runner];
            }
        });
    }
    for (auto& runner : runners) runner.join();

    EXPECT_EQ(failures, std::vector<int>(Runners, 0));
    EXPECT_EQ(System::usage.GetUsageValue(L"Shared.Count", 1), Runners * LinesEach);
    // Each dock line names one whole chip name of some runner.
    std::vector<std::string> lines = TakeRunLog();
    EXPECT_EQ(lines.size(), static_cast<size_t>(Runners * ((LinesEach + 99) / 100)));
    std::regex const dockLine("Dock Chip[0-7]");
    for (auto const& line : lines) EXPECT_TRUE(std::regex_match(line, dockLine)) << line;
}

TEST_F(UsageLogConcurrency, StoppedMeasurementsBookTheTimeTheyRan) {
    constexpr int Measurements = 4;
    std::vector<int> ids;
    for (int i = 0; i < Measurements; ++i) {
        ExitCode failure;
        Pipe discard([](WString const&) {});
        int id = Host::StartBackground(L"UsageLog -m Measured.Time", discard, failure);
        ASSERT_GE(id, 0) << failure.number;
        ids.push_back(id);
    }
    // Counter runs beside the sleeping measurements.
    std::thread counting([] {
        for (int i = 0; i < 200; ++i) RunQuietly("UsageLog -a Beside.Count");
    });
    std::this_thread::sleep_for(2200ms);
    counting.join();
    for (int id : ids) EXPECT_EQ(Host::StopRun(id), 1);

    EXPECT_EQ(Run("UsageLog Measured.Time Beside.Count"), 0u);
    ASSERT_EQ(output_.size(), 2u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(output_[1], match, std::regex("Measured\\.Time=(\\d+)"))) << output_[1];
    int booked = std::stoi(match[1]);
    // Each ran 2.2 s or a little more, and the store books whole seconds.
    EXPECT_GE(booked, 2 * Measurements);
    EXPECT_LE(booked, 3 * Measurements);
    EXPECT_EQ(output_[0], "Beside.Count=200");
}

// A monitor's first pass shows every key it resolved; later passes show a
// key only when its number differs from the one shown last for it.
TEST_F(UsageLogConcurrency, MonitorShowsEveryKeyFirstThenOnlyChanges) {
    ASSERT_EQ(Run("UsageLog Mon.1=1 Mon.2=2"), 0u);
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> lines;
    Pipe capture([&](WString const& line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(line.ToUtf8());
        arrived.notify_all();
    });
    auto waitForCount = [&](size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return arrived.wait_for(lock, 10s, [&] { return lines.size() >= count; });
    };
    ExitCode failure;
    int id = Host::StartBackground(L"UsageLog -d1 Mon.*", capture, failure);
    ASSERT_GE(id, 0) << failure.number;
    ASSERT_TRUE(waitForCount(2));
    // A change back before the next pass, and a key made after the start,
    // give no line; the one lasting change does.
    EXPECT_EQ(Run("UsageLog Mon.2=7 Mon.3=1"), 0u);
    EXPECT_EQ(Run("UsageLog Mon.2=2 Mon.1=6"), 0u);
    ASSERT_TRUE(waitForCount(3));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(Host::StopRun(id), 1);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(lines, (std::vector<std::string>{"Mon.1=1", "Mon.2=2", "Mon.1=6"}));
}

}  // namespace
