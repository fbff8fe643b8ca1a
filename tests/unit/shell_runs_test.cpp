// Runs of the host, driven from outside through command lines: stops of
// sleeps and event waits, kill by id, name and all with immunity, named
// resources with mode-2 nesting, and named events.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "frame/host/System.h"
#include "runtime/Host.h"

namespace {

using namespace std::chrono_literals;

// What the probe's runs left behind: the code each OnExit saw, and how many
// Main locals were unwound.
std::mutex probeMutex;
std::vector<ExitCode> exitCodes;
int unwoundLocals = 0;

struct UnwindWitness {
    ~UnwindWitness() {
        std::lock_guard<std::mutex> lock(probeMutex);
        ++unwoundLocals;
    }
};

// "HostProbe WHAT ...": one host service per first word.
class HostProbe : public CommandBase {
public:
    WString GetName() override { return L"HostProbe"; }
    std::uint32_t GetCommandId() override { return 4321; }
    char const* GetSourceCodeTimestamp() override { return "test"; }
    void ShowUsage() override { pipe.WriteLine(L"Usage: HostProbe sleep|immune|try R|hold R [LINE MODE]|nest R DEPTH|wait E"); }
    void OnExit(ExitCode& code) override {
        std::lock_guard<std::mutex> lock(probeMutex);
        exitCodes.push_back(code);
    }

    ExitCode Main(ArgumentList& args, Options&) override {
        UnwindWitness witness;
        WString what = args.At(0).text;
        if (what.str != L"hold") SendSignalGoAheadIfRequested();
        if (what.str == L"immune") MakeMeImmuneAgainstKillAll();
        if (what.str == L"sleep" || what.str == L"immune") SleepWithoutSimulationMode(4294967295u);
        if (what.str == L"try") return ExitCode(TryBookResource(args.At(1).text, 100) ? 0 : 9);
        if (what.str == L"hold") {
            BookResource(args.At(1).text);
            SendSignalGoAheadIfRequested();
            if (args.count == 2) SleepWithoutSimulationMode(4294967295u);
            return Run(args.At(2).text, pipe, args.At(3).text.GetUInt(1, 0, 2));
        }
        if (what.str == L"nest") {
            if (!TryBookResource(args.At(1).text, 100)) return ExitCode(9);
            unsigned int depth = args.At(2).text.GetUInt(1, 0, 9);
            if (depth == 0) return ExitCode(0);
            return Run(WString::Format(L"HostProbe nest %s %u", args.At(1).text.c_str(), depth - 1), pipe, 2);
        }
        if (what.str == L"wait") {
            bool reached = false;
            OS9Event(eventContext, args.At(1).text.c_str(), 0, 0, 0).Wait(1, 1, 4294967295u, reached);
        }
        return ExitCode(0);
    }
};

CommandBase* CreateHostProbe() { return new HostProbe(); }

Pipe Silent() {
    return Pipe([](WString const&) {});
}

class Runs : public ::testing::Test {
protected:
    static void SetUpTestSuite() { Host::AddCommand(CreateHostProbe); }
    void SetUp() override {
        std::lock_guard<std::mutex> lock(probeMutex);
        exitCodes.clear();
        unwoundLocals = 0;
    }
    void TearDown() override { Host::StopAllRuns(true); }

    static std::future<ExitCode> Start(char const* line) {
        return std::async(std::launch::async, [line] { return Host::RunLine(WString(line), Silent()); });
    }
    // Starts a background run and waits until it is past its start.
    static int Background(char const* line) {
        ExitCode failure;
        int id = Host::StartBackground(WString(line), Silent(), failure);
        int matched = 0;
        EXPECT_TRUE(Host::AwaitSettled(WString(std::to_wstring(id)), 60000, matched));
        return id;
    }
    static bool WaitForRuns(unsigned int count) {
        for (int i = 0; i < 500; ++i) {
            if (System::GetCommandRunningCount(L"HostProbe") == count) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
};

void ExpectStopCode(ExitCode const& code) {
    EXPECT_EQ(code.commandId, 4321);
    EXPECT_EQ(code.kind, StopKind);
    EXPECT_EQ(code.number, StopNumber);
}

TEST_F(Runs, ConcurrencyStoppedSleepThrowsStopCodeUnwindsAndGetsOnExit) {
    std::future<ExitCode> run = Start("HostProbe sleep");
    ASSERT_TRUE(WaitForRuns(1));
    EXPECT_EQ(Host::StopRunsNamed(L"HostProbe"), 1);
    ExpectStopCode(run.get());
    std::lock_guard<std::mutex> lock(probeMutex);
    ASSERT_EQ(exitCodes.size(), 1u);
    ExpectStopCode(exitCodes[0]);
    EXPECT_EQ(unwoundLocals, 1);
}

TEST_F(Runs, ConcurrencyKillAllSparesImmuneRunsKillByIdDoesNot) {
    int immune = Background("HostProbe immune");
    Background("HostProbe sleep");
    Background("HostProbe sleep");
    ASSERT_TRUE(WaitForRuns(3));
    EXPECT_EQ(Host::StopAllRuns(false), 2);
    EXPECT_EQ(System::GetCommandRunningCount(L"HostProbe"), 1u);
    ASSERT_EQ(Host::LiveRuns().size(), 1u);
    EXPECT_EQ(Host::LiveRuns()[0].processId, immune);
    EXPECT_EQ(Host::LiveRuns()[0].line.str, L"HostProbe immune");
    EXPECT_EQ(Host::StopRun(immune), 1);
    EXPECT_EQ(Host::StopRun(immune), 0);
    EXPECT_TRUE(Host::LiveRuns().empty());
    std::lock_guard<std::mutex> lock(probeMutex);
    EXPECT_EQ(exitCodes.size(), 3u);
    EXPECT_EQ(unwoundLocals, 3);
}

TEST_F(Runs, ConcurrencyModeTwoRunsShareTheParentsResourceOthersWaitForIt) {
    // A mode-2 child, and its own mode-2 child, book what the parent holds.
    EXPECT_EQ(Host::RunLine(L"HostProbe hold R_a \"HostProbe try R_a\" 2", Silent()).number, 0u);
    EXPECT_EQ(Host::RunLine(L"HostProbe hold R_a \"HostProbe nest R_a 2\" 2", Silent()).number, 0u);
    // A plain child waits its 100 ms and gives up; one that would wait
    // without end for its own parent is refused.
    EXPECT_EQ(Host::RunLine(L"HostProbe hold R_a \"HostProbe try R_a\" 0", Silent()).number, 9u);
    EXPECT_EQ(Host::RunLine(L"HostProbe hold R_a \"HostProbe hold R_a\" 0", Silent()).number, HostExit::Deadlock);
    // The run's end frees what it booked.
    EXPECT_EQ(Host::RunLine(L"HostProbe try R_a", Silent()).number, 0u);

    // A holder in the background: a booking waits until the holder is stopped.
    int holder = Background("HostProbe hold R_b");
    EXPECT_EQ(Host::RunLine(L"HostProbe try R_b", Silent()).number, 9u);
    std::future<ExitCode> waiting = Start("HostProbe hold R_b \"HostProbe try R_b\" 2");
    EXPECT_EQ(waiting.wait_for(200ms), std::future_status::timeout);
    EXPECT_EQ(Host::StopRun(holder), 1);
    EXPECT_EQ(waiting.get().number, 0u);
}

TEST_F(Runs, ConcurrencyEventsKeepTheirValueAndWakeWaiters) {
    // Whichever side comes first sets the start value; the context is no part of the name.
    OS9Event first(1, L"ShellTestEvent", 1000, 0, 0);
    OS9Event second(2, L"ShellTestEvent", 5, 0, 0);
    int value = 0;
    EXPECT_NE(second.TryWait(1000, 1000, 0, &value), 0);
    EXPECT_EQ(value, 1000);

    bool reached = false;
    first.Wait(1001, 1001, 30, reached);
    EXPECT_FALSE(reached);
    std::thread setter([&] {
        std::this_thread::sleep_for(50ms);
        second.Set(1001);
    });
    first.Wait(1001, 1001, 5000, reached);
    setter.join();
    EXPECT_TRUE(reached);
    // The wait left the value for the next one.
    EXPECT_NE(OS9Event(0, L"ShellTestEvent", 0, 0, 0).TryWait(1001, 1001, 0, nullptr), 0);

    // A run that waits on an event is stopped out of its wait.
    std::future<ExitCode> waiter = Start("HostProbe wait ShellTestOther");
    ASSERT_TRUE(WaitForRuns(1));
    EXPECT_EQ(Host::StopRunsNamed(L"HostProbe"), 1);
    ExpectStopCode(waiter.get());
}

}  // namespace
