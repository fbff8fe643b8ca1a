// GetFormattedUsageData run by labshell on a data folder of its own: the
// facts as text, its refusals, and the service interval in months, which a
// config.ini without it gets written back with its default.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

// Runs labshell with `lines` on a fresh data folder whose config.ini is
// `config` ("" for none); gives what it did and the config.ini after.
std::pair<Outcome, std::string> RunWithConfig(std::string const& config, std::string const& lines) {
    fs::path folder = fs::temp_directory_path() / ("formatted_" + std::to_string(::getpid()));
    fs::remove_all(folder);
    fs::create_directories(folder);
    if (!config.empty()) std::ofstream(folder / "config.ini") << config;
    Outcome outcome = RunLabshell("--data '" + folder.string() + "' --echo " + lines);
    std::string written = Contents(folder / "config.ini");
    fs::remove_all(folder);
    return {outcome, written};
}

TEST(FormattedUsageData, FactsAndTheDefaultIntervalWrittenBackBesideTheOtherLines) {
    auto [outcome, config] = RunWithConfig(
        "; settings\n[Config]\nLanguage=de\n\n[Other]\nServiceInterval=7\n",
        "-c 'UsageLog Schedule.DesorbDate=0 Schedule.SanitizeDate=20240301 -vD' -c 'GetFormattedUsageData 0' "
        "-c 'GetFormattedUsageData 1' -c 'GetFormattedUsageData 2' -c 'GetFormattedUsageData 3' "
        "-c 'GetFormattedUsageData 4' -c 'GetFormattedUsageData -x 1 2'");
    EXPECT_EQ(outcome.output,
              "> UsageLog Schedule.DesorbDate=0 Schedule.SanitizeDate=20240301 -vD\n= 0\n"
              "> GetFormattedUsageData 0\nUnknown date\n= 0\n> GetFormattedUsageData 1\n6 months\n= 0\n"
              "> GetFormattedUsageData 2\n0  0\n= 0\n> GetFormattedUsageData 3\n1 Mar 2024\n= 0\n"
              "> GetFormattedUsageData 4\n= 6\n> GetFormattedUsageData -x 1 2\n= 2\n");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(config, "; settings\n[Config]\nLanguage=de\nServiceInterval=183\n\n[Other]\nServiceInterval=7\n");
    EXPECT_EQ(RunWithConfig("", "-c 'GetFormattedUsageData 1'").second, "[Config]\nServiceInterval=183\n");
}

// Months of 30 days, halves upward, with no singular; a value out of range
// ends the line with 100 and leaves the file as it was.
TEST(FormattedUsageData, IntervalInMonths) {
    struct Case {
        char const* interval;
        char const* line;
        int status;
    };
    for (Case const& c : {Case{"30", "1 months\n", 0}, Case{"44", "1 months\n", 0}, Case{"45", "2 months\n", 0},
                          Case{"2147483647", "71582788 months\n", 0}, Case{"0", "", 100}, Case{"6x", "", 100}}) {
        std::string const config = std::string("[Config]\nServiceInterval=") + c.interval + "\n";
        auto [outcome, written] = RunWithConfig(config, "-c 'GetFormattedUsageData 1'");
        EXPECT_EQ(outcome.output, "> GetFormattedUsageData 1\n" + std::string(c.line) + "= " + std::to_string(c.status) + "\n")
            << c.interval;
        EXPECT_EQ(outcome.status, c.status) << c.interval;
        EXPECT_EQ(written, config) << c.interval;
    }
}

}  // namespace
