// The in-process host of a benchmark: a fresh data folder named after the
// benchmark, with UsageLog.dll loaded. A host that cannot start ends the
// program, for no figure would mean anything.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "runtime/Host.h"

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
