// Helpers shared by the unit tests: an in-process host with a data folder
// of the suite's own, and labshell started as a process.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "frame/host/System.h"
#include "labhost/Host.h"

// Opens a fresh data folder named after the suite and loads UsageLog.dll.
inline void OpenSuiteHost(std::string const& name, std::filesystem::path& dataDir) {
    dataDir = std::filesystem::temp_directory_path() / (name + "_" + std::to_string(::getpid()));
    std::filesystem::remove_all(dataDir);
    std::string error, warning;
    ASSERT_TRUE(Host::OpenDataFolder(WString::FromUtf8(dataDir.string()), error)) << error;
    ASSERT_TRUE(Host::LoadPlugin(LABSHELL_BIN_DIR "/UsageLog.dll", error, warning)) << error;
}

inline void DeleteAllUsageItems() {
    WStringArray keys;
    System::usage.GetAllKeys(keys);
    for (unsigned int i = 0; i < keys.count; ++i) System::usage.TryDeleteItem(keys[i].c_str());
}

// labshell as a command line for a shell, behind the emulator of a
// cross-build (empty natively).
inline std::string LabshellCommand() { return std::string(LABSHELL_EMULATOR " " LABSHELL_BIN_DIR "/labshell"); }

inline std::string Contents(std::filesystem::path const& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

struct Outcome {
    int status;          // -1 when labshell did not end by itself
    std::string output;  // stdout and stderr
};

// Runs labshell with `arguments` in `folder`, without $LABSHELL_DATA and
// with no standard input.
inline Outcome RunLabshell(std::string const& arguments, std::string const& folder = ".") {
    std::string command =
        "cd '" + folder + "' && env -u LABSHELL_DATA " + LabshellCommand() + " " + arguments + " 2>&1 </dev/null";
    Outcome outcome{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[256];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) outcome.output += buffer;
    int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// Replaces the calling (forked) process by labshell with `arguments`.
[[noreturn]] inline void ExecLabshell(std::vector<std::string> const& arguments) {
    std::vector<std::string> words;
    std::istringstream emulator(LABSHELL_EMULATOR);
    for (std::string word; emulator >> word;) words.push_back(word);
    words.push_back(LABSHELL_BIN_DIR "/labshell");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());  // the emulator may be named without its folder
    _exit(127);
}
