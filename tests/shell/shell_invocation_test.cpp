// labshell started as a process: its status and message for every start
// that cannot go on, the data folder it makes, where it looks for a plug-in
// file, and its logs, renamed at their size limit of 1 MiB and used as they
// are past 2 GiB.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

// A folder of the test's own, gone again at the end.
struct Scratch {
    fs::path root = fs::temp_directory_path() / ("shell_invocation_" + std::to_string(::getpid()));
    Scratch() {
        fs::remove_all(root);
        fs::create_directories(root);
    }
    ~Scratch() { fs::remove_all(root); }
};

TEST(ShellInvocation, EachStartThatCannotGoOnHasItsStatusAndMessage) {
    Scratch scratch;
    std::string const root = scratch.root.string(), data = "--data " + root + "/data ";
    std::ofstream(root + "/plain") << "not a folder\n";
    std::ofstream(root + "/bad.dll") << "not a plug-in\n";
    fs::create_directories(root + "/store");
    std::ofstream(root + "/store/usage.db") << "no usage store\n";
    fs::create_directories(root + "/config/config.ini");
    // The arguments, the status and how the output begins.
    struct Case { std::string arguments; int status; std::string output; } const cases[] = {
        {"--data", 2, "labshell: --data needs a value\n"},
        {"--bogus -c status", 2, "labshell: unknown option --bogus\n"},
        {"one.lsh two.lsh", 2, "labshell: one script at most, and last\n"},
        {data + "--today 20240230 -c status", 1, "labshell: --today 20240230 is no valid date YYYYMMDD\n"},
        {data + "missing.lsh", 1, "labshell: cannot read missing.lsh\n"},
        {data + root, 1, "labshell: cannot read " + root + ": Is a directory\n"},
        {data + "--plugin bad.dll -c status", 1, "labshell: cannot load bad.dll: ./bad.dll: "},
        {data + "--plugin No.dll -c status", 1, "labshell: cannot load No.dll: " LABSHELL_BIN_DIR "/No.dll: "},
        {"--data " + root + "/plain -c status", 1, "labshell: data folder " + root + "/plain is not a folder\n"},
        {"--data " + root + "/store -c status", 1, "labshell: usage store " + root + "/store/usage.db: not a usage store"},
        {"--data " + root + "/config -c status", 1, "labshell: " + root + "/config/config.ini: Is a directory\n"},
        {"--help", 0, "Usage: labshell [--data DIR] [--plugin FILE]... [--today YYYYMMDD] [--echo]\n"},
        {"--version", 0, "labshell "},
    };
    for (Case const& test : cases) {
        Outcome outcome = RunLabshell(test.arguments, root);
        EXPECT_EQ(outcome.status, test.status) << test.arguments;
        EXPECT_EQ(outcome.output.substr(0, test.output.size()), test.output) << test.arguments;
        EXPECT_EQ(outcome.output.find("InfoDateTimeValid"), std::string::npos) << "no line may run: " << test.arguments;
    }
    EXPECT_EQ(Contents(root + "/store/usage.db"), "no usage store\n");
}

TEST(ShellInvocation, TheDataFolderIsMadeWhereItIsNamedOrSaidWhereItIsMade) {
    Scratch scratch;
    std::string const fresh = (scratch.root / "fresh" / "deeper").string();
    Outcome made = RunLabshell("--data=" + fresh + " -c \"UsageLog -b Made=4\"");
    EXPECT_EQ(made.status, 0) << made.output;
    EXPECT_TRUE(fs::is_directory(fresh + "/log"));
    EXPECT_EQ(RunLabshell("--data " + fresh + " -c \"UsageLog Made\"").output, "Made=4\n");
    // Nobody named a folder: the one made in the working folder is named, once.
    EXPECT_EQ(RunLabshell("-c status", scratch.root.string()).output,
              "labshell: no --data given: creating the data folder " + (scratch.root / "labdata").string() +
                  "\nInfoDateTimeValid=true\n");
    EXPECT_EQ(RunLabshell("-c status", scratch.root.string()).output, "InfoDateTimeValid=true\n");
}

TEST(ShellInvocation, APlugInIsLookedForInTheWorkingFolderThenBesideLabshellOnly) {
    Scratch scratch;
    fs::create_directories(scratch.root / "here");
    fs::create_directories(scratch.root / "lib");
    // UsageLog.dll under the sample's name in the working folder; beside
    // labshell the sample itself, which has no UsageLog command.
    fs::copy_file(LABSHELL_BIN_DIR "/UsageLog.dll", scratch.root / "here" / "AutoTestSample.dll");
    fs::copy_file(LABSHELL_BIN_DIR "/UsageLog.dll", scratch.root / "lib" / "OnlyHere.dll");
    std::string const data = "--data " + (scratch.root / "data").string();
    EXPECT_EQ(RunLabshell(data + " --plugin AutoTestSample.dll -c 'help UsageLog'", (scratch.root / "here").string()).status, 0);
    EXPECT_EQ(RunLabshell(data + " --plugin AutoTestSample.dll -c 'help UsageLog'", scratch.root.string()).status, 127);
    // The library path is never searched.
    char const* path = std::getenv("LD_LIBRARY_PATH");
    std::string const old = path != nullptr ? path : "";
    setenv("LD_LIBRARY_PATH", ((scratch.root / "lib").string() + ":" + old).c_str(), 1);
    Outcome unsearched = RunLabshell(data + " --plugin OnlyHere.dll -c status", scratch.root.string());
    path != nullptr ? setenv("LD_LIBRARY_PATH", old.c_str(), 1) : unsetenv("LD_LIBRARY_PATH");
    EXPECT_EQ(unsearched.status, 1);
    EXPECT_EQ(unsearched.output.rfind("labshell: cannot load OnlyHere.dll: " LABSHELL_BIN_DIR "/OnlyHere.dll: ", 0), 0u)
        << unsearched.output;
}

off_t SizeOf(fs::path const& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

// A log of `size` bytes, sparse: sizes past 2 GiB, where 32-bit file
// offsets end, cost no disk.
void MakeLog(fs::path const& path, off_t size) {
    ::close(::open(path.c_str(), O_CREAT | O_WRONLY, 0644));
    ASSERT_EQ(::truncate(path.c_str(), size), 0) << path;
}

TEST(ShellInvocation, LogsAreRenamedAtOneMebibyteAndUsedAsTheyArePastTwoGibibytes) {
    Scratch scratch;
    fs::path const data = scratch.root, log = data / "log";
    ASSERT_EQ(RunLabshell("--data " + data.string() + " -c 'UsageLog -b Kept=5' -c 'UsageLog -b Control.Abort.Date=20240101 -vD'").status, 0);
    off_t const mebibyte = 1 << 20, large = off_t{3} << 30;
    // The store's header names its own size: the zeros past it are ignored.
    ASSERT_EQ(::truncate((data / "usage.db").c_str(), large), 0);
    MakeLog(log / "error.log", large);
    std::ofstream(log / "error.log.1") << "an older one\n";
    // "Abort" with its time stamp fills the run log up to its limit exactly.
    MakeLog(log / "run.log", mebibyte - 26);
    // Room for the trace's first two lines, "[S]" and "Evaluate: AlertUser=true".
    MakeLog(log / "UsageAlertLog.log", mebibyte - 24 - 45);
    std::ofstream(data / "UsageSchedule.ini") << "[S]\nAlertUser=true\n";

    Outcome outcome = RunLabshell("--data " + data.string() +
                                  " -c 'UsageLog Kept' -c 'UsageLog -c Control.Abort.Date' -c 'GetUsageAlerts s'");
    EXPECT_EQ(outcome.output, "Kept=5\n");
    EXPECT_EQ(SizeOf(log / "error.log.1"), large);
    EXPECT_NE(Contents(log / "error.log").find("Missing required key 'Id='"), std::string::npos);
    EXPECT_EQ(SizeOf(log / "run.log"), mebibyte);
    EXPECT_FALSE(fs::exists(log / "run.log.1"));
    EXPECT_EQ(SizeOf(log / "UsageAlertLog.log.1"), mebibyte);
    std::string trace = Contents(log / "UsageAlertLog.log");
    EXPECT_EQ(trace.size(), 20u + 13 + 20 + 28) << trace;
    EXPECT_NE(trace.find(" Result: true\n"), std::string::npos) << trace;
}

}  // namespace
