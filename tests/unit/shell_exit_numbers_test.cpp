// The host's table of exit numbers cannot drift: every number that a
// command's code returns, throws or hands to a host read has a meaning, and
// the published page is the table as the host prints it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "runtime/ExitMeanings.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

// Exit numbers as they stand in a command unit: returned or thrown codes,
// the numbers handed to option, argument, text, store, file and
// configuration reads, and a unit's named failure numbers.
std::set<unsigned int> NumbersInCode(std::string const& code) {
    static std::regex const patterns[] = {
        std::regex(R"(ExitCode\((\d+)\))"),
        std::regex(R"(TryGet\w+\(L"\w", (\d+))"),
        std::regex(R"(\.Get(?:String|U?Int)\((\d+),)"),
        std::regex(R"(Get(?:ItemReference|UsageValue)\([^,()]+(?:\(\))?, (\d+)\))"),
        std::regex(R"(TextFileReader \w+\(\w+, (\d+)\))"),
        std::regex(R"(GetIntOrUseDefaultAndAdd\([^,]+, [^,]+, \d+, (\d+),)"),
    };
    std::set<unsigned int> numbers;
    for (std::regex const& pattern : patterns) {
        for (std::sregex_iterator match(code.begin(), code.end(), pattern), end; match != end; ++match) {
            numbers.insert(static_cast<unsigned int>(std::stoul((*match)[1])));
        }
    }
    std::smatch block;
    static std::regex const failureBlock(R"(namespace Failure \{([^}]*)\})");
    if (std::regex_search(code, block, failureBlock)) {
        std::string names = block[1];
        static std::regex const named(R"(= (\d+);)");
        for (std::sregex_iterator match(names.begin(), names.end(), named), end; match != end; ++match) {
            numbers.insert(static_cast<unsigned int>(std::stoul((*match)[1])));
        }
    }
    return numbers;
}

TEST(ShellExitNumbers, EveryNumberInTheCommandsHasAMeaningAndThePageIsTheTable) {
    std::map<std::string, std::set<unsigned int>> table;
    for (ExitMeanings::Entry const& entry : ExitMeanings::All()) table[entry.command].insert(entry.number);

    // The unit of UsageLog is UsageLogCommand; every other unit bears its command's name.
    std::map<std::string, std::string> units = {
        {"UsageLogCommand", "UsageLog"},        {"UsageLogKeeper", "UsageLogKeeper"},
        {"UsageLogSpy", "UsageLogSpy"},          {"UsageLogCleanup", "UsageLogCleanup"},
        {"GetUsageAlerts", "GetUsageAlerts"},    {"ResetUsageAlert", "ResetUsageAlert"},
        {"GetFormattedUsageData", "GetFormattedUsageData"},
    };
    for (auto const& [unit, command] : units) {
        std::string code = Contents(fs::path(LABSHELL_SOURCE_DIR) / "commands" / (unit + ".cpp"));
        ASSERT_FALSE(code.empty()) << unit;
        std::set<unsigned int> numbers = NumbersInCode(code);
        // A scan that finds almost nothing has lost track of how the code is written.
        EXPECT_GE(numbers.size(), 3u) << unit;
        for (unsigned int number : numbers) {
            if (number == 0) continue;
            EXPECT_TRUE(table[command].count(number)) << command << " can end with " << number
                                                      << ", which runtime/ExitMeanings.cpp does not explain";
        }
    }

    fs::path page = fs::path(LABSHELL_SOURCE_DIR) / "docs" / "exit-numbers.md";
    std::string printed = ExitMeanings::MarkdownPage();
    if (Contents(page) != printed) {
        fs::path fresh = fs::temp_directory_path() / "exit-numbers.md";
        std::ofstream(fresh, std::ios::binary) << printed;
        ADD_FAILURE() << page << " differs from the host's table; the table's page is in " << fresh
                      << ": copy it over after reading the difference";
    }
}

}  // namespace
