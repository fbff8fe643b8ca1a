#include "UsageLogCommand.h"

#include <climits>
#include <cmath>
#include <cwchar>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/HostServices.h"
#include "../frame/host/System.h"
#include "../usage/Utilities.h"

namespace {
constexpr bool IgnoreCase = true;
constexpr int ThreadPriority = 88;
constexpr unsigned int SleepForever = 4294967295u;
constexpr UsageDataType ExternalDate = UsageType::External | UsageType::Date;
wchar_t const* const Wildcards = L"*?";

bool HasWildcard(WString const& text) { return text.str.find_first_of(Wildcards) != std::wstring::npos; }
bool HasEquals(WString const& text) { return text.str.find(L'=') != std::wstring::npos; }
int TodayAsDateInt() { return DateTime::Now().ToDateInt(); }
}  // namespace

// What the narration remembers between runs of the command: the operation in
// progress, the chip, the cycle count and rate, and the chain of a multi-step
// tool. Held in memory only; a reload starts empty.
struct RunLogState {
    WString operationName;      // with " Step %u" for later steps of a chain
    WString cycleRateText;      // e.g. "10 Hz"; belongs to the next cycle line
    WString chipName;
    std::uint32_t cycleNumber;  // cycles since the last operation start
    bool toolDatePending;       // Control.Tool.Date seen, the tool's own key follows
    WString multiStepToolName;
    std::uint32_t stepNumber;
};

// The tools that run as a chain of steps, each framed by semicolons so that a
// part of a name never matches.
static WString ValidMultiStepToolNames_lc(
    L";BufferSelectorConfiguration;DesorbAndSanitize;Shutdown;ReturnIFCAndOptoReplacement;"
    L"IFCAndOptoReplacement;EmptyAirbusTubing;");
// The numbers and the flag start from zero-initialised static storage.
static RunLogState runLogState;
// Runs narrate concurrently; each handler holds this for its whole body so
// that none sees another's half-done update.
static std::mutex runLogStateMutex_lc;

// The narration's lines, queued in the order of the state changes that made
// them and written once the state lock is let go: whichever run finds nobody
// writing writes the queue out, so no run waits for the disk while it holds
// the state, and no line overtakes an earlier one.
class RunLogQueue {
public:
    // The caller holds runLogStateMutex_lc.
    void Add(WString line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(std::move(line));
    }

    // The caller holds no narration lock.
    void WriteOut() {
        std::unique_lock<std::mutex> lock(mutex);
        if (writing) return;
        writing = true;
        while (!lines.empty()) {
            std::deque<WString> batch;
            batch.swap(lines);
            lock.unlock();
            for (WString& line : batch) System::runLog.WriteLine(std::move(line));
            lock.lock();
        }
        writing = false;
    }

private:
    std::mutex mutex;
    std::deque<WString> lines;
    bool writing = false;
};
static RunLogQueue runLogLines_lc;

// A handler's hold on the narration's state; its lines go out after it.
class RunLogStateLock {
public:
    RunLogStateLock() : lock(runLogStateMutex_lc) {}
    ~RunLogStateLock() {
        lock.unlock();
        runLogLines_lc.WriteOut();
    }

private:
    std::unique_lock<std::mutex> lock;
};

UsageLogCommand::UsageLogCommand() : saveWhenDone(false), runLogExitState(0) {}

WString UsageLogCommand::GetName() { return WString(L"UsageLog"); }
std::uint32_t UsageLogCommand::GetCommandId() { return 1051; }
char const* UsageLogCommand::GetSourceCodeTimestamp() { return "Fri May 17 08:50:23 2024"; }

ExitCode UsageLogCommand::Main(ArgumentList& args, Options& options) {
    saveWhenDone = options.TryGetFlag(L"b", 22);
    // A bare save request: OnExit does the work.
    if (saveWhenDone && args.count == 0) return ExitCode(0);

    infoDateTimeValid = false;
    System::status.TryGetBool(L"InfoDateTimeValid", infoDateTimeValid);
    bool showHistory = options.TryGetFlag(L"h", 25);
    bool pendingOnly = options.TryGetFlag(L"p", 26);

    dataType = UsageType::Counter;
    historyDate = false;
    historyUpgrade = false;
    WString typeText;
    typeOptionGiven = options.TryGetString(L"v", 9, typeText, 1, 8);
    if (typeOptionGiven) {
        // First prefix that fits decides: "Cxy" is a Counter, "HUx" an upgrade.
        if (typeText.StartsWith(L"C", IgnoreCase)) {
            dataType = UsageType::Counter;
        } else if (typeText.StartsWith(L"D", IgnoreCase)) {
            dataType = UsageType::Date;
        } else if (typeText.StartsWith(L"H", IgnoreCase)) {
            dataType = UsageType::Date;
            historyDate = true;
            historyUpgrade = typeText.StartsWith(L"HU", IgnoreCase);
        } else if (typeText.StartsWith(L"T", IgnoreCase)) {
            dataType = UsageType::Timer;
        } else {
            return ExitCode(9);
        }
    }

    if (options.TryGetFlag(L"i", 15)) return InitializeSpecifiedItemsIfNeeded(args, options);
    WString incrementText;
    if (options.TryGetString(L"a", 16, incrementText, 0, 16)) {
        unsigned int increment = incrementText.IsEmpty() ? 1 : incrementText.GetUInt(16, 1, 10000);
        return IncrementUsageCounters(increment, args, options);
    }
    int seconds = 0;
    if (options.TryGetInt(L"u", 27, seconds, INT_MIN, INT_MAX)) return UpdateUsageTimer(seconds, args, options);
    if (options.TryGetFlag(L"m", 20)) return MeasureTime(args, options);

    bool extended = options.TryGetFlag(L"e", 5);
    int intervalSeconds = 0;
    options.TryGetInt(L"d", 6, intervalSeconds, 1, 7200);
    bool reset = options.TryGetFlag(L"c", 7);
    ignoreMissingItem = options.TryGetFlag(L"z", 29);
    if (options.ContainsUnusedOptions()) return ExitCode(2);

    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();
    SetThreadPriority(ThreadPriority);

    WStringArray keys;
    GetMatchingKeysAndHandleAssignments(args, keys);
    if (reset) return ResetItems(keys);
    return ListOrMonitor(keys, showHistory, pendingOnly, extended, intervalSeconds);
}

void UsageLogCommand::OnExit(ExitCode& exitCode) {
    if (exitCode.number == 0 && saveWhenDone) System::usage.SaveChanges();
    if (runLogExitState != 0) RunLogHandleOnExitState();
}

// ---------------------------------------------------------------------------
// Selection, assignment, deletion, initialisation and reset

void UsageLogCommand::GetMatchingKeysAndHandleAssignments(ArgumentList& args, WStringArray& keys) {
    WStringArray matches;
    IntHashTable taken(static_cast<int>(matches.count * 3 / 5));
    // The store finds keys whatever their letter case, so "w1" and "W1" are
    // one item: the table holds them folded, the list the first spelling.
    auto takeOnce = [&](WString const& key) {
        WString folded(FoldAsciiCase(key.str));
        if (taken.ContainsKey(folded)) return;
        keys.Add(key);
        taken.Insert(folded, 1);
    };
    // Only what this pattern added: the store appends to the work array.
    auto matchPattern = [&](WString const& pattern) {
        unsigned int first = matches.count;
        System::usage.GetMatchingKeys(pattern, matches);
        return first;
    };

    unsigned int texts = args.count == 0 ? 1 : args.count;
    for (unsigned int index = 0; index < texts; ++index) {
        WString text = args.count == 0 ? WString(L"*") : args.At(index).GetString(3, 1, 255);
        int equals = text.IndexOf(L"=", 0);
        bool isLast = equals == static_cast<int>(text.Length()) - 1;

        if (!HasWildcard(text)) {
            if (equals < 0) {
                takeOnce(text);
            } else if (equals == 0) {
                throw ExitCode(3);
            } else if (isLast) {
                WString id = text.Substring(0, equals);
                if (!System::usage.TryDeleteItem(id.c_str()) && !ignoreMissingItem) throw ExitCode(24);
            } else {
                AssignValue(text.Substring(0, equals), text.Substring(equals + 1, -1));
            }
        } else if (equals >= 0) {
            if (!isLast) throw ExitCode(10);
            if (!ignoreMissingItem) throw ExitCode(30);
            for (unsigned int m = matchPattern(text.Substring(0, equals)); m < matches.count; ++m)
                System::usage.TryDeleteItem(matches[m].c_str());
        } else {
            for (unsigned int m = matchPattern(text); m < matches.count; ++m) takeOnce(matches[m]);
        }
    }
    keys.Sort(nullptr);
}

void UsageLogCommand::AssignValue(WString const& id, WString const& valueText) {
    int value = static_cast<int>(valueText.GetUInt(11, 0, 2147483647));
    UsageDataType type = dataType;
    UsageReference reference;
    if (System::usage.TryGetItemReference(id.c_str(), reference)) {
        // The item keeps its type; -v only names the type it must already have.
        type = reference.GetDataType();
        if (typeOptionGiven && type != dataType) throw ExitCode(13);
    }
    SetUsageValue(id, type, value, historyDate, historyUpgrade);
}

void UsageLogCommand::SetUsageValue(WString const& key, unsigned int type, int value, bool history,
                                    bool historyUpgrade) {
    if (HasWildcard(key)) throw ExitCode(10);
    if (HasEquals(key)) throw ExitCode(14);

    if (type & UsageType::External) {
        // An invalid date must fail before its owner hears of it.
        if (type == ExternalDate) static_cast<void>(DateTime(value, 0));
        UpdateExternalValue(key, value);
        return;
    }
    switch (type) {
        case UsageType::Timer:
            System::usage.GetTimerReference(key.c_str()).SetValue(value);
            break;
        case UsageType::Counter:
            System::usage.GetCounterReference(key.c_str()).SetValue(value);
            break;
        case UsageType::Date: {
            UsageReference reference;
            // Keep the date that a pre-history item had as its first entry.
            if (historyUpgrade && System::usage.TryGetItemReference(key.c_str(), reference) &&
                !reference.HasHistory())
                reference.AddDateToHistory(reference.GetValue());
            System::usage.SetDate(key.c_str(), DateTime(value, 0), history);
            break;
        }
        default:
            break;
    }
}

void UsageLogCommand::UpdateExternalValue(WString const& key, int value) {
    // The item's owner takes the value over and says so through `handled`.
    UpdateExternalUsageDataBroadcast message(GetProcessId(), key, value);
    BroadcastManager::Broadcast(UpdateExternalUsageDataBroadcastId, &message);
    if (!message.handled) {
        System::errorLog.WriteLine(L"** External usage data key '%s' was not handled in broadcast", key.c_str());
        throw ExitCode(23);
    }
}

ExitCode UsageLogCommand::InitializeSpecifiedItemsIfNeeded(ArgumentList& args, Options& options) {
    if (args.count == 0) return ExitCode(1);
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    for (unsigned int index = 0; index < args.count; ++index) {
        WString const& text = args.At(index).GetString(3, 1, 255);
        if (HasWildcard(text)) return ExitCode(17);
        int equals = text.IndexOf(L"=", 0);
        if (equals == 0) throw ExitCode(3);
        WString id = text;
        std::optional<int> givenValue;
        if (equals > 0) {
            id = text.Substring(0, equals);
            // "ID=" is no deletion here: the empty value is refused as a number.
            givenValue = static_cast<int>(text.Substring(equals + 1, -1).GetUInt(11, 0, 2147483647));
        }

        UsageReference reference;
        if (System::usage.TryGetItemReference(id.c_str(), reference)) {
            if (reference.GetDataType() != dataType) throw ExitCode(13);
            continue;
        }
        int value = 0;
        if (givenValue) {
            value = *givenValue;
        } else if (dataType == UsageType::Date && infoDateTimeValid) {
            value = TodayAsDateInt();
        }
        SetUsageValue(id, dataType, value, historyDate, historyUpgrade);
    }
    return ExitCode(0);
}

ExitCode UsageLogCommand::ResetItems(WStringArray const& keys) {
    UsageReference reference;
    for (unsigned int index = 0; index < keys.count; ++index) {
        WString const& key = keys[index];
        if (!System::usage.TryGetItemReference(key.c_str(), reference)) {
            int value = 0;
            if (dataType == UsageType::Date) {
                if (!infoDateTimeValid) return ExitCode(8);
                value = TodayAsDateInt();
            }
            SetUsageValue(key, dataType, value, historyDate, historyUpgrade);
            if (dataType == UsageType::Date) RunLogHandleDateUpdate(key);
            continue;
        }

        UsageDataType type = reference.GetDataType();
        bool isDate = type == UsageType::Date || type == ExternalDate;
        int value = 0;
        bool addNewDateToHistory = false;
        if (isDate) {
            if (!infoDateTimeValid) return ExitCode(8);
            value = TodayAsDateInt();
            // A date with history gets the new date from the store itself.
            if (historyDate && !reference.HasHistory()) {
                if (historyUpgrade)
                    reference.AddDateToHistory(reference.GetValue());
                else
                    addNewDateToHistory = true;
            }
        }
        if (type & UsageType::External)
            UpdateExternalValue(key, value);
        else
            reference.SetValue(value);
        if (addNewDateToHistory) reference.AddDateToHistory(value);
        if (isDate) RunLogHandleDateUpdate(key);
    }
    return ExitCode(0);
}

// ---------------------------------------------------------------------------
// Counters, timers and measuring

ExitCode UsageLogCommand::IncrementUsageCounters(unsigned int increment, ArgumentList& args, Options& options) {
    return AddToEachItem(args, options, UsageType::Counter, 18, [&](WString const& id) {
        System::usage.Increment(id.c_str(), static_cast<int>(increment));
        RunLogHandleIncrementCounter(id);
    });
}

ExitCode UsageLogCommand::UpdateUsageTimer(int seconds, ArgumentList& args, Options& options) {
    return AddToEachItem(args, options, UsageType::Timer, 28,
                         [&](WString const& id) { System::usage.IncrementTimer(id.c_str(), seconds); });
}

// Each argument is checked just before its turn, so the items ahead of a bad
// one have been added to already.
template <typename AddToItem>
ExitCode UsageLogCommand::AddToEachItem(ArgumentList& args, Options& options, UsageDataType requiredType,
                                        unsigned int wrongTypeExit, AddToItem addToItem) {
    if (args.count == 0) return ExitCode(1);
    if (typeOptionGiven && dataType != requiredType) return ExitCode(wrongTypeExit);
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    for (unsigned int index = 0; index < args.count; ++index) {
        WString const& id = args.At(index).GetString(3, 1, 255);
        if (HasWildcard(id)) return ExitCode(17);
        if (HasEquals(id)) return ExitCode(14);
        addToItem(id);
    }
    return ExitCode(0);
}

ExitCode UsageLogCommand::MeasureTime(ArgumentList& args, Options& options) {
    if (args.count != 1) return ExitCode(19);
    if (typeOptionGiven && dataType != UsageType::Timer) return ExitCode(21);
    WString const& id = args.At(0).GetString(3, 1, 255);
    if (HasWildcard(id)) return ExitCode(17);
    if (HasEquals(id)) return ExitCode(14);
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    // The host's stop leaves the sleep by a throw; destroying the timer on
    // the way out books the time measured.
    UsageTimer timer = System::usage.CreateAutomaticTimer(id.c_str());
    RunLogHandleMeasureTimeStart(id);
    for (;;) SleepWithoutSimulationMode(SleepForever);
}

// ---------------------------------------------------------------------------
// Listing and monitoring

ExitCode UsageLogCommand::ListOrMonitor(WStringArray& keys, bool showHistory, bool pendingOnly, bool extended,
                                        int intervalSeconds) {
    // Resolve every key once: a pass then works through references only.
    Array<UsageReference> references;
    references.Reserve(keys.count);
    for (unsigned int index = 0; index < keys.count; ++index) references.Add(UsageReference(nullptr));
    for (unsigned int index = 0; index < keys.count; ++index)
        if (!System::usage.TryGetItemReference(keys[index].c_str(), references[index])) return ExitCode(4);
    keys.Clear();

    // Empty until an entry is first shown: such an entry always counts as changed.
    std::vector<std::optional<int>> lastShown(references.count);
    for (;;) {
        for (unsigned int index = 0; index < references.count; ++index) {
            UsageReference reference = references[index];
            int value = reference.GetValueOrHistoryChangeTrigger(showHistory);
            if (lastShown[index] == value) continue;
            if (pendingOnly && !reference.IsDirty()) continue;
            lastShown[index] = value;
            DisplayValue(showHistory, extended, reference, value);
        }
        SleepWithoutSimulationMode(static_cast<unsigned int>(intervalSeconds) * 1000u);
        if (intervalSeconds == 0) return ExitCode(0);
    }
}

void UsageLogCommand::DisplayValue(bool showHistory, bool extended, UsageReference reference, int value) {
    UsageDataType type = reference.GetDataType();
    wchar_t const* key = reference.GetKey().c_str();
    unsigned int shownValue = static_cast<unsigned int>(value);
    if (extended) {
        WString historySuffix;
        if ((type & UsageType::KindMask) == UsageType::Date) {
            WString history = reference.GetHistory();
            if (!history.IsEmpty()) historySuffix = WString::Format(L"; %s", history.c_str());
        }
        pipe.WriteLine(L"%s=%u; %s; %s; %s%s", key, shownValue, GetUsageLogDataTypeString(type),
                       GetUsageLogLocationString(type), GetDirtyOrSavedString(reference.IsDirty()),
                       historySuffix.c_str());
        return;
    }
    if (showHistory && type == UsageType::Date) {
        WString history = reference.GetHistory();
        if (!history.IsEmpty()) {
            pipe.WriteLine(L"%s=%s", key, history.c_str());
            return;
        }
    }
    pipe.WriteLine(L"%s=%u", key, shownValue);
}

// ---------------------------------------------------------------------------
// Run-log narration. Key names are the protocol: the handlers look only at
// the key that was updated, never at its value.

WString UsageLogCommand::GetDataInsideKey(WString const& key, wchar_t const* prefix, wchar_t const* suffix) {
    int prefixLength = static_cast<int>(std::wcslen(prefix));
    int suffixLength = static_cast<int>(std::wcslen(suffix));
    // In "Control.Date" prefix and suffix share their dot: -1 takes the rest.
    return key.Substring(prefixLength, static_cast<int>(key.Length()) - (prefixLength + suffixLength));
}

bool UsageLogCommand::IsMultiStepTool(WString const& toolName) {
    std::wstring framed = L";" + toolName.str + L";";
    return ValidMultiStepToolNames_lc.str.find(framed) != std::wstring::npos;
}

void UsageLogCommand::RunLogHandleDateUpdate(WString const& key) {
    RunLogStateLock lock;
    RunLogState& state = runLogState;
    if (!System::runLog.enabled) return;
    if (key.StartsWith(L"Control.Standby", IgnoreCase)) return;
    if (key.StartsWith(L"Control.Temp", IgnoreCase)) return;
    if (key.Equals(L"Control.Chip.Undock.Date", IgnoreCase)) {
        runLogLines_lc.Add(WString(L"Undock"));
        state.chipName.str.clear();
        return;
    }
    if (key.Equals(L"Control.Chip.Dock.Date", IgnoreCase)) {
        runLogLines_lc.Add(WString::Format(L"Dock %s", state.chipName.c_str()));
        return;
    }
    if (key.Equals(L"Control.Abort.Date", IgnoreCase)) {
        runLogLines_lc.Add(WString(L"Abort"));
        return;
    }
    if (key.Equals(L"Control.AbortWithWash.Date", IgnoreCase)) {
        runLogLines_lc.Add(WString(L"AbortWithWash"));
        return;
    }
    if (key.StartsWith(L"Control.", IgnoreCase) && key.EndsWith(L".Date", IgnoreCase)) {
        WString name = GetDataInsideKey(key, L"Control.", L".Date");
        state.cycleNumber = 0;
        // The tool's own date key follows and names the tool.
        if (name.Equals(L"Tool", IgnoreCase)) {
            state.toolDatePending = true;
            return;
        }
        runLogExitState = 1;
        state.operationName = name;
        state.multiStepToolName.str.clear();
        runLogLines_lc.Add(WString::Format(L"%s Start", name.c_str()));
        return;
    }
    if (!state.toolDatePending) return;
    if (!key.StartsWith(L"Tool.", IgnoreCase) || !key.EndsWith(L".Date", IgnoreCase)) return;

    WString name = GetDataInsideKey(key, L"Tool.", L".Date");
    // The tool is the first component; what follows it is not narrated.
    std::size_t dot = name.str.find(L'.');
    if (dot != std::wstring::npos) name.str.resize(dot);
    state.toolDatePending = false;
    if (name.Equals(state.multiStepToolName, IgnoreCase)) {
        ++state.stepNumber;
        name.AppendFormat(L" Step %u", state.stepNumber);
    } else if (IsMultiStepTool(name)) {
        state.multiStepToolName = name;
        state.stepNumber = 1;
    } else {
        state.multiStepToolName.str.clear();
    }
    state.operationName = name;
    runLogLines_lc.Add(WString::Format(L"%s Start", name.c_str()));
}

void UsageLogCommand::RunLogHandleIncrementCounter(WString const& key) {
    RunLogStateLock lock;
    RunLogState& state = runLogState;
    if (!System::runLog.enabled) return;
    if (key.Equals(L"Control.Abort.SuccessCount", IgnoreCase)) return;
    if (key.StartsWith(L"Control.Standby", IgnoreCase)) return;
    if (key.StartsWith(L"Control.Chip.", IgnoreCase) && key.EndsWith(L".Count", IgnoreCase)) {
        state.chipName = GetDataInsideKey(key, L"Control.Chip.", L".Count");
        return;
    }
    if (key.StartsWith(L"Control.Temperature.Analysis.", IgnoreCase) && key.EndsWith(L".Count", IgnoreCase)) {
        WString target = GetDataInsideKey(key, L"Control.Temperature.Analysis.", L".Count");
        LogAnalysisTemperature(target);
        return;
    }
    if (key.Equals(L"Control.Temperature.Wait.SuccessCount", IgnoreCase)) {
        runLogLines_lc.Add(WString(L"Temperature Wait Ready"));
        return;
    }
    if (key.Equals(L"Control.Temperature.Wait.AbortCount", IgnoreCase)) {
        runLogLines_lc.Add(WString(L"Temperature Wait Abort"));
        return;
    }
    if (state.operationName.IsEmpty()) return;
    if (!key.StartsWith(WString(L"Control." + state.operationName.str), IgnoreCase) &&
        !key.StartsWith(L"Control.Tool.", IgnoreCase))
        return;

    wchar_t const* result;
    if (key.EndsWith(L".SuccessCount", IgnoreCase))
        result = L"Ready";
    else if (key.EndsWith(L".FailCount", IgnoreCase))
        result = L"Error";
    else if (key.EndsWith(L".AbortCount", IgnoreCase))
        result = L"Abort";
    else
        return;
    runLogLines_lc.Add(WString(state.operationName.str + L" " + result));
    state.toolDatePending = false;
    state.operationName.str.clear();
    // After "Ready" the chain stays, so the tool's next start is its next step.
    if (!WString(result).Equals(L"Ready", IgnoreCase)) state.multiStepToolName.str.clear();
}

void UsageLogCommand::LogAnalysisTemperature(WString& targetText) {
    int target = 0;
    if (!targetText.TryGetInt(target, 0, 100, nullptr)) target = 0;

    // Optics: to 0.01 degree by truncation, and settled.
    WString line(L"Temperature ");
    double optics = 0.0;
    if (!System::status.TryGetDouble(L"TempOptics", optics, 0.0, 100.0)) {
        line.str += L"#NA";
    } else {
        bool stable = false;
        bool atTarget = static_cast<int>(optics * 100.0) == target * 100;
        if (atTarget && System::status.TryGetBool(L"TempOpticsStable", stable) && stable)
            line.AppendFormat(L"%d", target);
        else
            line.AppendFormat(L"%d(%.2f)", target, optics);
    }

    // Tray: within one degree of the set point from the status table.
    line.str += L", Tray ";
    double trayTarget = 0.0;
    if (!System::status.TryGetDouble(L"TempTrayTarget", trayTarget, 0.0, 100.0)) {
        line.str += L"#NA";
    } else {
        double tray = 0.0;
        if (!System::status.TryGetDouble(L"TempTray", tray, 0.0, 100.0)) tray = 0.0;
        int roundedTarget = static_cast<int>(std::floor(trayTarget + 0.5));
        if (std::fabs(trayTarget - tray) < 1.0)
            line.AppendFormat(L"%d", roundedTarget);
        else
            line.AppendFormat(L"%d(%.1f)", roundedTarget, tray);
    }
    runLogLines_lc.Add(line);
}

void UsageLogCommand::RunLogHandleMeasureTimeStart(WString const& key) {
    RunLogStateLock lock;
    RunLogState& state = runLogState;
    if (!System::runLog.enabled) return;
    if (key.Equals(L"Run.CycleTime", IgnoreCase)) {
        ++state.cycleNumber;
        WString trayText;
        int tray = 0;
        if (System::status.TryGetInt(L"TrayLoadedFromShelf", tray, INT_MIN, INT_MAX)) {
            if (tray > 0)
                trayText.AppendFormat(L", tray: %d", tray);
            else
                trayText.str += L", no tray";
        }
        runLogLines_lc.Add(WString::Format(L"Cycle %u, %s%s", state.cycleNumber, state.cycleRateText.c_str(),
                                           trayText.c_str()));
        runLogExitState = 2;
        return;
    }
    if (key.StartsWith(L"Run.Cycle", IgnoreCase) && key.EndsWith(L"HzTime", IgnoreCase)) {
        state.cycleRateText = GetDataInsideKey(key, L"Run.Cycle", L"HzTime");
        state.cycleRateText.str += L" Hz";
    }
}

void UsageLogCommand::RunLogHandleOnExitState() {
    std::lock_guard<std::mutex> lock(runLogStateMutex_lc);
    // A rate belongs to the one cycle line that follows it.
    if (runLogExitState == 2) runLogState.cycleRateText.str.clear();
}

// ---------------------------------------------------------------------------
// Help

void UsageLogCommand::ShowUsage() {
    pipe.WriteLine(L"Usage alt. 1: UsageLog [<ItemId> [...]] [<options>]");
    pipe.WriteLine(L" Shows/Lists the usage items with the specified ids.");
    pipe.WriteLine(L" Wildcards ('*' and '?') can be used to match several");
    pipe.WriteLine(L"  items.");
    pipe.WriteLine(L" If the -d option is used the command will monitor and");
    pipe.WriteLine(L"  all usage changes until the command is aborted.");
    pipe.WriteLine(L" If no argument is given all usage log items are listed");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 2: UsageLog -c [<ItemId> [...]] [-v<type>]");
    pipe.WriteLine(L" Resets/clears the specified status items. Wildcards are allowed.");
    pipe.WriteLine(L" Counters and Timers are set to 0 and Dates to the current date.");
    pipe.WriteLine(L" The -v option is only used to set the type when creating new items.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 3: UsageLog -i [<ItemId> [...]] [-v<type>]");
    pipe.WriteLine(L" Initializes the specified usage items if they do not exist.");
    pipe.WriteLine(L" Existing usage items are not touched.");
    pipe.WriteLine(L" The -v option specifies the type to use.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 4: UsageLog [<ItemId>=value [...]] [-v<typeId>]");
    pipe.WriteLine(L" Sets a usage item to a specific value.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 5: UsageLog [<ItemId>= [...]] [-z]");
    pipe.WriteLine(L" Deletes a usage item. For safety wildcards ('*' and '?') are only");
    pipe.WriteLine(L"  allowed when the -z option is specified.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 6: UsageLog -a[<incrementValue>] [<ItemId> [...]]");
    pipe.WriteLine(L" Adds to/increments a usage item counter.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 7: UsageLog -u<timeInSeconds> [<ItemId> [...]]");
    pipe.WriteLine(L" Adds the specified number of seconds to the usage item timer.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage alt. 8: UsageLog -m <ItemId>");
    pipe.WriteLine(L" Measures the time the command runs and then increments the specified");
    pipe.WriteLine(L"  timer with that value when the command is terminated.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L" -a[<incrementValue>] Increments the specified usage counter(s).");
    pipe.WriteLine(L"           The default incrementValue is 1");
    pipe.WriteLine(L"         This is usage alternative 6.");
    pipe.WriteLine(L" -b     Backup/save updated usage values to disk when done if needed.");
    pipe.WriteLine(L"        NOTE: This option can be used without any arguments if needed.");
    pipe.WriteLine(L" -c      Reset/Clear usage log item(s). Usage alternative 2.");
    pipe.WriteLine(L" -d<time> Monitor usage changes, polling with the specified time interval");
    pipe.WriteLine(L"           in seconds. The command will continue until aborted.");
    pipe.WriteLine(L" -e     Include extended information. I.e. Type and Location.");
    pipe.WriteLine(L"         Type can be: Counter, Date or Timer");
    pipe.WriteLine(L"         Location can be: Internal or External");
    pipe.WriteLine(L" -h     Display the entire usage history instead of just the last date");
    pipe.WriteLine(L"         when monitoring. Values without history are displayed as usual.");
    pipe.WriteLine(L" -i     Initialize status item(s). Usage alternative 3.");
    pipe.WriteLine(L" -m     Measure the time the command runs, update timer usage item.");
    pipe.WriteLine(L"         This is usage alternative 8.");
    pipe.WriteLine(L" -p     List items that have pending changes that needs to be saved.");
    pipe.WriteLine(L" -u<time> Updates the specified usage timer(s) by adding the specified");
    pipe.WriteLine(L"           number of seconds to the timer(s).");
    pipe.WriteLine(L"         This is usage alternative 7.");
    pipe.WriteLine(L" -v<type> The variable type to use when setting new usage log value.");
    pipe.WriteLine(L"           type can be: C[ounter], D[ate], H[U] or T[imer].");
    pipe.WriteLine(L"            H - Date that is also logged in history.");
    pipe.WriteLine(L"            HU - Same as H, but the previous date value is saved in");
    pipe.WriteLine(L"                 history if history is empty. ");
    pipe.WriteLine(L"                 I.e. Upgrade from software old version.");
    pipe.WriteLine(L"           Default: C[ounter].");
    pipe.WriteLine(L" -z     Don't report error if the item to be deleted does not exist.");
    pipe.WriteLine(L"         This option can only be used with usage alternative 5.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"NOTE:");
    pipe.WriteLine(L"  The UsageLog command will also log relevant events in the %%log%%run.log");
}

CommandBase* CreateCommandUsageLogCommand() { return new UsageLogCommand(); }
static AddToCommandVector addUsageLogCommand(CreateCommandUsageLogCommand);
