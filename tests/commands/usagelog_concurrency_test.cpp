// UsageLog runs side by side in one host: increments of one counter all
// count, the narration's shared state keeps its lines whole and in order,
// measuring runs stopped in the middle book their time, and a monitor shows
// only lasting changes between its passes.
#include <algorithm>
#include <cmath>
#include <thread>

#include "usagelog_host_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

class UsageLogConcurrency : public UsageLogHost {};

TEST_F(UsageLogConcurrency, RunnersShareOneCounterAndTheNarrationsState) {
    constexpr int Runners = 8;
    constexpr int LinesEach = 2000 / LABSHELL_SLOW_FACTOR;
    std::vector<std::thread> runners;
    std::vector<int> failures(Runners, 0);
    for (int runner = 0; runner < Runners; ++runner) {
        runners.emplace_back([runner, &failures] {
            std::string chip = "UsageLog -a Control.Chip.Chip" + std::to_string(runner) + ".Count";
            for (int line = 0; line < LinesEach; ++line) {
                failures[runner] += Run("UsageLog -a Shared.Count") != 0;
                if (line % 100 == 0)
                    failures[runner] += Run(chip) + Run("UsageLog -c Control.Chip.Dock.Date -vD") +
                                        Run("UsageLog -c Control.Tool.Date Tool.Shutdown.Date -vD") != 0;
            }
        });
    }
    for (auto& runner : runners) runner.join();

    EXPECT_EQ(failures, std::vector<int>(Runners, 0));
    EXPECT_EQ(System::usage.GetUsageValue(L"Shared.Count", 1), Runners * LinesEach);
    // Each dock names one whole chip. Steps of the chain are numbered under
    // the shared state, so the log has them in the order of their numbers
    // (a run whose tool date another run took writes none).
    Lines chips;
    for (int runner = 0; runner < Runners; ++runner) chips.push_back("Dock Chip" + std::to_string(runner));
    int docks = 0, steps = 0;
    for (std::string const& line : TakeRunLog()) {
        if (line.rfind("Dock", 0) == 0) {
            ++docks;
            EXPECT_NE(std::find(chips.begin(), chips.end(), line), chips.end()) << line;
        } else {
            ++steps;
            EXPECT_EQ(line, steps == 1 ? "Shutdown Start" : "Shutdown Step " + std::to_string(steps) + " Start");
        }
    }
    EXPECT_EQ(docks, Runners * ((LinesEach + 99) / 100));
    EXPECT_GE(steps, 1);
}

// Measuring runs started side by side number their cycle lines one by one;
// stopped in the middle, each books the time it ran.
TEST_F(UsageLogConcurrency, StoppedMeasurementsBookTheTimeTheyRan) {
    constexpr int Measurements = 3;
    auto const before = Clock::now();
    for (int i = 0; i < Measurements; ++i) {
        ExitCode failure;
        ASSERT_GE(Host::StartBackground(L"UsageLog -m Run.CycleTime", Pipe([](WString const&) {}), failure), 0);
    }
    int matched = 0;
    ASSERT_TRUE(Host::AwaitSettled(L"UsageLog", 60000, matched));  // every timer runs
    auto const started = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // the time to measure, no wait for an event
    auto const stopping = Clock::now();
    EXPECT_EQ(Host::StopRunsNamed(L"UsageLog"), Measurements);
    auto const after = Clock::now();
    // Each timer ran at least from `started` to `stopping` and at most from
    // `before` to `after`; it books that rounded to whole seconds.
    auto seconds = [](Clock::duration span) { return std::chrono::duration<double>(span).count(); };
    int const booked = System::usage.GetUsageValue(L"Run.CycleTime", 1);
    EXPECT_GE(booked, Measurements * static_cast<int>(std::floor(seconds(stopping - started))));
    EXPECT_LE(booked, Measurements * static_cast<int>(std::ceil(seconds(after - before))));
    EXPECT_EQ(TakeRunLog(), (Lines{"Cycle 1, ", "Cycle 2, ", "Cycle 3, "}));
}

// The monitor is held at the last line of each pass, so that the test's
// changes fall between two passes. With -p it shows an item only while the
// item is dirty; a change undone before the next pass and an item made after
// the start are never shown.
TEST_F(UsageLogConcurrency, MonitorShowsLastingChangesOfPendingItems) {
    ASSERT_EQ(Run("UsageLog M.1=1 M.2=2 -b"), 0u);
    ASSERT_EQ(Run("UsageLog Z=0"), 0u);
    LineCapture& idleLines = NewCapture();
    ExitCode failure;
    int idle = Host::StartBackground(L"UsageLog -d1 None.*", idleLines.MakePipe(), failure);
    LineCapture& lines = NewCapture();
    lines.HoldAt("Z=0");
    Start("UsageLog -d1 -p M.* Z", lines.MakePipe());
    ASSERT_TRUE(lines.AwaitLine("Z=0"));
    EXPECT_EQ(lines.Take(), Lines{"Z=0"});
    int tick = 0;
    auto nextPass = [&](std::vector<std::string> const& changes) {
        for (std::string const& change : changes) EXPECT_EQ(Run(change), 0u) << change;
        std::string tickLine = "Z=" + std::to_string(++tick);
        EXPECT_EQ(Run("UsageLog " + tickLine), 0u);
        lines.HoldAt(tickLine);
        EXPECT_TRUE(lines.AwaitLine(tickLine));
        return lines.Take();
    };
    EXPECT_EQ(nextPass({"UsageLog M.1=5 M.3=1"}), (Lines{"M.1=5", "Z=1"}));
    EXPECT_EQ(nextPass({"UsageLog -b", "UsageLog M.1=6", "UsageLog M.1=5 M.2=9"}), (Lines{"M.2=9", "Z=2"}));
    // Saved before the pass: not shown, and so shown once it is dirty again.
    EXPECT_EQ(nextPass({"UsageLog M.2=10 -b"}), Lines{"Z=3"});
    EXPECT_EQ(nextPass({"UsageLog M.2=10"}), (Lines{"M.2=10", "Z=4"}));
    EXPECT_EQ(Host::StopRun(idle), 1) << "a monitor over nothing sleeps until it is stopped";
    EXPECT_EQ(idleLines.Take(), Lines{});
}

}  // namespace
