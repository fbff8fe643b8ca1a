// GetUsageAlerts run in-process on schedule files written by the tests: the
// exit number and error line of each kind of broken section, and a schedule
// of random lines that has to be read to its end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

class AlertsSchedule : public ::testing::Test {
protected:
    static void SetUpTestSuite() { OpenSuiteHost("alerts_unit", dataDir_); }
    static void TearDownTestSuite() { fs::remove_all(dataDir_); }

    // Writes the schedule (none when empty), runs the line and gives its exit
    // number; the output lands in `output_`, the error log in `errors_`.
    unsigned int Run(std::string const& schedule, char const* line) {
        fs::remove_all(dataDir_ / "UsageSchedule.ini");
        fs::remove(dataDir_ / "log" / "error.log");
        if (!schedule.empty()) std::ofstream(dataDir_ / "UsageSchedule.ini") << schedule;
        output_.clear();
        errors_.clear();
        unsigned int number =
            Host::RunLine(WString(line), Pipe([this](WString const& text) { output_.push_back(text.ToUtf8()); })).number;
        std::ifstream log(dataDir_ / "log" / "error.log");
        for (std::string text; std::getline(log, text);) errors_.push_back(text.substr(20));  // no time stamp
        DeleteAllUsageItems();
        return number;
    }

    static fs::path dataDir_;
    std::vector<std::string> output_, errors_;
};

fs::path AlertsSchedule::dataDir_;

// A complete section; the cases below change one thing in it.
std::string Section(std::string const& extra = "", std::string const& name = "S", std::string const& id = "1") {
    return "[" + name + "]\nId=" + id + "\nType=2\nLevel=4\nMessage=text\nAlertUser=true\n" + extra + "\n";
}

TEST_F(AlertsSchedule, EachBrokenSectionEndsTheRunWithItsNumberAndItsMessage) {
    std::string const in = "**UsageSchedule.ini>[S] - ";
    // The schedule, its exit number and how a line of the error log begins (none when empty).
    struct Broken { std::string schedule; unsigned int number; std::string error; } const cases[] = {
        {Section(), 0, ""},
        {"Id=1\n" + Section(), 4, "**Invalid line in " + (dataDir_ / "UsageSchedule.ini").string() + ": \"Id=1\""},
        {"[S]\nType=2\nLevel=4\nMessage=m\nAlertUser=true\n", 10, in + "Missing required key 'Id='"},
        {"[S]\nId=1\nLevel=4\nMessage=m\nAlertService=true\n", 11, in + "Missing required key 'Type='"},
        {"[S]\nId=1\nType=2\nLevel=4\nAlertUser=true\n", 12, in + "Missing required key 'Message='"},
        {"[S]\nId=1\nType=2\nLevel=4\nMessage=m\n", 13, in + "Missing required key 'AlertUser=' or 'AlertService='"},
        {Section("[open"), 14, in + "Invalid statement: [open"},
        {Section("Id=4294967295"), 15, in + "Invalid Id: Id=4294967295"},
        {Section("Type=2 ; two"), 16, in + "Invalid Type: Type=2 ; two"},
        {Section("Message= "), 17, in + "Invalid Message: Message="},
        {Section("Days=now - No.Such.Key"), 18, in + "Failed to evaluate: Days=now - No.Such.Key >Missing variable: No.Such.Key"},
        {Section("Sum=1 +"), 19, in + "Evaluation failure: Sum=1 +"},
        {Section("AlertService=1 + 1"), 20, in + "Failed to evaluate boolen: AlertService=1 + 1"},
        {Section("InitCounter=Bad*Key"), 21, "**GetUsageAlert: Invalid characters in InitCounter=Bad*Key"},
        {Section("InitDate=Bad?Key"), 22, "**GetUsageAlert: Invalid characters in InitDate=Bad?Key"},
        {Section("InitTimer=Bad Key"), 23, "**GetUsageAlert: Invalid characters in InitTimer=Bad Key"},
        {"[S]\nId=1\nType=2\nMessage=m\nAlertUser=true\n", 31, in + "Missing required key 'Level='"},
        {Section("Type=x\nLevel=-1"), 32, in + "Invalid Level: Level=-1"},  // the last failure of a section counts
        {Section("Type=x") + Section("Level=y", "T", "2"), 16, "**UsageSchedule.ini>[T] - Invalid Level: Level=y"},
    };
    for (Broken const& broken : cases) {
        SCOPED_TRACE(broken.schedule);
        EXPECT_EQ(Run(broken.schedule, "GetUsageAlerts v"), broken.number);
        auto starts = [&](std::string const& line) { return line.starts_with(broken.error); };
        if (broken.error.empty()) EXPECT_EQ(errors_, std::vector<std::string>{});
        else EXPECT_TRUE(std::any_of(errors_.begin(), errors_.end(), starts)) << broken.error;
    }
    // A schedule that cannot be read is one that cannot be opened, in every mode.
    EXPECT_EQ(Run("", "GetUsageAlerts u"), 3u);
    fs::create_directory(dataDir_ / "UsageSchedule.ini");
    EXPECT_EQ(Host::RunLine(WString(L"GetUsageAlerts c -i1"), Pipe()).number, 3u);
}

// A line made of pieces of the schedule language.
std::string RandomLine(std::mt19937& random) {
    static char const* const keys[] = {"Id", "Type", "Level", "Message", "AlertUser", "AlertService", "InitCounter",
                                       "InitDate", "InitTimer", "ResetCommands", "Days", "Random.Count", " Id", ""};
    static char const* const pieces[] = {"0", "1", "4294967295", "-1", "Random.Count", "Days", "now", "+", "*", "/",
                                         "(", ")", ",", "&&", "!", "==", "<", "true", "INT(", "DateToDays(", "$(",
                                         "$(Days)", ";", "=", "[", "]", " ", "\t", "1e308", "é"};
    auto text = [&] {
        std::string made;
        for (int i = random() % 9; i > 0; --i) made += pieces[random() % std::size(pieces)];
        return made;
    };
    switch (random() % 10) {
        case 0: return "[" + text() + "]" + (random() % 3 == 0 ? " ;" + text() : "");
        case 1: return "";
        case 2: return ";" + text();
        case 3: return text();
        default: return std::string(keys[random() % std::size(keys)]) + "=" + text();
    }
}

// What a reader takes for a header: "[...]" once a ";" comment is cut.
bool IsHeader(std::string line) {
    line = line.substr(0, line.find(';'));
    std::size_t first = line.find_first_not_of(" \t"), last = line.find_last_not_of(" \t");
    return first != std::string::npos && line[first] == '[' && line[last] == ']';
}

TEST_F(AlertsSchedule, AScheduleOfRandomLinesIsReadToItsEnd) {
    unsigned int const seed = 20240815;
    std::printf("random schedule: seed %u\n", seed);
    std::mt19937 random(seed);
    std::string schedule;
    std::size_t headers = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string line = RandomLine(random);
        headers += IsHeader(line) ? 1 : 0;
        schedule += line + "\n";
    }
    schedule += "; end\n";  // a header on the very last line starts no section
    ASSERT_GT(headers, 100u);
    unsigned int number = Run(schedule, "GetUsageAlerts v");
    EXPECT_TRUE(number == 4 || (number >= 10 && number <= 32)) << number;
    // Mode v reports every section, broken or not, as id;type;level;text.
    EXPECT_EQ(output_.size(), headers);
    for (std::string const& line : output_) EXPECT_TRUE(std::regex_match(line, std::regex("\\d+;\\d+;\\d+;.*"))) << line;
    EXPECT_FALSE(errors_.empty());
}

}  // namespace
