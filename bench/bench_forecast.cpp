// "forecast 365" on the sample schedule over a store of 10 000 items, as a
// whole labshell process, beside the same process running "date": the
// difference is the forecast's own cost (730 evaluations and one store copy).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "System.h"
#include "bench_host.h"
#include "labhost/store/UsageStore.h"

namespace {

namespace fs = std::filesystem;

constexpr int StoreItems = 10000;

// Filled once through the store itself, with the sample schedule beside it.
struct DataFolder {
    std::string path;

    DataFolder() : path(fs::temp_directory_path() / ("bench_forecast_" + std::to_string(getpid()))) {
        fs::create_directories(path);
        fs::copy_file(LABSHELL_SOURCE_DIR "/examples/UsageSchedule.ini", path + "/UsageSchedule.ini");
        std::string error;
        UsageStore& store = System::usage.Store();
        if (!store.Open(path + "/usage.db", error)) throw std::runtime_error(error);
        FillMixedStore(StoreItems);
        // The schedule's own items, so that its alerts fall due within the year.
        System::usage.SetDate(L"Service.MaintenanceDate", 20240301u, false);
        System::usage.SetDate(L"Schedule.DesorbDate", 20240805u, false);
        System::usage.SetDate(L"Schedule.SanitizeDate", 20240720u, false);
        System::usage.Increment(L"Control.Method.SuccessCount", 4600);
        System::usage.SaveChanges();
        store.Close();
    }
    ~DataFolder() { fs::remove_all(path); }
};

std::string const& Folder() {
    static DataFolder folder;
    return folder.path;
}

void RunLabshell(benchmark::State& state, std::string command) {
    for (auto _ : state) {
        rusage usage{};
        if (!RunLabshellProcess({"--data", Folder(), "--today", "20240815", "-c", command}, usage)) {
            state.SkipWithError("labshell failed");
            break;
        }
    }
}

void StartUpOnly(benchmark::State& state) { RunLabshell(state, "date"); }
void ForecastYear(benchmark::State& state) { RunLabshell(state, "forecast 365"); }

BENCHMARK(StartUpOnly)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ForecastYear)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
