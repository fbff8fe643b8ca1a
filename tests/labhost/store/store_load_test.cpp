// Load on one store: 32 background runs of 1,000 increments each, through
// UsageLog command lines, on one shared key and on keys of their own, with
// items deleted and made again, while the store is saved over and over.
// Every increment counts, in memory and in the file.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "UsageLog.h"
#include "labhost/store/UsageStore.h"
#include "tests/support/test_support.h"

namespace {

constexpr int BackgroundRuns = 32;
constexpr int IncrementsEach = 1000 / LABSHELL_SLOW_FACTOR;

std::wstring Key(int run, wchar_t const* kind) { return L"Load." + std::to_wstring(run) + L"." + kind; }

// "LoadIncrements N": IncrementsEach times "UsageLog -a" on Load.Shared.Count
// and Load.N.Count; every 50 of them Load.N.Date is deleted or made again.
class LoadIncrements : public CommandBase {
public:
    WString GetName() override { return L"LoadIncrements"; }
    std::uint32_t GetCommandId() override { return 4322; }
    char const* GetSourceCodeTimestamp() override { return "test"; }
    void ShowUsage() override {}
    ExitCode Main(ArgumentList& args, Options&) override {
        int run = static_cast<int>(args.At(0).text.GetUInt(1, 0, BackgroundRuns));
        WString increment(L"UsageLog -a Load.Shared.Count " + Key(run, L"Count"));
        WString remove(L"UsageLog -z " + Key(run, L"Date=")), make(L"UsageLog -c -vD " + Key(run, L"Date"));
        for (int i = 0; i < IncrementsEach; ++i) {
            if (Run(increment, pipe, 0).number != 0) return ExitCode(1);
            if (i % 50 == 0 && Run(i % 100 == 0 ? remove : make, pipe, 0).number != 0) return ExitCode(1);
        }
        return ExitCode(0);
    }
};

CommandBase* CreateLoadIncrements() { return new LoadIncrements(); }

// The sums, and the dates as the runs left them.
void ExpectAsTheRunsLeftIt(UsageLog& usage) {
    EXPECT_EQ(usage.GetUsageValue(L"Load.Shared.Count", 1), BackgroundRuns * IncrementsEach);
    bool const dated = (IncrementsEach - 1) / 50 % 2 == 1;
    for (int run = 0; run < BackgroundRuns; ++run) {
        EXPECT_EQ(usage.GetUsageValue(Key(run, L"Count").c_str(), 1), IncrementsEach) << "run " << run;
        EXPECT_EQ(usage.ContainsKey(Key(run, L"Date").c_str()), dated) << "run " << run;
    }
}

}  // namespace

TEST(StoreLoad, ConcurrencyBackgroundRunsIncrementSharedAndOwnKeysExactly) {
    std::filesystem::path data;
    OpenSuiteHost("store_load", data);
    Host::AddCommand(CreateLoadIncrements);
    Pipe silent([](WString const&) {});
    for (int run = 0; run < BackgroundRuns; ++run) {
        ExitCode failure;
        ASSERT_GT(Host::StartBackground(WString(L"LoadIncrements " + std::to_wstring(run)), silent, failure), 0);
    }
    // The runs give no go-ahead: they settle when they end.
    int matched = 0, saves = 0;
    for (; !Host::AwaitSettled(L"LoadIncrements", 20, matched); ++saves)
        EXPECT_EQ(Host::RunLine(L"UsageLog -b", silent).number, 0u);
    std::printf("%d saves while the runs incremented\n", saves);
    ExpectAsTheRunsLeftIt(System::usage);
    EXPECT_EQ(Host::RunLine(L"UsageLog -b", silent).number, 0u);
    EXPECT_EQ(System::usage.Store().DirtyCount(), 0u);

    UsageLog saved;
    std::string error;
    ASSERT_TRUE(saved.Store().Open((data / "usage.db").string(), error)) << error;
    ExpectAsTheRunsLeftIt(saved);
    Host::Shutdown();
    std::filesystem::remove_all(data);
}
