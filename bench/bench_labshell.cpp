// labshell start-up to its first command: a whole process that opens a data
// folder with N usage items, loads UsageLog.dll and runs one command. The
// process's peak resident memory beside that of an empty store gives the
// memory an item costs.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "System.h"
#include "bench_host.h"
#include "labhost/store/UsageStore.h"

namespace {
// One data folder per item count, filled once through the store itself.
struct Folders : std::map<int, std::string> {
    ~Folders() {
        for (auto const& entry : *this) std::filesystem::remove_all(entry.second);
    }
};

std::string DataFolderWith(int items) {
    static Folders folders;
    auto found = folders.find(items);
    if (found != folders.end()) return found->second;
    std::string folder = std::filesystem::temp_directory_path() /
                         ("bench_labshell_" + std::to_string(getpid()) + "_" + std::to_string(items));
    std::filesystem::create_directories(folder);
    // Filled in a child: the memory of labshell is measured from its start,
    // and a child started from a large process would inherit its size.
    pid_t filler = fork();
    if (filler == 0) {
        std::string error;
        if (!System::usage.Store().Open(folder + "/usage.db", error)) _exit(1);
        for (int i = 0; i < items; ++i) {
            std::wstring key =
                L"Control.Method" + std::to_wstring(i % 500) + L".Step" + std::to_wstring(i) + L".SuccessCount";
            System::usage.Increment(key.c_str(), i);
        }
        System::usage.SaveChanges();
        System::usage.Store().Close();
        _exit(System::usage.Store().DirtyCount() == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(filler, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("cannot fill " + folder);
    folders[items] = folder;
    return folder;
}

void LabshellStartUp(benchmark::State& state) {
    std::string folder = DataFolderWith(static_cast<int>(state.range(0)));
    static long emptyPeakKb = 0;
    long peakKb = 0;
    for (auto _ : state) {
        rusage usage{};
        if (!RunLabshellProcess({"--data", folder, "-c", "GetFormattedUsageData 1"}, usage)) {
            state.SkipWithError("labshell failed");
            break;
        }
        peakKb = usage.ru_maxrss;
    }
    state.counters["items"] = static_cast<double>(state.range(0));
    state.counters["peak_rss_mb"] = static_cast<double>(peakKb) / 1024.0;
    if (state.range(0) == 0) emptyPeakKb = peakKb;
    if (state.range(0) > 0 && emptyPeakKb > 0)
        state.counters["bytes_per_item"] =
            static_cast<double>(peakKb - emptyPeakKb) * 1024.0 / static_cast<double>(state.range(0));
}
BENCHMARK(LabshellStartUp)->Arg(0)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace

BENCHMARK_MAIN();
