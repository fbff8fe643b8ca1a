// A labshell that may make no thread at all: a run that needs a thread of
// its own fails alone with exit number 120 and an error-log line, while the
// shell's own lines go on and a save still reaches the file.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

// Runs labshell with `lines` as -c lines, as a user of its own that may own
// one process and no further thread; gives its exit status.
int RunWithoutThreads(fs::path const& data, std::vector<std::string> const& lines, fs::path const& output) {
    std::vector<std::string> words{"--echo", "--data", data.string()};
    for (std::string const& line : lines) words.insert(words.end(), {"-c", line});
    pid_t child = fork();
    if (child == 0) {
        // Root is exempt from the process limit: become a user nobody else is.
        constexpr uid_t LoneUser = 54321;
        rlimit one{1, 1};
        FILE* out = std::fopen(output.c_str(), "w");
        if (out == nullptr || dup2(fileno(out), 1) < 0 || dup2(fileno(out), 2) < 0 || setgid(LoneUser) != 0 ||
            setuid(LoneUser) != 0 || setrlimit(RLIMIT_NPROC, &one) != 0) {
            _exit(90);
        }
        // The leak check at exit needs a thread of its own: not here.
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        ExecLabshell(words);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ShellThreadLimit, RunsWithoutAThreadFailAloneAndTheShellGoesOn) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run labshell as a user of its own";
    if (std::string(LABSHELL_EMULATOR).size() > 0) GTEST_SKIP() << "an emulator needs threads of its own";
    fs::path data = fs::temp_directory_path() / ("thread_limit_" + std::to_string(::getpid()));
    fs::remove_all(data);
    fs::create_directories(data);
    fs::permissions(data, fs::perms::all);
    fs::path output = data / "output.txt";

    int status = RunWithoutThreads(data, {"SHELL -b UsageLog -m Pump.Time", "SHELL UsageLog -a Pump.Count", "UsageLog -b"},
                                   output);
    ASSERT_NE(status, 90) << "the test could not set the limit up";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Contents(output), "> SHELL -b UsageLog -m Pump.Time\n= 120\n> SHELL UsageLog -a Pump.Count\n= 0\n"
                                "> UsageLog -b\n= 0\n");
    EXPECT_NE(Contents(data / "log" / "error.log").find("** UsageLog (process 1) could not start: no thread"),
              std::string::npos);
    // Read back by a labshell without the limit: the increment was saved.
    EXPECT_EQ(RunLabshell("--data . -c 'UsageLog Pump.*'", data.string()).output, "Pump.Count=1\n");
    fs::remove_all(data);
}

}  // namespace
