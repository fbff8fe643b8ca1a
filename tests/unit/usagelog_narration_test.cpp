// The run-log handlers' key rules, in-process: which key sets off which
// line, which state it leaves for later runs, how keys are compared, and the
// order of lines written by concurrent runs.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <string>
#include <thread>
#include <vector>

#include "usagelog_host_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class UsageLogNarration : public UsageLogHost {
protected:
    Lines Narrate(std::string const& line) {
        EXPECT_EQ(Run(line), 0u) << line;
        return TakeRunLog();
    }
};

TEST_F(UsageLogNarration, DateKeysOfEveryRule) {
    struct Step {
        char const* line;
        Lines expected;
    };
    std::vector<Step> const steps = {
        {"UsageLog -c Control.Chip.Dock.Date -vD", {"Dock "}},
        {"UsageLog -a Control.Chip.C7.Count", {}},
        {"UsageLog -c Control.Chip.Dock.Date -vD", {"Dock C7"}},
        {"UsageLog -c Control.Standby.X.Date Control.Temperature.Wait.Date Control.Tempo.Date -vD", {}},
        // Without a pending tool date a tool key is no event.
        {"UsageLog -c Tool.Shutdown.Date -vD", {}},
        {"UsageLog -c Control.Tool.Date -vD", {}},
        {"UsageLog -c Control.Abort.Date -vD", {"Abort"}},
        {"UsageLog -c Control.AbortWithWash.Date -vD", {"AbortWithWash"}},
        {"UsageLog -c Other.Date -vD", {}},
        {"UsageLog -c Tool.Shutdown.More.Date -vD", {"Shutdown Start"}},
        {"UsageLog -c Control.Tool.Date -vD", {}},
        {"UsageLog -c Tool.Shutdown.Date -vD", {"Shutdown Step 2 Start"}},
        {"UsageLog -c Control.Tool.Date -vD", {}},
        {"UsageLog -c Tool.Shutdown.Date -vD", {"Shutdown Step 3 Start"}},
        {"UsageLog -a Control.Tool.Shutdown.FailCount", {"Shutdown Step 3 Error"}},
        {"UsageLog -c Control.Tool.Date -vD", {}},
        {"UsageLog -c Tool.Shutdown.Date -vD", {"Shutdown Start"}},
        {"UsageLog -c Control.Tool.Extra.Date -vD", {"Tool.Extra Start"}},
        {"UsageLog -c Control.Date -vD", {"Date Start"}},
        // A counter of the operation without a completion ending changes nothing.
        {"UsageLog -a Control.Date.Count", {}},
        {"UsageLog -a Control.DateOther.SuccessCount", {"Date Ready"}},
        {"UsageLog -a Control.Date.SuccessCount", {}},
        {"UsageLog -c Control.Chip.Undock.Date Control.Chip.Dock.Date -vD", {"Dock C7", "Undock"}},
    };
    for (Step const& step : steps) EXPECT_EQ(Narrate(step.line), step.expected) << step.line;
}

TEST_F(UsageLogNarration, KeysCompareWithoutLetterCaseButToolNamesExactly) {
    EXPECT_EQ(Narrate("UsageLog -a control.chip.ChipZ.count"), Lines{});
    EXPECT_EQ(Narrate("UsageLog -c CONTROL.CHIP.DOCK.DATE -vD"), Lines{"Dock ChipZ"});
    EXPECT_EQ(Narrate("UsageLog -c control.Method.date -vD"), Lines{"Method Start"});
    EXPECT_EQ(Narrate("UsageLog -a CONTROL.METHOD.successcount"), Lines{"Method Ready"});
    // The list of multi-step tools is searched character by character.
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(Narrate("UsageLog -c control.tool.date -vD"), Lines{});
        EXPECT_EQ(Narrate("UsageLog -c tool.shutdown.date -vD"), Lines{"shutdown Start"});
        EXPECT_EQ(Narrate("UsageLog -a Control.Tool.shutdown.SuccessCount"), Lines{"shutdown Ready"});
    }
    // Once a chain runs, its name is compared without regard to case.
    EXPECT_EQ(Narrate("UsageLog -c Control.Tool.Date -vD"), Lines{});
    EXPECT_EQ(Narrate("UsageLog -c Tool.DesorbAndSanitize.Date -vD"), Lines{"DesorbAndSanitize Start"});
    EXPECT_EQ(Narrate("UsageLog -a Control.Tool.X.SuccessCount"), Lines{"DesorbAndSanitize Ready"});
    EXPECT_EQ(Narrate("UsageLog -c Control.Tool.Date -vD"), Lines{});
    EXPECT_EQ(Narrate("UsageLog -c Tool.desorbandsanitize.Date -vD"), Lines{"desorbandsanitize Step 2 Start"});
}

TEST_F(UsageLogNarration, OnlyMeaningfulEventsOfEachCommandAreNarrated) {
    // A -c line narrates its dates once each, sorted; counters and timers it
    // clears are silent, and so are assignments, deletions and -i.
    EXPECT_EQ(Narrate("UsageLog -c Control.B.Date Control.A.Date Control.B.Date -vD"), (Lines{"A Start", "B Start"}));
    EXPECT_EQ(Narrate("UsageLog -c Control.B.SuccessCount Control.B.Time"), Lines{});
    EXPECT_EQ(Narrate("UsageLog Control.C.Date=20240101 -vD"), Lines{});
    EXPECT_EQ(Narrate("UsageLog -i Control.D.Date -vD"), Lines{});
    EXPECT_EQ(Narrate("UsageLog Control.C.Date="), Lines{});
    EXPECT_EQ(Narrate("UsageLog -c Control.*.Date"), (Lines{"A Start", "B Start", "D Start"}));
    // -a narrates each argument right after its increment, in argument order.
    EXPECT_EQ(Narrate("UsageLog -a Control.Temperature.Wait.AbortCount Control.D.FailCount "
                      "Control.Temperature.Wait.SuccessCount"),
              (Lines{"Temperature Wait Abort", "D Error", "Temperature Wait Ready"}));
    // A failing line narrates the items handled before its failure.
    EXPECT_EQ(Run("UsageLog -a Control.Chip.K1.Count Control.Chip.K*.Count"), 17u);
    EXPECT_EQ(Narrate("UsageLog -c Control.Chip.Dock.Date -vD"), Lines{"Dock K1"});
    // A reset that fails for want of a clock narrates nothing of that key.
    System::status.Set(L"InfoDateTimeValid", false);
    EXPECT_EQ(Run("UsageLog -c Control.E.Date -vD"), 8u);
    EXPECT_EQ(TakeRunLog(), Lines{});
}

TEST_F(UsageLogNarration, ConcurrencyLinesKeepTheirOrderAndNoRunWaitsForAnotherOnesWrite) {
    // Steps of a chain are numbered under the narration's state: in the log
    // they must stand in the order of their numbers.
    constexpr int Threads = 4, Rounds = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([] {
            for (int round = 0; round < Rounds; ++round)
                Host::RunLine(L"UsageLog -c Control.Tool.Date Tool.Shutdown.Date -vD", Pipe([](WString const&) {}));
        });
    }
    for (auto& thread : threads) thread.join();
    Lines chain = TakeRunLog();
    ASSERT_FALSE(chain.empty());
    EXPECT_EQ(chain[0], "Shutdown Start");
    for (std::size_t i = 1; i < chain.size(); ++i) EXPECT_EQ(chain[i], "Shutdown Step " + std::to_string(i + 1) + " Start");

    // A run log that cannot be written yet (a pipe nobody reads): one of two
    // narrating runs is stuck in the write, the other must still end.
    std::string fifo = (dataDir_ / "log" / "run.log").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::mutex mutex;
    std::condition_variable ended;
    int endedRuns = 0;
    auto narrate = [&](wchar_t const* line) {
        return std::thread([&, line] {
            Host::RunLine(line, Pipe([](WString const&) {}));
            std::lock_guard lock(mutex);
            ++endedRuns;
            ended.notify_all();
        });
    };
    std::thread first = narrate(L"UsageLog -c Control.Abort.Date -vD");
    std::thread second = narrate(L"UsageLog -c Control.AbortWithWash.Date -vD");
    {
        // Only a guard against waiting for ever: with the state held during
        // the write both runs would hang.
        std::unique_lock lock(mutex);
        EXPECT_TRUE(ended.wait_for(lock, std::chrono::seconds(60), [&] { return endedRuns >= 1; }));
    }
    std::string text;
    while (std::count(text.begin(), text.end(), '\n') < 2) {
        int reader = open(fifo.c_str(), O_RDONLY);  // each line opens the log anew
        char buffer[256];
        for (ssize_t got; (got = read(reader, buffer, sizeof buffer)) > 0;) text.append(buffer, got);
        close(reader);
    }
    first.join();
    second.join();
    std::filesystem::remove(fifo);
    EXPECT_NE(text.find(" Abort\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" AbortWithWash\n"), std::string::npos) << text;
}

}  // namespace
