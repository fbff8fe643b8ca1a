// The data folder's lock and the store's creation, from outside: a second
// labshell on a folder in use is refused and changes nothing, a lock of a
// dead process does not block, and a first start killed at random moments
// never leaves a store that the next start refuses.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "UsageLog.h"
#include "runtime/UsageStore.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

// A labshell that reads its script from a pipe and so holds its folder until
// the pipe is closed. It has its folder once it has echoed a first line.
class HoldingLabshell {
public:
    explicit HoldingLabshell(fs::path const& data) {
        int input[2], output[2];
        if (pipe(input) != 0 || pipe(output) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(input[0], 0);
            dup2(output[1], 1);
            close(input[1]);
            close(output[0]);
            std::string folder = data.string();
            ExecLabshell({"--echo", "--data", folder, "-"});
        }
        close(input[0]);
        close(output[1]);
        toShell_ = fdopen(input[1], "w");
        fromShell_ = fdopen(output[0], "r");
    }
    ~HoldingLabshell() { Finish(); }

    pid_t Pid() const { return pid_; }

    // Runs a line and gives its output up to its "= N".
    std::string Run(std::string const& line) {
        std::fprintf(toShell_, "%s\n", line.c_str());
        std::fflush(toShell_);
        std::string output;
        char buffer[256];
        while (std::fgets(buffer, sizeof buffer, fromShell_) != nullptr) {
            output += buffer;
            if (buffer[0] == '=' && buffer[1] == ' ') break;
        }
        return output;
    }

    void Kill() {
        kill(pid_, SIGKILL);
        Finish();
    }

    void Finish() {
        if (toShell_ != nullptr) std::fclose(toShell_);
        if (fromShell_ != nullptr) std::fclose(fromShell_);
        toShell_ = fromShell_ = nullptr;
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    FILE* toShell_ = nullptr;
    FILE* fromShell_ = nullptr;
};

class StoreFolder : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/store_folder_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path dir_;
};

}  // namespace

TEST_F(StoreFolder, OneLabshellPerFolderAndADeadHolderDoesNotBlock) {
    fs::path data = dir_ / "data";
    {
        HoldingLabshell holder(data);
        ASSERT_NE(holder.Run("UsageLog -b Counter=5").find("= 0"), std::string::npos);
        std::string storeBefore = Contents(data / "usage.db");
        std::string lockBefore = Contents(data / "labshell.lock");
        EXPECT_EQ(lockBefore, std::to_string(holder.Pid()) + "\n");

        // The lost update of two shells that both add one to 5 cannot happen:
        // the second one never starts.
        Outcome second = RunLabshell("--data " + data.string() + " -c \"UsageLog -a -b Counter\"");
        EXPECT_NE(second.status, 0);
        EXPECT_NE(second.output.find(data.string()), std::string::npos) << second.output;
        EXPECT_NE(second.output.find("process " + std::to_string(holder.Pid())), std::string::npos)
            << second.output;
        EXPECT_EQ(Contents(data / "usage.db"), storeBefore);
        EXPECT_EQ(Contents(data / "labshell.lock"), lockBefore);
        EXPECT_EQ(holder.Run("UsageLog -a -b Counter"), "> UsageLog -a -b Counter\n= 0\n");
        holder.Kill();
    }
    // The killed holder's lock went with it.
    Outcome after = RunLabshell("--data " + data.string() + " -c \"UsageLog Counter\"");
    EXPECT_EQ(after.status, 0) << after.output;
    EXPECT_EQ(after.output, "Counter=6\n");
}

TEST_F(StoreFolder, FirstStartKilledAtRandomMomentsLeavesNoStoreOrAnEmptyOne) {
    std::string const db = (dir_ / "usage.db").string();
    auto createInChild = [&db] {
        pid_t pid = fork();
        if (pid == 0) {
            UsageLog usage;
            std::string error;
            _exit(usage.Store().Open(db, error) ? 0 : 1);
        }
        return pid;
    };
    auto openedItems = [&db](std::string& error) {
        UsageLog usage;
        return usage.Store().Open(db, error) ? static_cast<int>(usage.Count()) : -1;
    };

    // How long one creation takes, so that the kills spread over all of it.
    auto start = std::chrono::steady_clock::now();
    pid_t child = createInChild();
    ASSERT_GT(child, 0);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    auto creation = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);

    unsigned int const seed = 20261124;
    std::printf("kill delays: seed %u, up to %lld us\n", seed, static_cast<long long>(creation.count()));
    std::mt19937 random(seed);
    std::uniform_int_distribution<long long> delay(0, creation.count() + creation.count() / 4);
    int killedBeforeStore = 0, killedAfterStore = 0;
    for (int round = 0; round < 150; ++round) {
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        child = createInChild();
        ASSERT_GT(child, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        ++(fs::exists(db) ? killedAfterStore : killedBeforeStore);
        std::string error;
        ASSERT_EQ(openedItems(error), 0) << "round " << round << ": " << error;
        ASSERT_EQ(openedItems(error), 0) << "round " << round << ": " << error;
    }
    std::printf("killed before the store was in place %d times, after %d times\n", killedBeforeStore,
                killedAfterStore);
}
