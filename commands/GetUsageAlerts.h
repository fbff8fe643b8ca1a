// GetUsageAlerts <u|s|v|c|i> [-i<id>]: turns the usage data into alerts by
// the rules of the schedule file "UsageSchedule.ini" in the data folder.
//
// Every run reads the file from its first line to its last, in every mode:
// a section is one alert definition, its statements act in file order as
// they are read (items are initialised, expressions evaluated against the
// usage store), and at the section's end its alert line is written (modes
// u, s, v) or, for the section whose id is given with -i, its reset (c) or
// ignore (i) command lines are run. Nothing is kept between runs: an alert
// is worked out anew from the store each time.
//
// Failures in the file never stop the reading: each is logged on the error
// log and counted, and the run ends with the first section's failure number.
// The trace of every evaluation goes to the plug-in's own "UsageAlertLog".
#pragma once

#include <cstdint>

#include "../frame/host/CommandBase.h"
#include "../frame/host/ExpressionEvaluator.h"
#include "../frame/host/HostServices.h"

// One alert definition, filled while its section is read and gone when the
// section ends. A number field of 0xFFFFFFFF was never set.
class UsageAlert {
public:
    static constexpr std::uint32_t NotSet = 0xFFFFFFFF;

    explicit UsageAlert(WString const& sectionName);

    // Checks the required keys; logs each one missing and gives the number of
    // the last one missing, 0 if none is. Trims `message` in place.
    unsigned int Validate();
    // "id;type;level;" and the message with the section's "$(name)" custom
    // values put in.
    WString GetAlertMessage(WStringHashTable& customValues) const;

    WString name;
    std::uint32_t id;
    std::uint32_t type;
    std::uint32_t level;
    WString message;
    WString resetCommands;
    WString ignoreCommands;
    bool alertKeyPresent;
    bool alertUser;
    bool alertService;
};

class GetUsageAlerts : public CommandBase {
public:
    GetUsageAlerts();

    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;

    // True for "[name]", also with a ";" comment behind it; a line that
    // starts with "[" is cut at its first ";" and trimmed in place.
    static bool IsSectionHeader(WString& line);
    // Evaluates `expression`, fetching the usage items it names from the
    // store on demand; 0, 18 (unknown name) or 19 (cannot be evaluated).
    static unsigned int Evaluate(ExpressionEvaluator& evaluator, EEToken& result, WString const& sectionName,
                                 WString const& statement, WString const& expression);
    // As Evaluate, and 20 when the result is no boolean; `result` is left
    // alone on failure.
    static unsigned int EvaluateBool(ExpressionEvaluator& evaluator, bool& result, WString const& sectionName,
                                     WString const& statement, WString const& expression);

    // What the argument letter selects.
    enum AlertMode : unsigned int { UserAlerts = 0, ServiceAlerts = 1, AllAlerts = 2, Clear = 3, Ignore = 4 };

private:
    // Reads and processes one section; `line` holds its header on entry and
    // the line that ended it on return. Gives the section's failure number.
    unsigned int LoadAndProcessSection(TextFileReader& reader, WString& line, unsigned int alertMode,
                                       unsigned int alertId);
    unsigned int ProcessStatement(UsageAlert& alert, ExpressionEvaluator& evaluator, WStringHashTable& customValues,
                                  WString const& line);
    unsigned int InitExternalDate(WString const& key);
    unsigned int FinishSection(UsageAlert& alert, WStringHashTable& customValues, unsigned int alertMode,
                               unsigned int alertId, unsigned int sectionResult);
    // Runs the ";"-separated command lines; false when there was none.
    bool RunCommandLines(WString commandLines);

    IntHashTable usedIds;
};
