// Reading and writing the host's text files: a read error part way through
// is no end of file, and the configuration writes a missing key back once,
// keeping the file's other lines, also when runs ask for it together.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <latch>
#include <sstream>
#include <thread>
#include <vector>

#include "HostServices.h"
#include "labhost/text/TextLines.h"
#include "tests/support/test_support.h"

namespace {

// A stream whose read fails after its text, as a disk error would.
struct FailingAfter : std::streambuf {
    explicit FailingAfter(std::string& text) { setg(text.data(), text.data(), text.data() + text.size()); }
    int_type underflow() override {
        errno = EIO;
        throw std::ios_base::failure("read");
    }
};

TEST(CoreFiles, AReadErrorComesAfterTheLinesBeforeIt) {
    std::string text = "\xEF\xBB\xBF" "first\r\nsecond\n";
    FailingAfter failing(text);
    std::istream stream(&failing);
    TextLines lines(stream);
    std::string line;
    ASSERT_EQ(lines.Next(line), TextLines::Result::Line);
    EXPECT_EQ(line, "first");
    ASSERT_EQ(lines.Next(line), TextLines::Result::Line);
    EXPECT_EQ(line, "second");
    EXPECT_EQ(lines.Next(line), TextLines::Result::Failed);
    EXPECT_EQ(lines.FailureText(), std::strerror(EIO));
}

TEST(CoreFiles, ConcurrencyConfigurationWritesAMissingKeyBackOnceAndKeepsTheRest) {
    std::filesystem::path path = std::filesystem::temp_directory_path() / ("core_config_" + std::to_string(getpid()));
    std::string const kept = "; instrument settings\n[Config]\nOther=1\n\n[Optics]\nGain=5\n";
    // Eight runs ask at once, many times over, so that a double entry would show.
    for (int round = 0; round < 100; ++round) {
        std::ofstream(path) << kept;
        ConfigFileData config;
        std::string error;
        ASSERT_TRUE(config.Load(WString::FromUtf8(path.string()), error)) << error;
        std::latch start(8);
        std::vector<std::thread> runs;
        for (int i = 0; i < 8; ++i) {
            runs.emplace_back([&config, &start] {
                start.arrive_and_wait();
                EXPECT_EQ(config.GetIntOrUseDefaultAndAdd(L"Config", L"ServiceInterval", 183, 100, 1, 400), 183);
            });
        }
        for (std::thread& run : runs) run.join();
        ASSERT_EQ(Contents(path), "; instrument settings\n[Config]\nOther=1\nServiceInterval=183\n\n[Optics]\nGain=5\n")
            << "round " << round;
    }
    std::filesystem::remove(path);
}

}  // namespace
