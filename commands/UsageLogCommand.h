// UsageLog: the shell's way to the usage store.
//
// One command with eight alternatives: list or monitor items (with -d),
// reset them (-c), create missing ones (-i), assign and delete them
// (ID=value, ID=), add to counters (-a) and timers (-u), and time its own
// run into a timer (-m). Options are read in a fixed order, and that order
// decides which path takes a line and which options count as unused.
//
// Besides, it narrates in the run log what the instrument is doing, worked
// out from the names of the keys that -c, -a and -m touch. That narration
// keeps a little state shared by every run of the command (runLogState in
// the unit), never fails and never changes a command's result.
#pragma once

#include <cstdint>

#include "../frame/host/CommandBase.h"
#include "../frame/host/UsageLog.h"

class UsageLogCommand : public CommandBase {
public:
    UsageLogCommand();

    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;

    // The part of `key` between a prefix and a suffix that the caller has
    // already seen at its ends.
    static WString GetDataInsideKey(WString const& key, wchar_t const* prefix, wchar_t const* suffix);
    // Whether the tool runs as a chain of steps under one name.
    static bool IsMultiStepTool(WString const& toolName);

private:
    // Selection, assignment, deletion, initialisation and reset.
    ExitCode InitializeSpecifiedItemsIfNeeded(ArgumentList& args, Options& options);
    void GetMatchingKeysAndHandleAssignments(ArgumentList& args, WStringArray& keys);
    void AssignValue(WString const& id, WString const& valueText);
    void SetUsageValue(WString const& key, unsigned int type, int value, bool history, bool historyUpgrade);
    void UpdateExternalValue(WString const& key, int value);
    ExitCode ResetItems(WStringArray const& keys);

    // Counters, timers and measuring.
    ExitCode IncrementUsageCounters(unsigned int increment, ArgumentList& args, Options& options);
    ExitCode UpdateUsageTimer(int seconds, ArgumentList& args, Options& options);
    template <typename AddToItem>
    ExitCode AddToEachItem(ArgumentList& args, Options& options, UsageDataType requiredType,
                           unsigned int wrongTypeExit, AddToItem addToItem);
    ExitCode MeasureTime(ArgumentList& args, Options& options);

    // Listing and monitoring.
    ExitCode ListOrMonitor(WStringArray& keys, bool showHistory, bool pendingOnly, bool extended,
                           int intervalSeconds);
    void DisplayValue(bool showHistory, bool extended, UsageReference reference, int value);

    // Run-log narration.
    void RunLogHandleDateUpdate(WString const& key);
    void RunLogHandleIncrementCounter(WString const& key);
    void RunLogHandleMeasureTimeStart(WString const& key);
    void RunLogHandleOnExitState();
    static void LogAnalysisTemperature(WString& targetText);

    bool infoDateTimeValid;
    bool typeOptionGiven;
    std::uint32_t dataType;
    bool historyDate;
    bool historyUpgrade;
    bool saveWhenDone;
    bool ignoreMissingItem;
    std::uint32_t runLogExitState;
};
