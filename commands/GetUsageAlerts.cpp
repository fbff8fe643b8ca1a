#include "GetUsageAlerts.h"

#include <iterator>

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/System.h"

namespace {
constexpr std::uint32_t ConfigurableFlag = 4;
constexpr int TableBuckets = 67;
constexpr std::uint32_t HighestNumber = 0xFFFFFFFE;  // 0xFFFFFFFF marks a field not set
constexpr UsageDataType ExternalDate = UsageType::External | UsageType::Date;
wchar_t const* const ScheduleFileName = L"UsageSchedule.ini";

// Section failure numbers, also the command's exit numbers.
namespace Failure {
constexpr unsigned int InvalidLine = 4;
constexpr unsigned int MissingId = 10;
constexpr unsigned int MissingType = 11;
constexpr unsigned int MissingMessage = 12;
constexpr unsigned int MissingAlertKey = 13;
constexpr unsigned int InvalidStatement = 14;
constexpr unsigned int InvalidId = 15;
constexpr unsigned int InvalidType = 16;
constexpr unsigned int InvalidMessage = 17;
constexpr unsigned int UnknownVariable = 18;
constexpr unsigned int EvaluationFailed = 19;
constexpr unsigned int NotBoolean = 20;
constexpr unsigned int InvalidInitCounter = 21;
constexpr unsigned int InvalidInitDate = 22;
constexpr unsigned int InvalidInitTimer = 23;
constexpr unsigned int BadMessageVariable = 24;
constexpr unsigned int NoExternalDate = 25;
constexpr unsigned int NoCommands = 28;
constexpr unsigned int DuplicateId = 29;
constexpr unsigned int MissingLevel = 31;
constexpr unsigned int InvalidLevel = 32;
}  // namespace Failure

// The trace of alert runs, shared by all runs for as long as the plug-in is loaded.
LogFile _usageAlertLog(L"", L"UsageAlertLog", 1048576);

// "**UsageSchedule.ini>[Section] - ", the head of every message about a section.
WString SectionMessage(WString const& sectionName) {
    return WString::Format(L"**%s>%s - ", ScheduleFileName, sectionName.c_str());
}

void LogSectionFailure(WString const& sectionName, WString const& text) {
    WString message = SectionMessage(sectionName);
    message.str += text.str;
    System::errorLog.WriteLine(message);
}

// Reads "Id", "Type" or "Level": false (and the field left alone) for no
// number in range.
bool TryReadNumber(WString const& value, std::uint32_t& field) {
    unsigned int number = 0;
    if (!value.TryGetUInt(number, 0, HighestNumber, nullptr)) return false;
    field = number;
    return true;
}

// Each section has an evaluator of its own: the constants, today as a day
// count, and usage keys as variable names.
void SetUpEvaluator(ExpressionEvaluator& evaluator) {
    evaluator.SetVariable(WString(L"true"), true);
    evaluator.SetVariable(WString(L"false"), false);
    evaluator.SetVariable(WString(L"now"), static_cast<double>(DateTime::Now().ToDays()));
    WString validCharacters = UsageLog::GetValidCharactersInUsageLogKey();
    evaluator.SetValidChars(validCharacters.c_str());
}

bool IsBlankOrComment(WString const& line) { return line.IsEmpty() || line.StartsWith(L';'); }

bool IsReported(UsageAlert const& alert, unsigned int alertMode) {
    switch (alertMode) {
        case GetUsageAlerts::UserAlerts: return alert.alertUser;
        case GetUsageAlerts::ServiceAlerts: return alert.alertService;
        case GetUsageAlerts::AllAlerts: return true;
        default: return false;
    }
}

// The key of an "InitCounter", "InitDate" or "InitTimer" statement; logs a
// key with characters that no usage key may hold.
bool IsValidInitKey(wchar_t const* statementKey, WString const& key) {
    if (UsageLog::IsUsageKeyNameValid(key)) return true;
    System::errorLog.WriteLine(L"**GetUsageAlert: Invalid characters in %s=%s", statementKey, key.c_str());
    return false;
}
}  // namespace

// ---------------------------------------------------------------- UsageAlert

UsageAlert::UsageAlert(WString const& sectionName)
    : name(sectionName),
      id(NotSet),
      type(NotSet),
      level(NotSet),
      alertKeyPresent(false),
      alertUser(false),
      alertService(false) {}

unsigned int UsageAlert::Validate() {
    unsigned int result = 0;
    auto check = [&](bool missing, wchar_t const* what, unsigned int number) {
        if (!missing) return;
        LogSectionFailure(name, WString::Format(L"Missing required key %s", what));
        result = number;
    };
    message = message.Trim();
    check(id == NotSet, L"'Id='", Failure::MissingId);
    check(type == NotSet, L"'Type='", Failure::MissingType);
    check(level == NotSet, L"'Level='", Failure::MissingLevel);
    check(message.IsEmpty(), L"'Message='", Failure::MissingMessage);
    check(!alertKeyPresent, L"'AlertUser=' or 'AlertService='", Failure::MissingAlertKey);
    return result;
}

WString UsageAlert::GetAlertMessage(WStringHashTable& customValues) const {
    WString text = message;
    WStringArray keys;
    customValues.GetKeys(keys);
    for (unsigned int i = 0; i < keys.count; ++i) {
        WString pattern(L"$(");
        pattern.str += keys[i].str;
        pattern.str += L')';
        text.Replace(pattern, customValues.GetValue(keys[i], 0), true);
    }
    WString line = WString::Format(L"%u;%u;%u;", id, type, level);
    line.str += text.str;
    return line;
}

// ------------------------------------------------------------ GetUsageAlerts

GetUsageAlerts::GetUsageAlerts() : usedIds(TableBuckets) { commandFlags |= ConfigurableFlag; }

WString GetUsageAlerts::GetName() { return WString(L"GetUsageAlerts"); }
std::uint32_t GetUsageAlerts::GetCommandId() { return 1053; }
char const* GetUsageAlerts::GetSourceCodeTimestamp() { return "Fri Feb  9 15:20:23 2024"; }

ExitCode GetUsageAlerts::Main(ArgumentList& args, Options& options) {
    if (args.count != 1) return ExitCode(1);
    WString const& letter = args.At(0).GetString(5, 1, 1);
    static wchar_t const* const modeLetters[] = {L"u", L"s", L"v", L"c", L"i"};
    unsigned int alertMode = 0;
    while (alertMode < std::size(modeLetters) && !letter.Equals(modeLetters[alertMode], true)) ++alertMode;
    if (alertMode == std::size(modeLetters)) return ExitCode(5);
    bool runsCommands = alertMode == Clear || alertMode == Ignore;

    unsigned int alertId = 0;
    if (!options.TryGetUInt(WString(L"i"), 26, alertId, 1, 0xFFFFFFFF) && runsCommands) return ExitCode(27);

    // Dates in the schedule are meaningless while the clock is not trusted.
    bool dateTimeValid = false;
    if (!System::status.TryGetBool(WString(L"InfoDateTimeValid"), dateTimeValid) || !dateTimeValid) {
        return ExitCode(33);
    }
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    BookResource(WString(L"UsageSchedule_R"));
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    WString path(ScheduleFileName);
    System::AddDataDirectoryIfNeeded(path);
    TextFileReader reader(path, 3);
    WString line;
    bool readNext = true;
    unsigned int runResult = 0;
    while (!reader.atEnd) {
        if (readNext) line = reader.ReadLine();
        line = line.Trim();
        readNext = true;
        if (IsBlankOrComment(line)) continue;
        if (IsSectionHeader(line)) {
            unsigned int sectionResult = LoadAndProcessSection(reader, line, alertMode, alertId);
            if (runResult == 0) runResult = sectionResult;
            // The line that ended the section is the next header: keep it.
            readNext = false;
            continue;
        }
        WString message = WString::Format(L"**Invalid line in %s: \"%s\"", path.c_str(), line.c_str());
        _usageAlertLog.WriteLine(message);
        System::errorLog.WriteLine(message);
        runResult = Failure::InvalidLine;
    }
    if (runResult != 0) return ExitCode(runResult);
    if (runsCommands && !usedIds.ContainsKey(WString::ToString(alertId, false))) return ExitCode(30);
    return ExitCode(0);
}

bool GetUsageAlerts::IsSectionHeader(WString& line) {
    if (!line.StartsWith(L'[')) return false;
    int comment = line.IndexOf(L";", 0);
    if (comment != -1) line = line.Substring(0, comment);
    line = line.Trim();
    return line.EndsWith(L']');
}

unsigned int GetUsageAlerts::LoadAndProcessSection(TextFileReader& reader, WString& line, unsigned int alertMode,
                                                   unsigned int alertId) {
    WStringHashTable customValues(TableBuckets);
    ExpressionEvaluator evaluator(nullptr, 0);
    SetUpEvaluator(evaluator);
    UsageAlert alert(line);
    _usageAlertLog.WriteLine(line);

    unsigned int sectionResult = 0;
    while (!reader.atEnd) {
        line = reader.ReadLine().Trim();
        if (IsBlankOrComment(line)) continue;
        if (IsSectionHeader(line)) break;
        // The last failure of a section is the one it reports.
        if (unsigned int failure = ProcessStatement(alert, evaluator, customValues, line)) sectionResult = failure;
    }
    return FinishSection(alert, customValues, alertMode, alertId, sectionResult);
}

unsigned int GetUsageAlerts::ProcessStatement(UsageAlert& alert, ExpressionEvaluator& evaluator,
                                              WStringHashTable& customValues, WString const& line) {
    int equals = line.IndexOf(L"=", 0);
    if (equals == -1) {
        LogSectionFailure(alert.name, WString::Format(L"Invalid statement: %s", line.c_str()));
        return Failure::InvalidStatement;
    }
    // Blanks in front of "=" belong to the key: "Id =1" is a custom key.
    WString key = line.Substring(0, equals);
    WString value = line.Substring(static_cast<unsigned int>(equals) + 1, -1).Trim();

    if (key.Equals(L"Id", true)) {
        if (!TryReadNumber(value, alert.id)) {
            LogSectionFailure(alert.name, WString::Format(L"Invalid Id: %s", line.c_str()));
            return Failure::InvalidId;
        }
        // Ids are told apart by their text, so "07" and "7" are both accepted.
        if (usedIds.ContainsKey(value)) {
            LogSectionFailure(alert.name,
                              WString::Format(L"Id %d has already been used", static_cast<int>(alert.id)));
            return Failure::DuplicateId;
        }
        usedIds.Add(value, static_cast<int>(alert.id));
        return 0;
    }
    if (key.Equals(L"Type", true)) {
        if (TryReadNumber(value, alert.type)) return 0;
        LogSectionFailure(alert.name, WString::Format(L"Invalid Type: %s", line.c_str()));
        return Failure::InvalidType;
    }
    if (key.Equals(L"Level", true)) {
        if (TryReadNumber(value, alert.level)) return 0;
        LogSectionFailure(alert.name, WString::Format(L"Invalid Level: %s", line.c_str()));
        return Failure::InvalidLevel;
    }
    if (key.Equals(L"Message", true)) {
        alert.message = value;
        if (!value.IsEmpty()) return 0;
        LogSectionFailure(alert.name, WString::Format(L"Invalid Message: %s", line.c_str()));
        return Failure::InvalidMessage;
    }
    bool isAlertUser = key.Equals(L"AlertUser", true);
    if (isAlertUser || key.Equals(L"AlertService", true)) {
        alert.alertKeyPresent = true;
        bool& flag = isAlertUser ? alert.alertUser : alert.alertService;
        unsigned int failure = EvaluateBool(evaluator, flag, alert.name, line, value);
        if (failure == 0 && flag) {
            _usageAlertLog.WriteLine(isAlertUser ? L"->User needs to be alerted!" : L"->Service needs to be alerted!");
        }
        return failure;
    }
    if (key.Equals(L"InitCounter", true)) {
        if (!IsValidInitKey(L"InitCounter", value)) return Failure::InvalidInitCounter;
        System::usage.InitializeCounter(value.c_str());
        return 0;
    }
    if (key.Equals(L"InitDate", true)) {
        if (!IsValidInitKey(L"InitDate", value)) return Failure::InvalidInitDate;
        System::usage.InitializeDate(value.c_str(), false);
        return 0;
    }
    if (key.Equals(L"InitExternalDate", true)) return InitExternalDate(value);
    if (key.Equals(L"InitTimer", true)) {
        if (!IsValidInitKey(L"InitTimer", value)) return Failure::InvalidInitTimer;
        System::usage.InitializeTimer(value.c_str());
        return 0;
    }
    if (key.Equals(L"ResetCommands", true) || key.Equals(L"ResetCommand", true)) {
        alert.resetCommands.AppendWithSeparator(value, L";");
        return 0;
    }
    if (key.Equals(L"IgnoreCommand", true)) {
        alert.ignoreCommands.AppendWithSeparator(value, L";");
        return 0;
    }

    EEToken result;
    unsigned int failure = Evaluate(evaluator, result, alert.name, line, value);
    if (failure != 0) return failure;
    evaluator.SetVariable(key, result);
    customValues.Insert(key, result.ToString());
    return 0;
}

// An External date is owned outside the store: give it today once, when it
// has never held a valid date, and tell its owner through UsageLog.
unsigned int GetUsageAlerts::InitExternalDate(WString const& key) {
    int stored = 0;
    if (!System::usage.TryGetUsageValue(key.c_str(), stored) || System::usage.GetDataType(key.c_str()) != ExternalDate) {
        System::errorLog.WriteLine(
            L"**GetUsageAlert: The external value defined with InitExternalDate=%s does not exist or is not an "
            L"external data",
            key.c_str());
        return Failure::NoExternalDate;
    }
    DateTime date;
    if (date.TrySetValue(stored, 0) && stored != 0) return 0;

    System::usage.SetExternalDate(key.c_str(), DateTime::Now());
    ExitCode result = Run(WString::Format(L"UsageLog -c %s", key.c_str()), pipe, 1);
    if (result.number != 0) {
        WString code(result.ToCString());
        System::errorLog.WriteLine(L"**GetUsageAlert: Failed to initialize External date %s, Error: %s", key.c_str(),
                                   code.c_str());
    }
    return 0;
}

unsigned int GetUsageAlerts::FinishSection(UsageAlert& alert, WStringHashTable& customValues, unsigned int alertMode,
                                           unsigned int alertId, unsigned int sectionResult) {
    WString alertLine = alert.GetAlertMessage(customValues);
    // A section is reported on its flag alone, failures or not.
    if (IsReported(alert, alertMode)) pipe.DoWriteLine(alertLine);
    // Checked whether or not the alert is due, so a dormant alert's typo shows.
    if (alertLine.IndexOf(L"$(", 0) != -1) {
        System::errorLog.WriteLine(L"**GetUsageAlerts: Bad variable in message, %s:%s", alert.name.c_str(),
                                   alertLine.c_str());
        sectionResult = Failure::BadMessageVariable;
    }
    if ((alertMode == Clear || alertMode == Ignore) && alert.id == alertId) {
        if (!RunCommandLines(alertMode == Clear ? alert.resetCommands : alert.ignoreCommands)) {
            LogSectionFailure(alert.name,
                              WString::Format(L"Reset requested for id %d, but no reset commands are defined",
                                              static_cast<int>(alertId)));
            sectionResult = Failure::NoCommands;
        }
    }
    // Missing keys are not reported on top of a failed statement.
    if (sectionResult == 0) sectionResult = alert.Validate();
    return sectionResult;
}

bool GetUsageAlerts::RunCommandLines(WString commandLines) {
    bool ran = false;
    for (WString token = commandLines.StrTok(L";"); !token.IsEmpty(); token = commandLines.StrTok(L";")) {
        WString commandLine = token.Trim();
        if (commandLine.IsEmpty()) continue;
        // What becomes of the command is the command's own matter.
        Run(commandLine, pipe, 0);
        ran = true;
    }
    return ran;
}

unsigned int GetUsageAlerts::Evaluate(ExpressionEvaluator& evaluator, EEToken& result, WString const& sectionName,
                                      WString const& statement, WString const& expression) {
    _usageAlertLog.WriteLine(L"Evaluate: %s", statement.c_str());
    WString fetched;
    for (;;) {
        if (evaluator.TryEvaluate(expression, result)) {
            _usageAlertLog.WriteLine(L"Result: %s", result.ToString().c_str());
            return 0;
        }
        // The evaluator stops at the first name it does not know: give it the
        // usage item of that name and ask again. A name it asks for again right
        // after it got it is not the store's to fix.
        WString missing;
        if (!evaluator.TryGetMissingVariableName(missing) || missing.str == fetched.str) break;
        int value = 0;
        if (!System::usage.TryGetUsageValue(missing.c_str(), value)) {
            WString message = SectionMessage(sectionName);
            message.AppendFormat(L"Failed to evaluate: %s >Missing variable: %s", statement.c_str(), missing.c_str());
            System::errorLog.WriteLine(message);
            _usageAlertLog.WriteLine(message);
            return Failure::UnknownVariable;
        }
        evaluator.SetVariable(missing, static_cast<double>(value));
        fetched = missing;
    }

    WString message = SectionMessage(sectionName);
    message.AppendFormat(L"Evaluation failure: %s", statement.c_str());
    System::errorLog.WriteLine(message);
    _usageAlertLog.WriteLine(message);
    ExitCode code;
    WString description;
    WString marker;
    if (evaluator.TryGetErrorMessage(code, description, marker)) {
        System::errorLog.WriteLine(L"**%s", expression.c_str());
        System::errorLog.WriteLine(L"**%s", marker.c_str());
        System::errorLog.WriteLine(L"**%s", description.c_str());
    }
    return Failure::EvaluationFailed;
}

unsigned int GetUsageAlerts::EvaluateBool(ExpressionEvaluator& evaluator, bool& result, WString const& sectionName,
                                          WString const& statement, WString const& expression) {
    EEToken token;
    if (unsigned int failure = Evaluate(evaluator, token, sectionName, statement, expression)) return failure;
    bool value = false;
    if (!token.TryCast(value)) {
        LogSectionFailure(sectionName, WString::Format(L"Failed to evaluate boolen: %s", statement.c_str()));
        return Failure::NotBoolean;
    }
    result = value;
    return 0;
}

void GetUsageAlerts::OnExit(ExitCode&) {}

void GetUsageAlerts::ShowUsage() {
    wchar_t const* const expressionVariablesLine1 =
        L"                   true, usage log keys and custom keys in the section can be";
    wchar_t const* const expressionVariablesLine2 = L"                   used as variables in the expression.";
    wchar_t const* const ensuresKeyExistsLine = L"                   Used to ensure that a key exists before it is used.";
    pipe.WriteLine(L"Usage: GetUsageAlerts <AlertMode> [<options>]");
    pipe.WriteLine(L" Uses the %s file to generate alerts based on the usage data.", ScheduleFileName);
    pipe.WriteLine(L"Arguments:");
    pipe.WriteLine(L"  <AlertMode>   Defines the alerts to show:");
    pipe.WriteLine(L"                u - Show alerts intended for end users.");
    pipe.WriteLine(L"                s - Show alerts intended for both service and for end users.");
    pipe.WriteLine(L"                v - Show all possible alerts, even if the alert have not been");
    pipe.WriteLine(L"                     triggered. Used to be able to verify the alert texts.");
    pipe.WriteLine(L"                c - Clears the alerts associated with the id specified -i");
    pipe.WriteLine(L"                     option.");
    pipe.WriteLine(L"                     Invokes the command(s) defined with ResetCommand=xx.");
    pipe.WriteLine(L"                i - Ignores/hides the alerts associated with the id specified -i");
    pipe.WriteLine(L"                     option.");
    pipe.WriteLine(L"                     Invokes the command(s) defined with IgnoreCommand=xx.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L" -i<#id>    Alert id to clear/ignore, only valid with <AlertMode>=c & i.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alert syntax:");
    pipe.WriteLine(L" <#id>;<#type>;<message>");
    pipe.WriteLine(L" All the fields in the message are defined in the schedule file.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"%s Syntax:", ScheduleFileName);
    pipe.WriteLine(L" The file is a standard .ini file, divided into sections. Each section starts");
    pipe.WriteLine(L"  with the section name inside square brackets. I.e. \"[SectionName]\".");
    pipe.WriteLine(L" In this file the section names are not used does not matter, they just");
    pipe.WriteLine(L"  act as separators for an alert definition.");
    pipe.WriteLine(L" The sections contains \"key=value\" pairs defining the conditions for when an");
    pipe.WriteLine(L"  alert should be fired and the content of the the corresponding alert message.");
    pipe.WriteLine(L" Lines starting with \";\" are comment lines.");
    pipe.WriteLine(L" The following keys are used:");
    pipe.WriteLine(L"  Id=<int>        Unique id that identifies this specific alert. Intended to be");
    pipe.WriteLine(L"                   used as a string table lookup value in the PC software.");
    pipe.WriteLine(L"                  Required");
    pipe.WriteLine(L"  Type=<int>      Type id, can be used to group alerts into categories.");
    pipe.WriteLine(L"                   The number can be defined by the PC software.");
    pipe.WriteLine(L"  Level=<int>     Level, is used to group notifications into categories.");
    pipe.WriteLine(L"                   Level 0 = Malfunction");
    pipe.WriteLine(L"                   Level 1 = Alert");
    pipe.WriteLine(L"                   Level 2 is not used (Completed)");
    pipe.WriteLine(L"                   Level 3 is not used (Hint)");
    pipe.WriteLine(L"                   Level 4 = Reminder");
    pipe.WriteLine(L"                  Required");
    pipe.WriteLine(L"  Message=<text>  The alert message text. The text may contain variables in");
    pipe.WriteLine(L"                  \"$(name)\" format. The variable names are custom keys");
    pipe.WriteLine(L"                   defined earlier in the section, the inserted values are the");
    pipe.WriteLine(L"                   result of the custom key calculations.");
    pipe.WriteLine(L"                   Use \\n to insert new lines in the message.");
    pipe.WriteLine(L"                   If the text starts with a '#' character, the first line, until \\n");
    pipe.WriteLine(L"                    will become the heading of the alert message.");
    pipe.WriteLine(L"                  Required");
    pipe.WriteLine(L"  AlertUser=<bool expression>  Alert user when the boolean expression is");
    pipe.WriteLine(expressionVariablesLine1);
    pipe.WriteLine(expressionVariablesLine2);
    pipe.WriteLine(L"                  Required if not \"AlertService=\" is defined");
    pipe.WriteLine(L"  AlertService=<bool expression>  Alert service when the boolean expression is");
    pipe.WriteLine(expressionVariablesLine1);
    pipe.WriteLine(expressionVariablesLine2);
    pipe.WriteLine(L"                  Required if not \"AlertUser=\" is defined");
    pipe.WriteLine(L"  InitCounter=<UsageLogKey>  Create a usage log counter with the specified");
    pipe.WriteLine(L"                   name and initialize it to 0 if it does not already exist.");
    pipe.WriteLine(ensuresKeyExistsLine);
    pipe.WriteLine(L"  InitDate=<UsageLogKey>  Create a usage log date with the specified name and");
    pipe.WriteLine(L"                   initialize it to the current date if it does not already");
    pipe.WriteLine(L"                   exist. Used to ensure that a key exists before it is used.");
    pipe.WriteLine(L"  InitExternalDate=<UsageLogKey>  Update an external usage log date to the");
    pipe.WriteLine(L"                   current date if it has not previously been initialized to");
    pipe.WriteLine(L"                   valid date. Used to ensure a valid date before use.");
    pipe.WriteLine(L"  InitTimer=<UsageLogKey>  Create a usage log timer with the specified name and");
    pipe.WriteLine(L"                   initialize it to 0 if it does not already exist.");
    pipe.WriteLine(ensuresKeyExistsLine);
    pipe.WriteLine(L"  ResetCommand=<CommandLine>[;<CommandLine>...] The command(s) used to reset");
    pipe.WriteLine(L"                   this usage alert.");
    pipe.WriteLine(L"                   NOTE: The commands can also be defined with several");
    pipe.WriteLine(L"                         'ResetCommand=' lines.");
    pipe.WriteLine(L"  IgnoreCommand=<CommandLine>[;<CommandLine>...] The command(s) used to ignore/");
    pipe.WriteLine(L"                   hide this usage alert for typically a day. (Optional)");
    pipe.WriteLine(L"  <customkey>=<expression> Defines a variable that can be used in Message,");
    pipe.WriteLine(L"                    AlertUser, AlertService and in other custom keys.");
    pipe.WriteLine(L"                   Typically used to break down expressions into simpler");
    pipe.WriteLine(L"                    parts.");
    pipe.WriteLine(L"                   The expression is basically any valid expression using");
    pipe.WriteLine(L"                    usage log keys and other custom keys as variables.");
    pipe.WriteLine(L"                   The keys are evaluated in order of appearance thus only keys");
    pipe.WriteLine(L"                    that have been defined earlier can be used as variables.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"%s Example:", ScheduleFileName);
    pipe.WriteLine(L" [ServiceInterval]");
    pipe.WriteLine(L" InitDate=Service.MaintenanceDate");
    pipe.WriteLine(L" Id=1");
    pipe.WriteLine(L" Type=10");
    pipe.WriteLine(L" Level=4");
    pipe.WriteLine(L" DaysSinceMaintenance=now-DateToDays(Service.MaintenanceDate)");
    pipe.WriteLine(L" WeeksSinceMaintenance=INT(DaysSinceMaintenance/7)");
    pipe.WriteLine(L" AlertUser=DaysSinceMaintenance > 365 / 2");
    pipe.WriteLine(L" AlertService=DaysSinceMaintenance > 365 / 2 - 60");
    pipe.WriteLine(L" ResetCommands=UsageLog -c Service.MaintenanceDate");
    pipe.WriteLine(L" Message=#Maintenance Required\\nTime ... performed $(WeeksSinceMaintenance)");
    pipe.WriteLine(L" ;NOTE: The example Message has been abbreviated");
    pipe.WriteLine(L"");
    ExpressionEvaluator::DisplaySupportedOperatorsAndFunctionsHelpText(pipe, true, L"Supported operators:",
                                                                    L"Supported functions:");
    pipe.WriteLine(L"The following predefined variables may also be used:");
    pipe.WriteLine(L" now    The current date in days since 30-Dec-1899. Intended to be used in");
    pipe.WriteLine(L"         comparisons/calculations with usage log dates. Use the DateToDays");
    pipe.WriteLine(L"         function to convert the usage log date to days.");
}

CommandBase* CreateCommandGetUsageAlerts() { return new GetUsageAlerts(); }
static AddToCommandVector addGetUsageAlerts(CreateCommandGetUsageAlerts);
