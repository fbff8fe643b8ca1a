// The data folder's lock and the store's faults, from outside: a second
// labshell on a folder in use is refused and changes nothing, a lock of a
// dead process does not block, a first start killed at random moments never
// leaves a store that the next start refuses, and a full disk loses nothing.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "UsageLog.h"
#include "labhost/store/UsageStore.h"
#include "store_faults.h"
#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

// A labshell that reads its script from a pipe and so holds its folder until
// the pipe is closed. It has its folder once it has echoed a first line.
// Its stdout and stderr come back on one pipe.
class HoldingLabshell {
public:
    explicit HoldingLabshell(fs::path const& data) {
        int input[2], output[2];
        if (pipe(input) != 0 || pipe(output) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(input[0], 0);
            dup2(output[1], 1);
            dup2(output[1], 2);
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
    ~HoldingLabshell() { Finish(false); }

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

    void Finish(bool kill) {
        if (kill) ::kill(pid_, SIGKILL);
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

using StoreFolder = TempFolderTest;

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
        EXPECT_EQ(second.status, 1);
        EXPECT_NE(second.output.find(data.string()), std::string::npos) << second.output;
        EXPECT_NE(second.output.find("process " + std::to_string(holder.Pid())), std::string::npos)
            << second.output;
        EXPECT_EQ(Contents(data / "usage.db"), storeBefore);
        EXPECT_EQ(Contents(data / "labshell.lock"), lockBefore);
        EXPECT_EQ(holder.Run("UsageLog -a -b Counter"), "> UsageLog -a -b Counter\n= 0\n");
        holder.Finish(true);
    }
    // The killed holder's lock went with it.
    Outcome after = RunLabshell("--data " + data.string() + " -c \"UsageLog Counter\"");
    EXPECT_EQ(after.status, 0) << after.output;
    EXPECT_EQ(after.output, "Counter=6\n");
}

TEST_F(StoreFolder, FirstStartKilledAtRandomMomentsLeavesNoStoreOrAnEmptyOne) {
    std::string const db = (dir_ / "usage.db").string();
    int killedBeforeStore = 0, killedAfterStore = 0;
    auto emptyFolder = [this] {
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    };
    auto create = [&db] {
        UsageLog usage;
        std::string error;
        return usage.Store().Open(db, error);
    };
    KillAtRandomMoments(20261124, 150, emptyFolder, create, [&](int round) {
        if (round >= 0) ++(fs::exists(db) ? killedAfterStore : killedBeforeStore);
        for (int start = 0; start < 2; ++start) {
            UsageLog usage;
            std::string error;
            ASSERT_TRUE(usage.Store().Open(db, error)) << "round " << round << ": " << error;
            ASSERT_EQ(usage.Count(), 0u) << "round " << round;
        }
    });
    std::printf("killed before the store was in place %d times, after %d times\n", killedBeforeStore,
                killedAfterStore);
}

TEST_F(StoreFolder, AFullDiskLosesNothingAndSaysSo) {
    SmallDisk disk(dir_ / "disk");
    if (!disk.refusal.empty()) GTEST_SKIP() << "no small tmpfs to fill up here: " << disk.refusal;
    fs::path data = disk.path / "data";
    auto listing = [&data] {
        return RunLabshell("--data " + data.string() +
                           " -c \"UsageLog Kept.Count Item.1.Count Item.300.Count\" -c \"UsageLog Gone.Count\"");
    };
    std::string const saved = "Item.1.Count=1\nItem.300.Count=1\nKept.Count=6\n";  // listed in key order
    {
        HoldingLabshell shell(data);
        ASSERT_EQ(shell.Run("UsageLog -a5 -b Kept.Count Gone.Count"), "> UsageLog -a5 -b Kept.Count Gone.Count\n= 0\n");
        disk.Fill();
        // More pages than the write-ahead log holds already.
        std::string items = "UsageLog -a Kept.Count";
        for (int i = 1; i <= 300; ++i) items += " Item." + std::to_string(i) + ".Count";
        EXPECT_EQ(shell.Run("UsageLog Gone.Count="), "> UsageLog Gone.Count=\n= 0\n");
        EXPECT_EQ(shell.Run(items), "> " + items + "\n= 0\n");
        std::string failed = shell.Run("UsageLog -b");
        EXPECT_NE(failed.find("failed (302 changes kept for the next save): disk full"), std::string::npos) << failed;
        disk.Free();
        EXPECT_EQ(shell.Run("UsageLog -b"), "> UsageLog -b\n= 0\n");
    }
    Outcome restarted = listing();
    EXPECT_EQ(restarted.status, 4);  // Gone.Count is no item
    EXPECT_EQ(restarted.output, saved);

    // A start on a full disk: a valid store is read, or the start says why
    // it cannot; it is never taken for no store.
    std::string const store = Contents(data / "usage.db");
    disk.Fill();
    Outcome full = listing();
    bool const saysDiskFull = full.status == 1 && full.output.find(": disk full") != std::string::npos;
    EXPECT_TRUE(full.status == 4 ? full.output == saved : saysDiskFull) << full.status << ": " << full.output;
    EXPECT_EQ(Contents(data / "usage.db"), store);
    Outcome first = RunLabshell("--data " + (disk.path / "new").string() + " -c \"UsageLog -b\"");
    EXPECT_EQ(first.status, 1);
    EXPECT_NE(first.output.find("usage.db: disk full"), std::string::npos) << first.output;
    for (char const* name : {"usage.db", "usage.db.new"}) EXPECT_FALSE(fs::exists(disk.path / "new" / name)) << name;
    disk.Free();
    EXPECT_EQ(listing().output, saved);
}
