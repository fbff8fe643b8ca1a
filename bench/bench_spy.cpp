// UsageLogSpy over a store of 100 000 items, as an instrument has it: the
// keys were made in no particular order, saved, and loaded from the file at
// start. SpyIdle: a monitor with -d1
// while nothing changes, over 30 seconds; it reports the process's CPU time
// as a share of one core (the goal is below 1 %). SpyFlush: the time of
// "UsageLogSpy flush" against a monitor that polls once an hour, after 1 000
// items have changed; every flush must bring out all 1 000 lines.
// SpyFlushAfterNewKey/N: the same after one new key in a store grown to N
// items, so the monitor's pass reads and merges the key list; the flush must
// bring out the new key's line.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench_host.h"
#include "frame/host/System.h"
#include "labhost/Host.h"
#include "labhost/store/UsageStore.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int StoreItems = 100000;
constexpr int ChangedItems = 1000;

std::wstring ItemKey(int i) { return L"Bench.Item" + std::to_wstring(i) + L".Count"; }

// Grows the store to `items` items of value 1, made in a shuffled order,
// then saves it and loads it back as a restart does.
void OpenStoreWith(int items = StoreItems) {
    static fs::path const folder = OpenBenchHost("bench_spy");
    int const present = static_cast<int>(System::usage.Count());
    if (present >= items) return;
    std::vector<int> fresh(static_cast<std::size_t>(items - present));
    std::iota(fresh.begin(), fresh.end(), present);
    std::shuffle(fresh.begin(), fresh.end(), std::mt19937(7));
    for (int i : fresh) System::usage.Increment(ItemKey(i).c_str(), 1);
    System::usage.SaveChanges();
    System::usage.Store().Close();
    std::string error;
    if (!System::usage.Store().Open((folder / "usage.db").string(), error)) {
        std::fprintf(stderr, "bench_spy: %s\n", error.c_str());
        std::exit(1);
    }
}

// A monitor on a thread of its own whose lines are only counted.
class Monitor {
public:
    explicit Monitor(char const* line) {
        long const items = System::usage.Count();
        run_ = std::async(std::launch::async, [this, line = WString(line)] {
            return Host::RunLine(line, Pipe([this](WString const&) { ++lines_; }));
        });
        while (lines_ < items) std::this_thread::sleep_for(10ms);  // the dump
        std::this_thread::sleep_for(200ms);                               // into its first sleep
    }
    ~Monitor() {
        Host::StopRunsNamed(L"UsageLogSpy");
        run_.wait();
    }
    long Lines() const { return lines_; }

private:
    std::atomic<long> lines_{0};
    std::future<ExitCode> run_;
};

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](timeval const& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Registered first: the store only grows, and the first size is the smaller.
void SpyFlushAfterNewKey(benchmark::State& state) {
    OpenStoreWith(static_cast<int>(state.range(0)));
    Monitor monitor("UsageLogSpy -d3600");
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        long before = monitor.Lines();
        std::wstring key = L"Bench.New" + std::to_wstring(state.range(0)) + L"." + std::to_wstring(round++);
        System::usage.Increment(key.c_str(), 1);
        state.ResumeTiming();
        unsigned int result = Host::RunLine(L"UsageLogSpy flush -w3600", Pipe([](WString const&) {})).number;
        state.PauseTiming();
        if (result != 0 || monitor.Lines() - before != 1) {
            state.SkipWithError("the flush did not bring out the new key");
            break;
        }
        state.ResumeTiming();
    }
}
BENCHMARK(SpyFlushAfterNewKey)->Arg(20000)->Arg(100000)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

void SpyIdle(benchmark::State& state) {
    OpenStoreWith();
    Monitor monitor("UsageLogSpy -d1");
    double wallSeconds = static_cast<double>(state.range(0));
    double cpu = 0.0;
    for (auto _ : state) {
        double before = CpuSeconds();
        std::this_thread::sleep_for(std::chrono::duration<double>(wallSeconds));
        cpu = CpuSeconds() - before;
        state.SetIterationTime(wallSeconds);
    }
    state.counters["cpu_percent_of_one_core"] = 100.0 * cpu / wallSeconds;
    state.counters["lines_while_idle"] = static_cast<double>(monitor.Lines() - System::usage.Count());
}
BENCHMARK(SpyIdle)->Arg(30)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void SpyFlush(benchmark::State& state) {
    OpenStoreWith();
    Monitor monitor("UsageLogSpy -d3600");
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        long before = monitor.Lines();
        for (int i = 0; i < ChangedItems; ++i) System::usage.Increment(ItemKey((round * ChangedItems + i) % StoreItems).c_str(), 1);
        ++round;
        state.ResumeTiming();
        unsigned int result = Host::RunLine(L"UsageLogSpy flush", Pipe([](WString const&) {})).number;
        state.PauseTiming();
        if (result != 0 || monitor.Lines() - before != ChangedItems) {
            state.SkipWithError("the flush did not bring out every change");
            break;
        }
        state.ResumeTiming();
    }
}
BENCHMARK(SpyFlush)->Iterations(20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
