// The in-process host of a benchmark: a fresh data folder named after the
// benchmark, with UsageLog.dll loaded. A host that cannot start ends the
// program, for no figure would mean anything.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "System.h"
#include "labhost/Host.h"

extern char** environ;

inline std::filesystem::path OpenBenchHost(std::string const& name) {
    std::filesystem::path dir = std::filesystem::temp_directory_path() / (name + "_" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::string error, warning;
    if (!Host::OpenDataFolder(WString::FromUtf8(dir.string()), error) ||
        !Host::LoadPlugin(LABSHELL_BIN_DIR "/UsageLog.dll", error, warning)) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), error.c_str());
        std::exit(1);
    }
    return dir;
}

// A store of counters, timers and dates, as an instrument collects them.
inline void FillMixedStore(int items) {
    for (int i = 0; i < items; ++i) {
        std::wstring number = std::to_wstring(i);
        switch (i % 3) {
            case 0: System::usage.Increment((L"Bench.Counter" + number).c_str(), i); break;
            case 1: System::usage.IncrementTimer((L"Bench.Timer" + number).c_str(), i * 60); break;
            default: System::usage.SetDate((L"Bench.Date" + number).c_str(), 20240101u + i % 28, false); break;
        }
    }
}

// Runs labshell with `arguments` as a whole process, its output thrown
// away; false when it did not start or did not end with 0. `usage` gets what
// the process used (its peak memory among it).
inline bool RunLabshellProcess(std::vector<std::string> arguments, rusage& usage) {
    std::string labshell = std::string(LABSHELL_BIN_DIR) + "/labshell";
    std::vector<char*> argv{labshell.data()};
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    bool started = posix_spawn(&child, labshell.c_str(), &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!started) return false;
    int status = 0;
    wait4(child, &status, 0, &usage);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
