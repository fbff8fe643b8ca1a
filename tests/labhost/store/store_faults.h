// For the store's tests: a folder of each test's own, a child process killed
// at random moments of its work, and a disk that runs full.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fcntl.h>
#include <functional>
#include <random>
#include <string>
#include <thread>

class TempFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "store_test_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::filesystem::path dir_;
};

// Runs `work` in a forked child once `prepare` is done there; gives the
// child's id when it got that far, else -1. The child ends with 0 when
// `work` succeeds.
inline pid_t ForkAfter(std::function<void()> const& prepare, std::function<bool()> const& work) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        prepare();
        _exit(write(ends[1], "p", 1) == 1 && work() ? 0 : 1);
    }
    close(ends[1]);
    char prepared = 0;
    bool ready = pid > 0 && read(ends[0], &prepared, 1) == 1;
    close(ends[0]);
    return ready ? pid : -1;
}

// Times one whole run of `work` (which must succeed), then kills `rounds`
// runs, each at a random moment of it, and calls `check` after each kill.
inline void KillAtRandomMoments(unsigned int seed, int rounds, std::function<void()> const& prepare,
                                std::function<bool()> const& work, std::function<void(int round)> const& check) {
    pid_t child = ForkAfter(prepare, work);
    auto start = std::chrono::steady_clock::now();
    ASSERT_GT(child, 0);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    auto span = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    check(-1);
    std::uniform_int_distribution<long long> delay(0, span.count() * 5 / 4);
    std::printf("kills at random moments: seed %u, %d rounds, up to %lld us\n", seed, rounds, delay.max());
    std::mt19937 random(seed);
    for (int round = 0; round < rounds && !::testing::Test::HasFatalFailure(); ++round) {
        child = ForkAfter(prepare, work);
        ASSERT_GT(child, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        check(round);
    }
}

// A small tmpfs that a test fills up and empties again, where the machine
// lets it be mounted (as root).
class SmallDisk {
public:
    explicit SmallDisk(std::filesystem::path where) : path(std::move(where)) {
        std::filesystem::create_directories(path);
        if (mount("tmpfs", path.c_str(), "tmpfs", 0, "size=2m") != 0) refusal = std::strerror(errno);
    }
    ~SmallDisk() {
        if (refusal.empty()) umount2(path.c_str(), MNT_DETACH);
    }

    // Takes every free block.
    void Fill() const {
        int file = open((path / "filler").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        char block[4096] = {};
        for (std::size_t size = sizeof block; size > 0; size /= 2)
            while (write(file, block, size) == static_cast<ssize_t>(size)) {}
        close(file);
    }
    void Free() const { std::filesystem::remove(path / "filler"); }

    std::filesystem::path const path;
    std::string refusal;  // why it could not be mounted
};
