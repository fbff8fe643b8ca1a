// The long-lived service runs beside the test's own changes to the store:
// the keeper's saves and takeover, the monitor's rate limit and its end at a
// deletion. The monitor's lines and flush are shown in the transcript
// services_concurrency_spy_flush.
#include <cstdio>
#include <thread>

#include "usagelog_host_fixture.h"

namespace {

class ServicesConcurrency : public UsageLogHost {
protected:
    // The value that the store's file holds for the key, "" if none.
    static std::string SavedValue(char const* key) {
        std::string command = "sqlite3 '" + (dataDir_ / "usage.db").string() +
                              "' \"SELECT value FROM usage_item WHERE key='" + key + "'\"";
        std::string out;
        if (FILE* pipe = popen(command.c_str(), "r")) {
            char buffer[128];
            while (fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
            pclose(pipe);
        }
        while (!out.empty() && out.back() == '\n') out.pop_back();
        return out;
    }
    // The keeper tells nobody when it has saved: the file is looked at until
    // it holds the value, with a generous guard.
    static bool SavedInTime(char const* key, std::string const& value) {
        for (int look = 0; look < 600; ++look) {
            if (SavedValue(key) == value) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
};

TEST_F(ServicesConcurrency, KeeperSavesAtItsIntervalUntilANewerKeeperTakesOver) {
    ASSERT_EQ(Run("UsageLog Keeper.Count=1"), 0u);
    EXPECT_EQ(Run("UsageLogKeeper -k"), 0u);
    EXPECT_EQ(SavedValue("Keeper.Count"), "1") << "-k saves at once";

    auto first = Start("UsageLogKeeper 3");
    ASSERT_EQ(Run("UsageLog Keeper.Count=2"), 0u);
    EXPECT_TRUE(SavedInTime("Keeper.Count", "2"));
    auto second = Start("UsageLogKeeper 3");
    ASSERT_EQ(first.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(first.get().number, 5u) << "the serving keeper is stopped by the newer one";
    ASSERT_EQ(Run("UsageLog Keeper.Count=3"), 0u);
    EXPECT_TRUE(SavedInTime("Keeper.Count", "3")) << "the newer keeper serves";
    EXPECT_EQ(Host::StopRunsNamed(L"UsageLogKeeper"), 1);
    EXPECT_EQ(second.get().number, 5u);
    EXPECT_GE(System::usage.GetUsageValue(L"System.OnTime", 1), 6) << "each keeper timed the interval it served";
}

// -y lines at most between two sleeps, except while a flush runs. The
// monitor is held at the last line of the flush's pass, so that the changes
// fall into the one more pass it makes after answering, with its limit in
// force again.
TEST_F(ServicesConcurrency, MonitorSendsAtMostItsCountBetweenSleepsAndEndsAtADeletion) {
    for (char const* line : {"UsageLog B.1=1 B.2=1 B.3=1 B.4=1", "UsageLog Z=0"}) ASSERT_EQ(Run(line), 0u);
    LineCapture& lines = NewCapture();
    auto spy = Start("UsageLogSpy -d3600 -y2 -g", lines.MakePipe());
    // Past "Go" it still clears standing requests; once it sleeps, it answers.
    int matched = 0;
    ASSERT_TRUE(lines.AwaitLine("Go") && Host::AwaitSettled(L"UsageLogSpy", 60000, matched));
    EXPECT_EQ(lines.Take(), (Lines{"B.1=1", "B.2=1", "B.3=1", "B.4=1", "Z=0", "Go"}));
    ASSERT_EQ(Run("UsageLog Z=1"), 0u);
    lines.HoldAt("Z=1");
    auto flush = Start("UsageLogSpy flush -w60");
    ASSERT_TRUE(lines.AwaitLine("Z=1"));
    ASSERT_EQ(Run("UsageLog B.1=2 B.2=2 B.3=2 B.4=2"), 0u);
    lines.Release();
    EXPECT_EQ(flush.get().number, 0u);
    ASSERT_TRUE(Host::AwaitSettled(L"UsageLogSpy", 60000, matched));
    // The flush's own line counts towards the limit.
    EXPECT_EQ(lines.Take(), (Lines{"Z=1", "B.1=2"}));
    // A flush gets the rest at once; the pass goes on where it slept.
    EXPECT_EQ(Run("UsageLogSpy flush -w60"), 0u);
    EXPECT_EQ(lines.Take(), (Lines{"B.2=2", "B.3=2", "B.4=2"}));

    // A deletion ends the monitor at its next pass, which a flush starts; it
    // never answers. The deletion waits for the monitor's sleep after the
    // pass that follows the answer.
    ASSERT_TRUE(Host::AwaitSettled(L"UsageLogSpy", 60000, matched));
    ASSERT_EQ(Run("UsageLog B.1="), 0u);
    EXPECT_EQ(Run("UsageLogSpy flush -w0.01"), 13u);
    ASSERT_EQ(spy.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(spy.get().number, 4u);
}

}  // namespace
