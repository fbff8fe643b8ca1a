// Logs, the text file reader, the configuration file and the status table.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <latch>
#include <sstream>
#include <thread>
#include <vector>

#include "HostServices.h"
#include "StatusTable.h"
#include "runtime/TextLines.h"
#include "test_support.h"

namespace {
class CoreFiles : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = std::filesystem::temp_directory_path() /
                  ("core_files_" + std::to_string(getpid()) + "_" +
                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string Read(std::filesystem::path const& path) {
        std::ifstream file(path);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    void Write(std::filesystem::path const& path, std::string const& text) { std::ofstream(path) << text; }

    std::filesystem::path folder_;
};
}  // namespace

TEST_F(CoreFiles, LogLinesCarryTimeStampsRotateAndCanBeSilenced) {
    LogFile log(WString(folder_.string().c_str()), L"run", 100);
    log.WriteLine(L"Dock %s", L"ChipA");
    std::string first = Read(folder_ / "run.log");
    ASSERT_EQ(first.size(), 20u + 10u + 1u);
    EXPECT_EQ(first.substr(4, 1) + first.substr(7, 1) + first.substr(13, 1), "--:");
    EXPECT_EQ(first.substr(19), " Dock ChipA\n");

    for (int i = 0; i < 4; ++i) log.WriteLine(WString(L"Cycle 1, 10 Hz, tray: 2"));
    EXPECT_TRUE(std::filesystem::exists(folder_ / "run.log.1"));
    EXPECT_LE(std::filesystem::file_size(folder_ / "run.log"), 100u);

    log.enabled = false;
    auto before = std::filesystem::file_size(folder_ / "run.log");
    log.WriteLine(L"Undock");
    EXPECT_EQ(std::filesystem::file_size(folder_ / "run.log"), before);
}

TEST_F(CoreFiles, ReaderGivesLinesWithoutTheMarkAndRefusesWhatCannotBeRead) {
    Write(folder_ / "s.ini", "[A]\r\nId=1\n\nlast");
    TextFileReader reader(WString((folder_ / "s.ini").string().c_str()), 3);
    std::vector<std::wstring> lines;
    while (!reader.atEnd) lines.push_back(reader.ReadLine().str);
    EXPECT_EQ(lines, (std::vector<std::wstring>{L"[A]", L"Id=1", L"", L"last"}));

    Write(folder_ / "marked.ini", "\xEF\xBB\xBF[A]\r\nId=\xEF\xBB\xBF");
    TextFileReader marked(WString((folder_ / "marked.ini").string().c_str()), 3);
    EXPECT_EQ(marked.ReadLine().str, L"[A]");
    EXPECT_EQ(marked.ReadLine().str, L"Id=\xFEFF") << "only a mark at the start is dropped";
    EXPECT_TRUE(marked.atEnd);

    // A folder opens like a file on Linux; its first read fails.
    for (char const* unreadable : {"none.ini", "folder.ini"}) {
        std::filesystem::create_directory(folder_ / "folder.ini");
        EXPECT_EQ(ThrownNumber([&] { TextFileReader reader(WString((folder_ / unreadable).string().c_str()), 3); }),
                  3u)
            << unreadable;
    }
}

// A stream whose reads fail after some text, as a disk error would.
class FailingAfter : public std::streambuf {
public:
    explicit FailingAfter(std::string text) : text_(std::move(text)) {
        setg(text_.data(), text_.data(), text_.data() + text_.size());
    }

protected:
    int_type underflow() override {
        errno = EIO;
        throw std::ios_base::failure("read");
    }

private:
    std::string text_;
};

TEST(CoreTextLines, AReadErrorIsReportedAfterTheLinesBeforeIt) {
    for (std::string const& text : {std::string("\xEF\xBB\xBF" "first\r\nsecond\n"), std::string("first\nsecond\n")}) {
        FailingAfter failing(text);
        std::istream stream(&failing);
        TextLines lines(stream);
        std::string line;
        ASSERT_EQ(lines.Next(line), TextLines::Result::Line);
        EXPECT_EQ(line, "first");
        ASSERT_EQ(lines.Next(line), TextLines::Result::Line);
        EXPECT_EQ(line, "second");
        EXPECT_EQ(lines.Next(line), TextLines::Result::Failed) << "a failed read is no end";
        EXPECT_EQ(lines.FailureText(), std::strerror(EIO));
    }
    std::istringstream complete("only\n");
    TextLines lines(complete);
    std::string line;
    EXPECT_EQ(lines.Next(line), TextLines::Result::Line);
    EXPECT_EQ(lines.Next(line), TextLines::Result::End);
}

TEST_F(CoreFiles, ConfigurationEntersMissingKeysAndRefusesBadValues) {
    std::filesystem::path path = folder_ / "config.ini";
    Write(path, "; instrument settings\n[Config]\nOther=1\n\n[Optics]\nGain=5\n");
    ConfigFileData config;
    std::string error;
    ASSERT_TRUE(config.Load(WString(path.string().c_str()), error)) << error;
    EXPECT_EQ(config.GetIntOrUseDefaultAndAdd(L"Config", L"ServiceInterval", 183, 100, 1, 2147483647), 183);
    EXPECT_EQ(Read(path), "; instrument settings\n[Config]\nOther=1\nServiceInterval=183\n\n[Optics]\nGain=5\n");
    EXPECT_EQ(config.GetIntOrUseDefaultAndAdd(L"Optics", L"Gain", 1, 100, 1, 10), 5);
    EXPECT_EQ(config.GetIntOrUseDefaultAndAdd(L"New", L"Key", 7, 100, 1, 10), 7);
    EXPECT_NE(Read(path).find("[New]\nKey=7\n"), std::string::npos);

    Write(path, "[Config]\nServiceInterval=0\n");
    ASSERT_TRUE(config.Load(WString(path.string().c_str()), error)) << error;
    try {
        config.GetIntOrUseDefaultAndAdd(L"Config", L"ServiceInterval", 183, 100, 1, 2147483647);
        ADD_FAILURE() << "an interval of 0 was accepted";
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.number, 100u);
    }
}

TEST_F(CoreFiles, ConfigurationAddsAKeyOnceWhenRunsAskTogether) {
    // A double entry needs two runs in the same short window: many rounds make one likely.
    std::filesystem::path path = folder_ / "config.ini";
    for (int round = 0; round < 100; ++round) {
        Write(path, "[Config]\n");
        ConfigFileData config;
        std::string error;
        ASSERT_TRUE(config.Load(WString(path.string().c_str()), error)) << error;
        constexpr int runCount = 8;
        std::latch start(runCount);
        std::vector<std::thread> runs;
        for (int i = 0; i < runCount; ++i) {
            runs.emplace_back([&config, &start] {
                start.arrive_and_wait();
                config.GetIntOrUseDefaultAndAdd(L"Config", L"ServiceInterval", 183, 100, 1, 400);
            });
        }
        for (std::thread& run : runs) run.join();
        ASSERT_EQ(Read(path), "[Config]\nServiceInterval=183\n") << "round " << round;
    }
}

TEST(CoreStatus, ValuesParseConvertAndPrint) {
    StatusTable table;
    StatusTable::Value value;
    ASSERT_TRUE(StatusTable::TryParseValue(WString(L"25"), value));
    table.Set(L"Tray", value);
    ASSERT_TRUE(StatusTable::TryParseValue(WString(L"24.87"), value));
    table.Set(L"TempOptics", value);
    ASSERT_TRUE(StatusTable::TryParseValue(WString(L"true"), value));
    table.Set(L"Stable", value);
    EXPECT_FALSE(StatusTable::TryParseValue(WString(L"warm"), value));

    double temperature = 0;
    EXPECT_TRUE(table.TryGetDouble(L"Tray", temperature, 0.0, 100.0));
    EXPECT_DOUBLE_EQ(temperature, 25.0);
    EXPECT_FALSE(table.TryGetDouble(L"Tray", temperature, 0.0, 20.0));
    int whole = 0;
    EXPECT_TRUE(table.TryGetInt(L"TempOptics", whole, INT32_MIN, INT32_MAX));
    EXPECT_EQ(whole, 24);
    bool stable = false;
    EXPECT_FALSE(table.TryGetBool(L"Tray", stable));
    EXPECT_TRUE(table.TryGetBool(L"Stable", stable));
    EXPECT_FALSE(table.TryGetInt(L"Stable", whole, INT32_MIN, INT32_MAX));

    EXPECT_EQ(StatusTable::ValueText(StatusTable::Value(20.0)).str, L"20.0");
    EXPECT_EQ(StatusTable::ValueText(StatusTable::Value(24.87)).str, L"24.87");
    EXPECT_EQ(StatusTable::ValueText(StatusTable::Value(-3)).str, L"-3");
    EXPECT_EQ(StatusTable::ValueText(StatusTable::Value(false)).str, L"false");
}

TEST(CoreTables, HashTablesTakeZeroBucketsAndKeepInsertionOrder) {
    IntHashTable taken(0);
    taken.Insert(L"A", 1);
    taken.Add(L"7", 7);
    taken.Add(L"7", 8);
    int id = 0;
    EXPECT_TRUE(taken.TryGetValue(L"7", id));
    EXPECT_EQ(id, 7);
    EXPECT_FALSE(taken.ContainsKey(L"07"));

    WStringHashTable custom(67);
    custom.Insert(L"Weeks", L"26");
    custom.Insert(L"Days", L"183");
    custom.Insert(L"Weeks", L"27");
    WStringArray keys;
    custom.GetKeys(keys);
    ASSERT_EQ(keys.count, 2u);
    EXPECT_EQ(keys[0].str, L"Weeks");
    EXPECT_EQ(custom.GetValue(L"Weeks", 0).str, L"27");

    Array<int> values;
    try {
        values[0];
        ADD_FAILURE();
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.number, 117u);
    }
    for (int i = 0; i < 11; ++i) values.Add(i);
    EXPECT_EQ(values.capacity, 20u);
    EXPECT_EQ(values[10], 10);
    try {
        values[11];
        ADD_FAILURE();
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.number, 116u);
    }
}
