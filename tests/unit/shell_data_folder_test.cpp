// labshell's start on a data folder, store, configuration or script that
// cannot be used: a message on stderr, a non-zero status, and the store's
// file left as it was.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "test_support.h"

namespace {

namespace fs = std::filesystem;

TEST(ShellDataFolder, UnusableFolderOrStoreStopsTheShellAndLeavesTheFile) {
    fs::path root = fs::temp_directory_path() / ("shell_data_" + std::to_string(::getpid()));
    fs::remove_all(root);
    fs::create_directories(root);

    fs::path plainFile = root / "plain";
    std::ofstream(plainFile) << "not a folder\n";
    Outcome onFile = RunLabshell("--data " + plainFile.string() + " -c status");
    EXPECT_NE(onFile.status, 0);
    EXPECT_NE(onFile.output.find("is not a folder"), std::string::npos) << onFile.output;
    EXPECT_EQ(onFile.output.find("InfoDateTimeValid"), std::string::npos) << "no line may run";

    fs::path data = root / "data";
    fs::create_directories(data);
    std::string garbage = "this is no usage store\n";
    std::ofstream(data / "usage.db") << garbage;
    Outcome onGarbage = RunLabshell("--data " + data.string() + " -c status");
    EXPECT_NE(onGarbage.status, 0);
    EXPECT_NE(onGarbage.output.find("usage.db"), std::string::npos) << onGarbage.output;
    EXPECT_EQ(Contents(data / "usage.db"), garbage);

    // A configuration that cannot be read is refused, not taken as empty.
    fs::path configFolder = root / "config";
    fs::create_directories(configFolder / "config.ini");
    Outcome onConfig = RunLabshell("--data " + configFolder.string() + " -c status");
    EXPECT_NE(onConfig.status, 0);
    EXPECT_NE(onConfig.output.find("config.ini: Is a directory"), std::string::npos) << onConfig.output;
    EXPECT_EQ(onConfig.output.find("InfoDateTimeValid"), std::string::npos) << "no line may run";

    // So is a folder given as the script.
    Outcome onScript = RunLabshell("--data " + (root / "usable").string() + " " + root.string());
    EXPECT_NE(onScript.status, 0);
    EXPECT_NE(onScript.output.find("cannot read " + root.string() + ": Is a directory"), std::string::npos)
        << onScript.output;

    // A missing folder is made, with its log folder and a store.
    fs::path fresh = root / "fresh" / "deeper";
    Outcome onFresh = RunLabshell("--data " + fresh.string() + " -c \"UsageLog -b Made=3\"");
    EXPECT_EQ(onFresh.status, 0) << onFresh.output;
    EXPECT_TRUE(fs::is_directory(fresh / "log"));
    Outcome again = RunLabshell("--data " + fresh.string() + " -c \"UsageLog Made\"");
    EXPECT_EQ(again.output, "Made=3\n");
    fs::remove_all(root);
}

TEST(ShellDataFolder, InvocationHelpVersionAttachedValuesAndTheDefaultFolder) {
    Outcome help = RunLabshell("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.rfind("Usage: labshell [--data DIR]", 0), 0u) << help.output;
    EXPECT_EQ(RunLabshell("-h").output, help.output);
    Outcome version = RunLabshell("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.rfind("labshell ", 0), 0u) << version.output;

    fs::path root = fs::temp_directory_path() / ("shell_invocation_" + std::to_string(::getpid()));
    fs::remove_all(root);
    fs::create_directories(root);
    Outcome attached = RunLabshell("--data=" + (root / "data").string() + " -c \"UsageLog -b Made=4\"");
    EXPECT_EQ(attached.status, 0) << attached.output;
    EXPECT_EQ(RunLabshell("--data " + (root / "data").string() + " -c \"UsageLog Made\"").output, "Made=4\n");

    // Nobody named a folder: the one made in the working folder is named, once.
    Outcome bare = RunLabshell("-c status", root.string());
    EXPECT_EQ(bare.output, "labshell: no --data given: creating the data folder " + (root / "labdata").string() +
                               "\nInfoDateTimeValid=true\n");
    EXPECT_EQ(RunLabshell("-c status", root.string()).output, "InfoDateTimeValid=true\n");
    fs::remove_all(root);
}

// Sizes past 2 GiB, where 32-bit file offsets end, in sparse files that
// cost no disk: the store and a log must be taken as the files they are.
TEST(ShellDataFolder, StoreAndLogOverTwoGigabytesAreUsedAsTheyAre) {
    fs::path data = fs::temp_directory_path() / ("shell_large_" + std::to_string(::getpid()));
    fs::remove_all(data);
    ASSERT_EQ(RunLabshell("--data " + data.string() + " -c \"UsageLog -b Kept=5\"").status, 0);
    off_t const large = off_t{3} << 30;
    fs::path store = data / "usage.db", log = data / "log" / "error.log";
    // The store's header names its own size: the zeros past it are ignored.
    ASSERT_EQ(::truncate(store.c_str(), large), 0);
    ::close(::open(log.c_str(), O_CREAT | O_WRONLY, 0644));
    ASSERT_EQ(::truncate(log.c_str(), large), 0);
    // Its one invalid line is reported in the error log.
    std::ofstream(data / "UsageSchedule.ini") << "no schedule line\n";

    Outcome outcome = RunLabshell("--data " + data.string() + " -c \"UsageLog Kept\" -c \"GetUsageAlerts s\"");
    EXPECT_EQ(outcome.output.substr(0, outcome.output.find('\n') + 1), "Kept=5\n") << outcome.output;
    // The full log is set aside and the new line starts a fresh one.
    struct stat info {};
    ASSERT_EQ(::stat((log.string() + ".1").c_str(), &info), 0) << outcome.output;
    EXPECT_EQ(info.st_size, large);
    EXPECT_NE(Contents(log).find("no schedule line"), std::string::npos) << Contents(log);
    fs::remove_all(data);
}

}  // namespace
