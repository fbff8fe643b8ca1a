// The meanings of exit numbers, one entry per number that a command (or the
// host) can end with. A unit test checks every number that the commands'
// code passes or returns against this table, and the published page
// against MarkdownPage(), so neither can drift from the code.
#include "ExitMeanings.h"

namespace ExitMeanings {
namespace {

constexpr char const* StoppedMeaning = "stopped (kill, Ctrl-C at the prompt, or the shell's end)";

std::vector<Entry> const table = {
    {"", 116, "internal fault: an array index at or past its end"},
    {"", 117, "internal fault: an array used without storage"},
    {"", 118, "an invalid date was given to the host's calendar"},
    {"", 127, "no such command"},

    {"GetFormattedUsageData", 1, "needs exactly one argument, 0 to 3"},
    {"GetFormattedUsageData", 2, "an option this command does not take"},
    {"GetFormattedUsageData", 6, "the argument is no number from 0 to 3"},
    {"GetFormattedUsageData", 100, "ServiceInterval in config.ini is not a number from 1 to 2147483647"},

    {"GetUsageAlerts", 1, "needs exactly one argument: u, s, v, c or i"},
    {"GetUsageAlerts", 2, "an option this command does not take"},
    {"GetUsageAlerts", 3, "the schedule file UsageSchedule.ini in the data folder cannot be opened"},
    {"GetUsageAlerts", 4, "a schedule line before the first section is no header, comment or blank"},
    {"GetUsageAlerts", 5, "the mode is not one of u, s, v, c and i"},
    {"GetUsageAlerts", 10, "a schedule section has no Id="},
    {"GetUsageAlerts", 11, "a schedule section has no Type="},
    {"GetUsageAlerts", 12, "a schedule section has no Message="},
    {"GetUsageAlerts", 13, "a schedule section has neither AlertUser= nor AlertService="},
    {"GetUsageAlerts", 14, "a schedule line without \"=\""},
    {"GetUsageAlerts", 15, "a schedule Id= is not a number in range"},
    {"GetUsageAlerts", 16, "a schedule Type= is not a number in range"},
    {"GetUsageAlerts", 17, "a schedule Message= is empty"},
    {"GetUsageAlerts", 18, "a schedule expression names an unknown variable or usage key"},
    {"GetUsageAlerts", 19, "a schedule expression cannot be evaluated"},
    {"GetUsageAlerts", 20, "a schedule condition has no true or false result"},
    {"GetUsageAlerts", 21, "a schedule InitCounter= holds invalid characters"},
    {"GetUsageAlerts", 22, "a schedule InitDate= holds invalid characters"},
    {"GetUsageAlerts", 23, "a schedule InitTimer= holds invalid characters"},
    {"GetUsageAlerts", 24, "\"$(\" is left in an alert message"},
    {"GetUsageAlerts", 25, "a schedule InitExternalDate= names no External date"},
    {"GetUsageAlerts", 26, "-i needs an alert id from 1 to 4294967295"},
    {"GetUsageAlerts", 27, "modes c and i need -i"},
    {"GetUsageAlerts", 28, "the section to clear or ignore has no command"},
    {"GetUsageAlerts", 29, "two schedule sections have the same Id="},
    {"GetUsageAlerts", 30, "no schedule section has the id given with -i"},
    {"GetUsageAlerts", 31, "a schedule section has no Level="},
    {"GetUsageAlerts", 32, "a schedule Level= is not a number in range"},
    {"GetUsageAlerts", 33, "today's date is not valid (status InfoDateTimeValid is missing or false)"},

    {"ResetUsageAlert", 1, "needs exactly one argument, the alert id"},
    {"ResetUsageAlert", 2, "an option this command does not take"},
    {"ResetUsageAlert", 3, "the alert id is no number from 0 to 4294967295"},

    {"UsageLog", 1, "-i, -a and -u need at least one item"},
    {"UsageLog", 2, "an option this use of the command does not take"},
    {"UsageLog", 3, "an item is not 1 to 255 characters long, or begins with \"=\""},
    {"UsageLog", 4, "no such item"},
    {"UsageLog", 5, "-e takes no value"},
    {"UsageLog", 6, "-d needs a number of seconds from 1 to 7200"},
    {"UsageLog", 7, "-c takes no value"},
    {"UsageLog", 8, "a date reset needs a valid today (status InfoDateTimeValid is false)"},
    {"UsageLog", 9, "-v names no type (C, T, D, H or HU, 1 to 8 characters)"},
    {"UsageLog", 10, "\"=\" in a wildcard item anywhere but at its end"},
    {"UsageLog", 11, "the value after \"=\" is no number from 0 to 2147483647"},
    {"UsageLog", 13, "the item exists with another type"},
    {"UsageLog", 14, "\"=\" in an item given to -a, -u or -m"},
    {"UsageLog", 15, "-i takes no value"},
    {"UsageLog", 16, "-a needs a number from 1 to 10000"},
    {"UsageLog", 17, "a wildcard in an item given to -a, -u, -i or -m"},
    {"UsageLog", 18, "-a works on Counters only"},
    {"UsageLog", 19, "-m needs exactly one item"},
    {"UsageLog", 20, "-m takes no value"},
    {"UsageLog", 21, "-m works on Timers only"},
    {"UsageLog", 22, "-b takes no value"},
    {"UsageLog", 23, "nobody took the new value of an External item"},
    {"UsageLog", 24, "no such item to delete (-z lets missing items pass)"},
    {"UsageLog", 25, "-h takes no value"},
    {"UsageLog", 26, "-p takes no value"},
    {"UsageLog", 27, "-u needs a whole number of seconds"},
    {"UsageLog", 28, "-u works on Timers only"},
    {"UsageLog", 29, "-z takes no value"},
    {"UsageLog", 30, "a deletion with a wildcard needs -z"},

    {"UsageLogCleanup", 1, "arguments need -n"},
    {"UsageLogCleanup", 2, "an option this command does not take"},
    {"UsageLogCleanup", 3, "-n takes no value"},
    {"UsageLogCleanup", 4, "-n needs exactly two arguments: the old and the new prefix"},
    {"UsageLogCleanup", 5, "the old prefix is not 1 to 200 characters long"},
    {"UsageLogCleanup", 6, "the new prefix is not 1 to 200 characters long"},
    {"UsageLogCleanup", 7, "-q takes no value"},
    {"UsageLogCleanup", 100, "the value of a key cannot be read"},
    {"UsageLogCleanup", 101, "a key is neither Counter, Timer nor Date"},
    {"UsageLogCleanup", 102, "a key cannot be deleted"},

    {"UsageLogKeeper", 1, "needs exactly one argument, the interval in seconds (none with -k)"},
    {"UsageLogKeeper", 2, "an option this command does not take"},
    {"UsageLogKeeper", 3, "the interval is no number of seconds from 3 to 43200"},
    {"UsageLogKeeper", 4, "another run holds the keeper's resource and is no keeper to take over"},
    {"UsageLogKeeper", 5, "stopped (kill, Ctrl-C, or a newer keeper took over)"},
    {"UsageLogKeeper", 6, "-b takes no value"},
    {"UsageLogKeeper", 7, "-k takes no value"},
    {"UsageLogKeeper", 8, "-k takes no argument"},

    {"UsageLogSpy", 1, "an option the monitor does not take"},
    {"UsageLogSpy", 2, "flush takes exactly one argument"},
    {"UsageLogSpy", 3, "-d needs a number of seconds from 0.1 to 3600"},
    {"UsageLogSpy", 4, "a monitored item no longer exists (deleted or renamed)"},
    {"UsageLogSpy", 6, "-f needs a separator of 1 to 10 characters"},
    {"UsageLogSpy", 7, "-y needs a number of lines from 1 to 100"},
    {"UsageLogSpy", 8, "-g takes no value"},
    {"UsageLogSpy", 9, "-h takes no value"},
    {"UsageLogSpy", 10, "-e takes no value"},
    {"UsageLogSpy", 11, "the argument is not the word flush"},
    {"UsageLogSpy", 12, "an option flush does not take"},
    {"UsageLogSpy", 13, "flush: the monitor did not answer in time"},
    {"UsageLogSpy", 14, "-w needs a number of seconds from 0.01 to 3600"},
    {"UsageLogSpy", 15, "flush: no monitor is running"},
};

bool IsStop(ExitCode const& code) { return code.kind == StopKind && code.number == StopNumber; }

}  // namespace

std::vector<Entry> const& All() { return table; }

std::string Describe(std::string const& command, ExitCode const& code) {
    if (IsStop(code)) return StoppedMeaning;
    bool hostWide = code.kind == 1;
    for (Entry const& entry : table) {
        if (entry.number == code.number && (hostWide ? *entry.command == '\0' : command == entry.command)) {
            return entry.meaning;
        }
    }
    return "";
}

std::string MarkdownPage() {
    std::string page =
        "# Exit numbers\n"
        "\n"
        "Every command line ends with an exit number: 0 is success. At the interactive\n"
        "prompt a non-zero number is shown as `** NAME: exit N - MEANING` on stderr;\n"
        "with `--echo` it is the `= N` line after the command line. The numbers below\n"
        "are a command's own: number 5 of one command has nothing to do with number 5\n"
        "of another. Builtins end with 1 when they are used the wrong way and say why\n"
        "on stderr (`autotest run` also when a test failed).\n"
        "\n"
        "A run that is stopped (`kill`, Ctrl-C at the prompt, the shell's end) ends with\n"
        "3 whatever the command; the prompt tells such a stop from a command's own 3 by\n"
        "the code's kind. `UsageLogKeeper` reports a stop as 5.\n"
        "\n"
        "This page is printed from labshell's table (shell/ExitMeanings.cpp); a unit\n"
        "test fails when the two differ.\n";
    std::string current = "-";
    for (Entry const& entry : table) {
        if (current != entry.command) {
            current = entry.command;
            page += "\n## " + (current.empty() ? std::string("Any command (the host's own)") : "`" + current + "`") +
                    "\n\n| number | meaning |\n|---|---|\n";
        }
        page += "| " + std::to_string(entry.number) + " | " + entry.meaning + " |\n";
    }
    return page;
}

}  // namespace ExitMeanings
