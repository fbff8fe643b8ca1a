// GetUsageAlerts run in-process against schedule files written by the tests:
// the exit number and error line of each kind of broken section, and a
// schedule of random lines that has to be read to its end.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "frame/host/System.h"
#include "runtime/Host.h"
#include "runtime/HostClock.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

class AlertsSchedule : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OpenSuiteHost("alerts_unit", dataDir_);
    }
    static void TearDownTestSuite() { fs::remove_all(dataDir_); }

    void SetUp() override { fs::remove(ErrorLogPath()); }

    // Writes the schedule, runs the line and gives its exit number; the
    // command's output lands in `output_`.
    unsigned int Run(std::string const& schedule, char const* line) {
        std::ofstream(dataDir_ / "UsageSchedule.ini") << schedule;
        output_.clear();
        Pipe capture([this](WString const& text) { output_.push_back(text.ToUtf8()); });
        return Host::RunLine(WString(line), capture).number;
    }

    // The error log's lines without their time stamps.
    static std::vector<std::string> ErrorLog() {
        std::vector<std::string> lines;
        std::ifstream file(ErrorLogPath());
        for (std::string line; std::getline(file, line);) lines.push_back(line.substr(line.find(' ', 11) + 1));
        return lines;
    }

    static fs::path ErrorLogPath() { return dataDir_ / "log" / "error.log"; }

    static fs::path dataDir_;
    std::vector<std::string> output_;
};

fs::path AlertsSchedule::dataDir_;

// A complete section; the cases below change one thing in it.
std::string Section(std::string const& name, std::string const& extra = "", std::string const& id = "1") {
    return "[" + name + "]\nId=" + id + "\nType=2\nLevel=4\nMessage=text\nAlertUser=true\n" + extra + "\n";
}

struct BrokenSchedule {
    char const* what;
    std::string schedule;
    char const* line;
    unsigned int exitNumber;
    std::string errorLine;  // the start of a line the run writes to the error log
};

TEST_F(AlertsSchedule, EachBrokenSectionEndsTheRunWithItsNumberAndItsMessage) {
    std::string const file = "**UsageSchedule.ini>[S] - ";
    std::vector<BrokenSchedule> const cases = {
        {"valid", Section("S"), "GetUsageAlerts v", 0, ""},
        {"line before the first section", "Id=1\n" + Section("S"), "GetUsageAlerts v", 4,
         "**Invalid line in " + (dataDir_ / "UsageSchedule.ini").string() + ": \"Id=1\""},
        {"no Id", "[S]\nType=2\nLevel=4\nMessage=m\nAlertUser=true\n", "GetUsageAlerts v", 10,
         file + "Missing required key 'Id='"},
        {"no Type", "[S]\nId=1\nLevel=4\nMessage=m\nAlertService=true\n", "GetUsageAlerts v", 11,
         file + "Missing required key 'Type='"},
        {"no Message", "[S]\nId=1\nType=2\nLevel=4\nAlertUser=true\n", "GetUsageAlerts v", 12,
         file + "Missing required key 'Message='"},
        {"no alert key", "[S]\nId=1\nType=2\nLevel=4\nMessage=m\n", "GetUsageAlerts v", 13,
         file + "Missing required key 'AlertUser=' or 'AlertService='"},
        {"empty section: the last missing key counts", "[S]\n", "GetUsageAlerts v", 13,
         file + "Missing required key 'AlertUser=' or 'AlertService='"},
        {"no =", Section("S", "[open"), "GetUsageAlerts v", 14, file + "Invalid statement: [open"},
        {"Id out of range", Section("S", "Id=4294967295"), "GetUsageAlerts v", 15,
         file + "Invalid Id: Id=4294967295"},
        {"comment behind a number", Section("S", "Type=2 ; two"), "GetUsageAlerts v", 16,
         file + "Invalid Type: Type=2 ; two"},
        {"Message empty", Section("S", "Message= "), "GetUsageAlerts v", 17, file + "Invalid Message: Message="},
        {"unknown name", Section("S", "Days=now - No.Such.Key"), "GetUsageAlerts v", 18,
         file + "Failed to evaluate: Days=now - No.Such.Key >Missing variable: No.Such.Key"},
        {"syntax", Section("S", "Sum=1 +"), "GetUsageAlerts v", 19, file + "Evaluation failure: Sum=1 +"},
        {"not a boolean", Section("S", "AlertService=1 + 1"), "GetUsageAlerts v", 20,
         file + "Failed to evaluate boolen: AlertService=1 + 1"},
        {"InitCounter", Section("S", "InitCounter=Bad*Key"), "GetUsageAlerts v", 21,
         "**GetUsageAlert: Invalid characters in InitCounter=Bad*Key"},
        {"InitDate", Section("S", "InitDate=Bad?Key"), "GetUsageAlerts v", 22,
         "**GetUsageAlert: Invalid characters in InitDate=Bad?Key"},
        {"InitTimer", Section("S", "InitTimer=Bad Key"), "GetUsageAlerts v", 23,
         "**GetUsageAlert: Invalid characters in InitTimer=Bad Key"},
        {"variable left in the line", Section("S", "Message=$(nothing)"), "GetUsageAlerts u", 24,
         "**GetUsageAlerts: Bad variable in message, [S]:1;2;4;$(nothing)"},
        {"no external date", Section("S", "InitExternalDate=No.Such.Date"), "GetUsageAlerts v", 25,
         "**GetUsageAlert: The external value defined with InitExternalDate=No.Such.Date does not exist or is not "
         "an external data"},
        {"nothing to run", Section("S", "IgnoreCommand=status S.Ignored=true"), "GetUsageAlerts c -i1", 28,
         file + "Reset requested for id 1, but no reset commands are defined"},
        {"duplicate", Section("S") + Section("S", "", "1"), "GetUsageAlerts v", 29,
         file + "Id 1 has already been used"},
        {"no section with the id", Section("S"), "GetUsageAlerts i -i2", 30, ""},
        {"no Level", "[S]\nId=1\nType=2\nMessage=m\nAlertUser=true\n", "GetUsageAlerts v", 31,
         file + "Missing required key 'Level='"},
        {"Level -1", Section("S", "Level=-1"), "GetUsageAlerts v", 32, file + "Invalid Level: Level=-1"},
        {"the last failure of a section counts", Section("S", "Type=x\nLevel=y"), "GetUsageAlerts v", 32,
         file + "Invalid Level: Level=y"},
        {"the first failing section counts", Section("S", "Type=x") + Section("T", "Level=y", "2"),
         "GetUsageAlerts v", 16, "**UsageSchedule.ini>[T] - Invalid Level: Level=y"},
    };
    for (BrokenSchedule const& broken : cases) {
        SCOPED_TRACE(broken.what);
        fs::remove(ErrorLogPath());
        EXPECT_EQ(broken.exitNumber, Run(broken.schedule, broken.line));
        std::vector<std::string> log = ErrorLog();
        if (broken.errorLine.empty()) {
            EXPECT_TRUE(log.empty()) << log.front();
        } else {
            auto starts = [&](std::string const& line) { return line.starts_with(broken.errorLine); };
            EXPECT_TRUE(std::any_of(log.begin(), log.end(), starts)) << broken.errorLine;
        }
    }

    // A schedule that cannot be read ends the run as one that cannot be opened.
    fs::path const path = dataDir_ / "UsageSchedule.ini";
    for (char const* line : {"GetUsageAlerts u", "GetUsageAlerts c -i1"}) {
        fs::remove(path);
        EXPECT_EQ(3u, Host::RunLine(WString(line), Pipe()).number) << line << " without a file";
        fs::create_directory(path);
        EXPECT_EQ(3u, Host::RunLine(WString(line), Pipe()).number) << line << " on a folder";
        fs::remove(path);
    }
}

// A line made of pieces of the schedule language, put together at random.
std::string RandomLine(std::mt19937& random) {
    static char const* const keys[] = {
        "Id",        "Type",        "Level",        "Message",          "AlertUser",     "AlertService",
        "InitCounter", "InitDate",  "InitTimer",    "InitExternalDate", "ResetCommands", "IgnoreCommand",
        "Days",      "Weeks",       "Random.Count", "id",               " Id",           "",
    };
    static char const* const pieces[] = {
        "0",    "1",  "7",    "4294967294", "4294967295", "-1", "Random.Count", "Random.Date", "Days", "Weeks",
        "now",  "+",  "-",    "*",          "/",          "%",  "(",            ")",           ",",    "&&",
        "||",   "!",  "==",   "<",          ">=",         "true", "false",      "INT(",        "DateToDays(",
        "$(",   "$(Days)", ";", "=",        "[",          "]",  " ",            "\t",          "#",   "\\n",
        "1e308", "é", "Random.Timer",
    };
    std::uniform_int_distribution<int> kind(0, 9);
    std::uniform_int_distribution<int> length(0, 8);
    std::uniform_int_distribution<std::size_t> key(0, std::size(keys) - 1);
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1);
    auto randomText = [&] {
        std::string text;
        for (int i = length(random); i > 0; --i) text += pieces[piece(random)];
        return text;
    };
    switch (kind(random)) {
        case 0: return "[" + randomText() + "]" + (kind(random) < 3 ? " ;" + randomText() : "");
        case 1: return "";
        case 2: return ";" + randomText();
        case 3: return randomText();
        default: return std::string(keys[key(random)]) + "=" + randomText();
    }
}

std::string TrimBlanks(std::string const& text) {
    std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// What a reader takes for a header: "[...]" once a ";" comment is cut.
bool IsHeader(std::string const& line) {
    std::string trimmed = TrimBlanks(line);
    return trimmed.starts_with('[') && TrimBlanks(trimmed.substr(0, trimmed.find(';'))).ends_with(']');
}

TEST_F(AlertsSchedule, AScheduleOfRandomLinesIsReadToItsEnd) {
    std::mt19937 random(20240815);
    std::string schedule;
    int headers = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string line = RandomLine(random);
        if (IsHeader(line)) ++headers;
        schedule += line + "\n";
    }
    schedule += "; end\n";  // a header on the last line would not be read
    ASSERT_GT(headers, 100);

    unsigned int exitNumber = Run(schedule, "GetUsageAlerts v");

    // Lines before the first header make it 4; otherwise a section's number.
    std::vector<unsigned int> const known = {0, 4, 10, 11, 12, 13, 14, 15, 16, 17, 18,
                                             19, 20, 21, 22, 23, 24, 25, 29, 31, 32};
    EXPECT_NE(std::find(known.begin(), known.end(), exitNumber), known.end()) << exitNumber;
    // Mode v reports every section, broken or not, as id;type;level;text.
    EXPECT_EQ(static_cast<std::size_t>(headers), output_.size());
    std::regex const alertLine("^[0-9]+;[0-9]+;[0-9]+;.*");
    for (std::string const& line : output_) EXPECT_TRUE(std::regex_match(line, alertLine)) << line;
    EXPECT_FALSE(ErrorLog().empty());
}

TEST_F(AlertsSchedule, TheSampleScheduleResetsTheServiceDateThatTheFactsShow) {
    std::ifstream file(LABSHELL_SOURCE_DIR "/examples/UsageSchedule.ini");
    std::stringstream sample;
    sample << file.rdbuf();
    ASSERT_FALSE(sample.str().empty());
    int const today = HostClock::Now().ToDateInt();
    ASSERT_TRUE(HostClock::SetToday(20240815));

    ASSERT_EQ(0u, Run(sample.str(), "UsageLog Schedule.ServiceDate=20240101 -vD"));
    ASSERT_EQ(0u, Run(sample.str(), "GetFormattedUsageData 0"));
    EXPECT_EQ(output_, std::vector<std::string>{"1 January 2024"});
    // The maintenance alert's reset commands renew the date that fact 0 reads.
    EXPECT_EQ(0u, Run(sample.str(), "GetUsageAlerts c -i1"));
    ASSERT_EQ(0u, Run(sample.str(), "GetFormattedUsageData 0"));
    EXPECT_EQ(output_, std::vector<std::string>{"15 August 2024"});

    HostClock::SetToday(today);
    DeleteAllUsageItems();
}

}  // namespace
