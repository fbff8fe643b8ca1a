// The usage store under the load of an instrument with many items: one
// increment, a prefix pattern, a save of one change in a small and a large
// store, the memory an item costs, a save of a million dirty items, and
// "UsageLog -c Control.*" over 250 000 matching items of a million.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "UsageLog.h"
#include "bench_host.h"
#include "frame/host/System.h"
#include "labhost/store/UsageStore.h"

namespace {

constexpr int StoreSize = 100000;
constexpr int LargeStoreSize = 1000000;

// Keys of the shapes the firmware uses; a quarter of them start with "Control.".
std::wstring RealisticKey(int i) {
    std::wstring n = std::to_wstring(i);
    switch (i % 4) {
    case 0: return L"Control.Method" + n + L".SuccessCount";
    case 1: return L"Run.Cycle" + n + L"HzTime";
    case 2: {
        int seconds = i / 4;  // unique below a day's seconds
        wchar_t time[16];
        swprintf(time, 16, L"%02d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
        return L"Error." + std::wstring(time) + L".Count";
    }
    default: return L"Tool.X" + n + L".Date";
    }
}

void Fill(UsageLog& usage, int items) {
    for (int i = 0; i < items; ++i) {
        std::wstring key = RealisticKey(i);
        if (i % 4 == 3)
            usage.SetDate(key.c_str(), 20240101u, false);
        else
            usage.Increment(key.c_str(), i);
    }
}

double ProcessCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](timeval const& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

UsageLog& FilledStore() {
    static UsageLog usage;
    static bool filled = (Fill(usage, StoreSize), true);
    (void)filled;
    return usage;
}

// Stores of a given size, each saved to a file of its own, kept for the whole
// run; their folders are removed at exit.
class SavedStores {
public:
    ~SavedStores() {
        stores_.clear();
        for (auto const& dir : dirs_) std::filesystem::remove_all(dir);
    }

    UsageLog& Get(int items) {
        auto& usage = stores_[items];
        if (usage) return *usage;
        auto dir = std::filesystem::temp_directory_path() /
                   ("bench_store_" + std::to_string(getpid()) + "_" + std::to_string(items));
        std::filesystem::create_directories(dir);
        dirs_.push_back(dir);
        usage = std::make_unique<UsageLog>();
        std::string error;
        if (!usage->Store().Open((dir / "usage.db").string(), error)) throw std::runtime_error(error);
        Fill(*usage, items);
        usage->SaveChanges();
        return *usage;
    }

private:
    std::map<int, std::unique_ptr<UsageLog>> stores_;
    std::vector<std::filesystem::path> dirs_;
};

SavedStores savedStores;

void BM_ResidentMemoryPerItem(benchmark::State& state) {
    int items = static_cast<int>(state.range(0));
    for (auto _ : state) {
        long before = ResidentBytes();
        auto usage = std::make_unique<UsageLog>();
        Fill(*usage, items);
        long after = ResidentBytes();
        state.counters["bytes_per_item"] = static_cast<double>(after - before) / items;
    }
}
BENCHMARK(BM_ResidentMemoryPerItem)->Arg(StoreSize)->Arg(LargeStoreSize)->Iterations(1)->Unit(benchmark::kMillisecond);

// Every item of a saved store of a million changed, then one save.
void BM_SaveAllItemsDirty(benchmark::State& state) {
    UsageLog& usage = savedStores.Get(LargeStoreSize);
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < LargeStoreSize; ++i) usage.Increment(RealisticKey(i).c_str(), 1);
        state.ResumeTiming();
        usage.SaveChanges();
    }
    state.counters["rows"] = usage.Store().LastSaveRowCount();
}
BENCHMARK(BM_SaveAllItemsDirty)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The command line as the firmware runs it, in the host with the plug-in.
void BM_UsageLogResetControlPrefix(benchmark::State& state) {
    static std::filesystem::path const dir = OpenBenchHost("bench_store");
    static bool const filled = (Fill(System::usage, LargeStoreSize), true);
    (void)filled;
    unsigned int result = 0;
    // The command runs on a thread of its own: the process's CPU time is its.
    double cpuBefore = ProcessCpuSeconds();
    for (auto _ : state) result = Host::RunLine(L"UsageLog -c Control.*", Pipe([](WString const&) {})).number;
    if (result != 0) state.SkipWithError("UsageLog -c failed");
    state.counters["items"] = LargeStoreSize / 4;
    state.counters["cpu_ms_per_run"] =
        1000.0 * (ProcessCpuSeconds() - cpuBefore) / static_cast<double>(state.iterations());
    Host::Shutdown();
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_UsageLogResetControlPrefix)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_IncrementOneKey(benchmark::State& state) {
    UsageLog& usage = FilledStore();
    for (auto _ : state) usage.Increment(L"Control.Method40.SuccessCount", 1);
}
BENCHMARK(BM_IncrementOneKey);

void BM_MatchingKeysControlPrefix(benchmark::State& state) {
    UsageLog& usage = FilledStore();
    for (auto _ : state) {
        WStringArray keys;
        usage.GetMatchingKeys(WString(L"Control.*"), keys);
        benchmark::DoNotOptimize(keys.count);
    }
}
BENCHMARK(BM_MatchingKeysControlPrefix)->Unit(benchmark::kMillisecond);

void BM_SaveOneDirtyItem(benchmark::State& state) {
    UsageLog& usage = savedStores.Get(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        usage.Increment(L"Run.Cycle1HzTime", 1);
        usage.SaveChanges();
    }
    state.counters["rows"] = usage.Store().LastSaveRowCount();
}
BENCHMARK(BM_SaveOneDirtyItem)->Arg(100)->Arg(StoreSize)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
