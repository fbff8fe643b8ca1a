// The host's table of exit numbers cannot drift: every number that a
// command's code returns, throws or hands to a host read has a meaning, and
// the published page is the table as the host prints it.
#include <map>
#include <regex>
#include <set>

#include "shell/ExitMeanings.h"
#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;

void AddMatches(std::string const& text, std::regex const& pattern, std::set<unsigned int>& numbers) {
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        numbers.insert(static_cast<unsigned int>(std::stoul((*match)[1])));
    }
}

// Exit numbers as they stand in a command unit: returned or thrown codes,
// the numbers handed to option, argument, text, store, file and
// configuration reads, and a unit's named failure numbers.
std::set<unsigned int> NumbersInCode(std::string const& code) {
    std::set<unsigned int> numbers;
    for (char const* pattern : {R"(ExitCode\((\d+)\))", R"(TryGet\w+\(L"\w", (\d+))", R"(\.Get(?:String|U?Int)\((\d+),)",
                                R"(Get(?:ItemReference|UsageValue)\([^,()]+(?:\(\))?, (\d+)\))",
                                R"(TextFileReader \w+\(\w+, (\d+)\))",
                                R"(GetIntOrUseDefaultAndAdd\([^,]+, [^,]+, \d+, (\d+),)"}) {
        AddMatches(code, std::regex(pattern), numbers);
    }
    std::smatch block;
    if (std::regex_search(code, block, std::regex(R"(namespace Failure \{([^}]*)\})"))) {
        AddMatches(block[1].str(), std::regex(R"(= (\d+);)"), numbers);
    }
    return numbers;
}

TEST(ShellExitNumbers, EveryNumberInTheCommandsHasAMeaningAndThePageIsTheTable) {
    std::map<std::string, std::set<unsigned int>> table;
    for (ExitMeanings::Entry const& entry : ExitMeanings::All()) table[entry.command].insert(entry.number);
    for (std::string command : {"UsageLog", "UsageLogKeeper", "UsageLogSpy", "UsageLogCleanup", "GetUsageAlerts",
                                "ResetUsageAlert", "GetFormattedUsageData"}) {
        std::string unit = command == "UsageLog" ? "UsageLogCommand" : command;
        std::set<unsigned int> numbers = NumbersInCode(Contents(fs::path(LABSHELL_SOURCE_DIR) / "commands" / (unit + ".cpp")));
        // A scan that finds almost nothing has lost track of how the code is written.
        EXPECT_GE(numbers.size(), 3u) << unit;
        for (unsigned int number : numbers) {
            EXPECT_TRUE(number == 0 || table[command].count(number))
                << command << " can end with " << number << ", which shell/ExitMeanings.cpp does not explain";
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
