// "GetUsageAlerts v" on schedules of 50, 200 and 800 sections, each with four
// expressions over usage keys, against a store of 10 000 items. Every run
// reads the whole file and evaluates everything, so the time per run has to
// grow linearly with the number of sections.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench_host.h"
#include "frame/host/System.h"
#include "labhost/Host.h"

namespace {

namespace fs = std::filesystem;

constexpr int StoreItems = 10000;

fs::path const& DataFolder() {
    static fs::path const folder = [] {
        fs::path dir = OpenBenchHost("bench_alerts");
        FillMixedStore(StoreItems);
        return dir;
    }();
    return folder;
}

void WriteSchedule(int sections) {
    std::ofstream file(DataFolder() / "UsageSchedule.ini");
    for (int s = 0; s < sections; ++s) {
        int item = (s * 7) % (StoreItems / 3) * 3;  // a counter, then its timer and date; spread over the store
        file << "[Section" << s << "]\n"
             << "Id=" << s << "\nType=1\nLevel=4\n"
             << "Days=now-DateToDays(Bench.Date" << item + 2 << ")\n"
             << "Hours=INT(Bench.Timer" << item + 1 << " / 3600)\n"
             << "AlertUser=Days > 180 || Bench.Counter" << item << " > 5000\n"
             << "AlertService=Hours > 100 && Days > 120\n"
             << "Message=#Due\\n$(Days) days, $(Hours) hours\n";
    }
}

void BM_GetUsageAlertsVerify(benchmark::State& state) {
    int sections = static_cast<int>(state.range(0));
    WriteSchedule(sections);
    std::size_t lines = 0;
    Pipe sink([&lines](WString const&) { ++lines; });
    for (auto _ : state) {
        ExitCode result = Host::RunLine(WString(L"GetUsageAlerts v"), sink);
        if (result.number != 0) state.SkipWithError("GetUsageAlerts v failed");
    }
    if (lines != static_cast<std::size_t>(sections) * state.iterations()) state.SkipWithError("alert lines missing");
    state.SetComplexityN(sections);
    state.counters["sections/s"] =
        benchmark::Counter(static_cast<double>(sections), benchmark::Counter::kIsIterationInvariantRate);
}
// The command runs on a thread of its own: only the wall clock sees it.
BENCHMARK(BM_GetUsageAlertsVerify)
    ->Arg(50)
    ->Arg(200)
    ->Arg(800)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    Host::Shutdown();
    fs::remove_all(DataFolder());
    return 0;
}
