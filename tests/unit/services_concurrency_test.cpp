// The long-lived service runs in-process, beside the tests' own changes to
// the store: the keeper's saves and takeover, the monitor's dump, change
// lines, rate limit and end at a deletion, and the flush handshake.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame/host/System.h"
#include "runtime/Host.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Lines of a run's output with the time each arrived.
class Capture {
public:
    Pipe MakePipe() {
        return Pipe([this](WString const& line) {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line.ToUtf8());
            times_.push_back(Clock::now());
            arrived_.notify_all();
        });
    }
    // True once the output holds `count` lines; false after the deadline.
    bool WaitForCount(size_t count, std::chrono::milliseconds deadline = 15s) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, deadline, [&] { return lines_.size() >= count; });
    }
    bool WaitForLine(std::string const& line, std::chrono::milliseconds deadline = 15s) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, deadline, [&] {
            for (auto const& each : lines_)
                if (each == line) return true;
            return false;
        });
    }
    std::vector<std::string> Lines() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    // The lines from `first` on, which also resets what later calls skip.
    std::vector<std::string> LinesSince(size_t& first) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> lines(lines_.begin() + static_cast<long>(first), lines_.end());
        first = lines_.size();
        return lines;
    }
    std::vector<Clock::time_point> Times() {
        std::lock_guard<std::mutex> lock(mutex_);
        return times_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::string> lines_;
    std::vector<Clock::time_point> times_;
};

bool Eventually(std::function<bool()> const& condition, std::chrono::milliseconds deadline = 15s) {
    auto end = Clock::now() + deadline;
    while (Clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(20ms);
    }
    return condition();
}

class ServicesConcurrency : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OpenSuiteHost("services_unit", dataDir_);
    }
    static void TearDownTestSuite() { fs::remove_all(dataDir_); }

    void SetUp() override {
        DeleteAllUsageItems();
        System::usage.SaveChanges();
    }
    void TearDown() override {
        Host::StopRunsNamed(L"UsageLogSpy");
        Host::StopRunsNamed(L"UsageLogKeeper");
        for (auto& run : runs_) run.wait();
    }

    // Runs the line on a thread of its own; the future gives its final code.
    std::shared_future<ExitCode> Start(char const* line, Pipe const& pipe = Pipe([](WString const&) {})) {
        std::shared_future<ExitCode> run =
            std::async(std::launch::async, [line = WString(line), pipe] { return Host::RunLine(line, pipe); }).share();
        runs_.push_back(run);
        return run;
    }
    static unsigned int Run(char const* line) { return Host::RunLine(WString(line), Pipe([](WString const&) {})).number; }

    // The value that the store's file holds for the key, "" if none.
    static std::string SavedValue(char const* key) {
        std::string command =
            "sqlite3 '" + (dataDir_ / "usage.db").string() + "' \"SELECT value FROM usage_item WHERE key='" + key + "'\"";
        FILE* pipe = popen(command.c_str(), "r");
        std::string out;
        char buffer[128];
        while (pipe != nullptr && fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
        if (pipe != nullptr) pclose(pipe);
        while (!out.empty() && out.back() == '\n') out.pop_back();
        return out;
    }

    // Outlives the runs that write to it: they are stopped in TearDown.
    Capture& NewCapture() { return captures_.emplace_back(); }

    static fs::path dataDir_;
    std::list<Capture> captures_;
    std::vector<std::shared_future<ExitCode>> runs_;
};

fs::path ServicesConcurrency::dataDir_;

TEST_F(ServicesConcurrency, KeeperSavesAtItsIntervalAndANewerKeeperTakesOver) {
    System::usage.Increment(L"Keeper.Count", 1);
    EXPECT_EQ(Run("UsageLogKeeper -k"), 0u);
    EXPECT_EQ(SavedValue("Keeper.Count"), "1") << "-k saves at once";

    auto first = Start("UsageLogKeeper 3");
    ASSERT_TRUE(Eventually([] { return System::usage.ContainsKey(L"System.OnTime"); })) << "the keeper times its life";
    System::usage.Increment(L"Keeper.Count", 1);
    EXPECT_EQ(SavedValue("Keeper.Count"), "1") << "the first save comes one interval after the start";
    EXPECT_TRUE(Eventually([] { return SavedValue("Keeper.Count") == "2"; }, 8s));

    auto second = Start("UsageLogKeeper 3");
    ASSERT_EQ(first.wait_for(10s), std::future_status::ready) << "the serving keeper is stopped";
    ExitCode replaced = first.get();
    EXPECT_EQ(replaced.number, 5u);
    EXPECT_EQ(replaced.kind, 0u);
    EXPECT_EQ(replaced.commandId, 1052u);

    System::usage.Increment(L"Keeper.Count", 1);
    EXPECT_TRUE(Eventually([] { return SavedValue("Keeper.Count") == "3"; }, 10s)) << "the newer keeper serves";
    EXPECT_EQ(second.wait_for(0s), std::future_status::timeout);
    Host::StopRunsNamed(L"UsageLogKeeper");
    EXPECT_EQ(second.get().number, 5u);
}

TEST_F(ServicesConcurrency, SpyDumpsSortedThenSendsChangesAndAppendsNewItemsAndEndsAtADeletion) {
    System::usage.Increment(L"Pump.Count", 12);
    System::usage.IncrementTimer(L"Lamp.Time", 60);
    System::usage.SetDate(L"Chip.Date", 20240101u, true);
    System::usage.SetDate(L"Chip.Date", 20240815u, true);
    Capture& plain = NewCapture();
    Capture& extended = NewCapture();
    Capture& history = NewCapture();
    auto spy = Start("UsageLogSpy -g -d0.1", plain.MakePipe());
    Start("UsageLogSpy -g -d0.1 -e -f|", extended.MakePipe());
    Start("UsageLogSpy -g -d0.1 -h", history.MakePipe());
    ASSERT_TRUE(plain.WaitForLine("Go") && extended.WaitForLine("Go") && history.WaitForLine("Go"));
    EXPECT_EQ(plain.Lines(), (std::vector<std::string>{"Chip.Date=20240815", "Lamp.Time=60", "Pump.Count=12", "Go"}));
    EXPECT_EQ(extended.Lines(), (std::vector<std::string>{"Chip.Date|20240815|D|I|20240101,20240815",
                                                          "Lamp.Time|60|T|I", "Pump.Count|12|C|I", "Go"}));
    EXPECT_EQ(history.Lines()[0], "Chip.Date=20240101,20240815");

    // A change of a value; then a change of the last item and a new item
    // that sorts first: the new one comes behind it.
    size_t seen = plain.Lines().size();
    System::usage.Increment(L"Pump.Count", 1);
    ASSERT_TRUE(plain.WaitForCount(seen + 1));
    System::usage.Increment(L"Pump.Count", 1);
    System::usage.Increment(L"Aaa.Count", 3);
    ASSERT_TRUE(plain.WaitForCount(seen + 3));
    EXPECT_EQ(plain.LinesSince(seen), (std::vector<std::string>{"Pump.Count=13", "Pump.Count=14", "Aaa.Count=3"}));

    // A history that grows moves the -h trigger but not the value.
    System::usage.GetItemReference(L"Chip.Date", 1).AddDateToHistory(20240816);
    EXPECT_TRUE(history.WaitForLine("Chip.Date=20240101,20240815,20240816"));
    EXPECT_TRUE(extended.WaitForLine("Aaa.Count|3|C|I"));
    EXPECT_EQ(plain.LinesSince(seen), std::vector<std::string>{});

    System::usage.TryDeleteItem(L"Lamp.Time");
    ASSERT_EQ(spy.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(spy.get().number, 4u);
}

TEST_F(ServicesConcurrency, SpyDrainsABurstAtItsRateBetweenSleeps) {
    for (wchar_t const* key : {L"B1", L"B2", L"B3", L"B4", L"B5", L"B6"}) System::usage.Increment(key, 1);
    Capture& output = NewCapture();
    Start("UsageLogSpy -g -d0.3 -y2", output.MakePipe());
    ASSERT_TRUE(output.WaitForLine("Go"));
    for (wchar_t const* key : {L"B1", L"B2", L"B3", L"B4", L"B5", L"B6"}) System::usage.Increment(key, 1);
    ASSERT_TRUE(output.WaitForCount(7 + 6));
    auto times = output.Times();
    // Two lines (7 and 8, 9 and 10, ...), then a sleep of the whole interval.
    for (size_t afterSleep : {size_t{9}, size_t{11}}) {
        EXPECT_GE(times[afterSleep] - times[afterSleep - 1], 290ms) << "line " << afterSleep;
    }
    EXPECT_EQ(output.Lines()[12], "B6=2");
}

TEST_F(ServicesConcurrency, FlushGetsEverythingOutOfASlowMonitorAndWaitsForAStandingRequest) {
    EXPECT_EQ(Run("UsageLogSpy flush"), 15u) << "no monitor";
    for (wchar_t const* key : {L"F1", L"F2", L"F3", L"F4", L"F5"}) System::usage.Increment(key, 1);
    Capture& output = NewCapture();
    Start("UsageLogSpy -g -d3600 -y1", output.MakePipe());
    ASSERT_TRUE(output.WaitForLine("Go"));
    // Past "Go" the monitor still clears standing requests; once it sleeps, a flush is answered.
    int monitors = 0;
    ASSERT_TRUE(Host::AwaitSettled(L"UsageLogSpy", 15000, monitors));
    size_t seen = output.Lines().size();

    for (int round = 2; round <= 3; ++round) {
        for (wchar_t const* key : {L"F1", L"F2", L"F3", L"F4", L"F5"}) System::usage.Increment(key, 1);
        auto start = Clock::now();
        ASSERT_EQ(Run("UsageLogSpy flush -w20"), 0u);
        EXPECT_LT(Clock::now() - start, 10s);
        std::string value = std::to_string(round);
        EXPECT_EQ(output.LinesSince(seen), (std::vector<std::string>{"F1=" + value, "F2=" + value, "F3=" + value,
                                                                     "F4=" + value, "F5=" + value}));
    }

    // Two flushes at once: the second waits for the first's answer, then asks again.
    System::usage.Increment(L"F1", 1);
    auto one = Start("UsageLogSpy flush -w20");
    auto two = Start("UsageLogSpy flush -w20");
    EXPECT_EQ(one.get().number, 0u);
    EXPECT_EQ(two.get().number, 0u);
    EXPECT_EQ(output.LinesSince(seen), std::vector<std::string>{"F1=4"});
}

}  // namespace
