// labshell's start on a data folder or store that cannot be used: a message
// on stderr, a non-zero status, and the store's file left as it was.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string output;  // stdout and stderr
};

Outcome RunLabshell(std::string const& arguments) {
    std::string command = std::string(LABSHELL_EMULATOR " " LABSHELL_BIN_DIR "/labshell ") + arguments + " 2>&1 </dev/null";
    Outcome outcome{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[256];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) outcome.output += buffer;
    int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::string Contents(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

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

    // A missing folder is made, with its log folder and a store.
    fs::path fresh = root / "fresh" / "deeper";
    Outcome onFresh = RunLabshell("--data " + fresh.string() + " -c \"UsageLog -b Made=3\"");
    EXPECT_EQ(onFresh.status, 0) << onFresh.output;
    EXPECT_TRUE(fs::is_directory(fresh / "log"));
    Outcome again = RunLabshell("--data " + fresh.string() + " -c \"UsageLog Made\"");
    EXPECT_EQ(again.output, "Made=3\n");
    fs::remove_all(root);
}

}  // namespace
