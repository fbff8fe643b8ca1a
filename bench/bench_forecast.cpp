// "forecast 365" on the sample schedule over a store of 10 000 items, as a
// whole labshell process, beside the same process running "date": the
// difference is the forecast's own cost (730 evaluations and one store copy).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "System.h"
#include "runtime/UsageStore.h"

extern char** environ;

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
        for (int i = 0; i < StoreItems; ++i) {
            std::wstring number = std::to_wstring(i);
            switch (i % 3) {
                case 0: System::usage.Increment((L"Bench.Counter" + number).c_str(), i); break;
                case 1: System::usage.IncrementTimer((L"Bench.Timer" + number).c_str(), i * 60); break;
                default: System::usage.SetDate((L"Bench.Date" + number).c_str(), 20240101u + i % 28, false); break;
            }
        }
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
    std::string folder = Folder();
    std::string labshell = std::string(LABSHELL_BIN_DIR) + "/labshell";
    char* argv[] = {labshell.data(), const_cast<char*>("--data"), folder.data(),  const_cast<char*>("--today"),
                    const_cast<char*>("20240815"), const_cast<char*>("-c"), command.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t child = 0;
        if (posix_spawn(&child, labshell.c_str(), &actions, nullptr, argv, environ) != 0) {
            state.SkipWithError("labshell did not start");
            break;
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            state.SkipWithError("labshell failed");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

void StartUpOnly(benchmark::State& state) { RunLabshell(state, "date"); }
void ForecastYear(benchmark::State& state) { RunLabshell(state, "forecast 365"); }

BENCHMARK(StartUpOnly)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ForecastYear)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
