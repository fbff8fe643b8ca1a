#include "UsageLogSpy.h"

#include <string>
#include <unordered_set>

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/System.h"
#include "../usage/Utilities.h"

namespace {
wchar_t const* const FlushEventName = L"UsageLogSpyFlush";
constexpr int NoFlush = 1000;
constexpr int FlushRequested = 1001;
// Turns of the monitor between seeing a request and answering it: enough for
// one whole pass wherever the request fell.
constexpr std::int32_t FlushPasses = 2;
// Value of an item that joined after the dump and has not been sent yet.
constexpr int NotYetSent = -1000;
constexpr unsigned int DefaultFlushWaitMs = 20000;
}  // namespace

UsageLogSpy::UsageLogSpy() : pollIntervalMs(0), flushPassesLeft(0) {}

WString UsageLogSpy::GetName() { return WString(L"UsageLogSpy"); }
std::uint32_t UsageLogSpy::GetCommandId() { return 1057; }
char const* UsageLogSpy::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode UsageLogSpy::Main(ArgumentList& args, Options& options) {
    if (args.count != 0) return FlushUsageData(args, options);

    valueSeparator.str.clear();
    fieldSeparator = WString(L";");
    if (options.TryGetString(L"f", 6, valueSeparator, 1, 10)) {
        fieldSeparator = valueSeparator;
    } else {
        valueSeparator = WString(L"=");
    }
    double pollSeconds = 0.0;
    pollIntervalMs = 10010;
    if (options.TryGetDouble(L"d", 3, pollSeconds, 0.1, 3600.0)) {
        pollIntervalMs = static_cast<std::int32_t>(pollSeconds * 1000.0);
    }
    bool extended = options.TryGetFlag(L"e", 10);
    bool reportGo = options.TryGetFlag(L"g", 8);
    bool useHistory = options.TryGetFlag(L"h", 9);
    int linesPerSleep = 5;
    options.TryGetInt(L"y", 7, linesPerSleep, 1, 100);
    if (options.ContainsUnusedOptions()) return ExitCode(1);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();
    SetThreadPriority(88);

    WStringArray spyKeys;
    Array<std::int32_t> spyValues;
    System::usage.GetAllKeys(spyKeys);
    unsigned int knownCount = System::usage.Count();
    spyKeys.Sort(WString::SortCompareAscending);

    auto sendLine = [&](unsigned int position, UsageReference& item, int value) {
        WString line(spyKeys[position]);
        AddDataFields(line, item, value, useHistory, extended);
        pipe.DoWriteLine(line);
    };

    // The full dump: everything, without limit or sleep.
    for (unsigned int position = 0; position < spyKeys.count; ++position) {
        UsageReference item = System::usage.GetItemReference(spyKeys[position].c_str(), 4);
        int value = item.GetValueOrHistoryChangeTrigger(useHistory);
        spyValues.Add(value);
        sendLine(position, item, value);
    }
    if (reportGo) pipe.WriteLine(L"Go");

    // Whatever a flush asked for before now, the dump has sent.
    OS9Event flushEvent(eventContext, FlushEventName, NoFlush, 0, 0);
    flushEvent.Set(NoFlush);
    flushPassesLeft = 0;
    bool flushSeen = false;
    bool sleepAtTurnStart = true;
    std::int32_t itemsSinceYield = 0;

    for (;;) {
        if (sleepAtTurnStart) flushSeen = SleepIfNotFlushing(flushEvent);
        if (flushSeen) {
            --flushPassesLeft;
            if (flushPassesLeft <= 0) flushEvent.Set(NoFlush);
        }

        unsigned int newCount = System::usage.Count();
        if (newCount != knownCount) {
            // New items go to the end, unsorted, marked as not yet sent.
            WStringArray freshKeys;
            System::usage.GetAllKeys(freshKeys);
            // One pass over each list: a search of the whole list per fresh
            // key would take minutes on a large store.
            std::unordered_set<std::wstring> known;
            known.reserve(spyKeys.count);
            for (unsigned int position = 0; position < spyKeys.count; ++position)
                known.insert(FoldAsciiCase(spyKeys[position].str));
            for (unsigned int index = 0; index < freshKeys.count; ++index) {
                if (known.insert(FoldAsciiCase(freshKeys[index].str)).second) {
                    spyKeys.Add(freshKeys[index]);
                    spyValues.Add(NotYetSent);
                }
            }
            newCount = freshKeys.count;
        }

        sleepAtTurnStart = true;
        for (unsigned int position = 0; position < spyKeys.count; ++position) {
            // Fetched anew each pass: a deleted item ends the monitor here with 4.
            UsageReference item = System::usage.GetItemReference(spyKeys[position].c_str(), 4);
            int value = item.GetValueOrHistoryChangeTrigger(useHistory);
            if (value == spyValues[position]) continue;
            sendLine(position, item, value);
            spyValues[position] = value;
            if (++itemsSinceYield >= linesPerSleep) {
                flushSeen = SleepIfNotFlushing(flushEvent);
                sleepAtTurnStart = false;
                itemsSinceYield = 0;
            }
        }
        knownCount = newCount;
    }
}

void UsageLogSpy::AddDataFields(WString& line, UsageReference& item, long value, bool showHistory,
                                bool extended) const {
    line.str += valueSeparator.str;
    if (extended) {
        UsageDataType type = item.GetDataType();
        line.Append(item.GetValue(), false);
        line.str += fieldSeparator.str;
        line.str += GetUsageLogDataTypeChar(type);
        line.str += fieldSeparator.str;
        line.str += GetUsageLogLocationChar(type);
        if (item.HasHistory()) {
            line.str += fieldSeparator.str;
            line.str += item.GetHistory().str;
        }
    } else if (showHistory && item.HasHistory()) {
        line.str += item.GetHistory().str;
    } else {
        line.Append(static_cast<int>(value), false);
    }
}

bool UsageLogSpy::SleepIfNotFlushing(OS9Event& flushEvent) {
    // The wait leaves the value alone, so a standing request keeps every
    // later call from sleeping until the monitor answers it.
    bool flushRequested = false;
    flushEvent.Wait(FlushRequested, FlushRequested, static_cast<unsigned int>(pollIntervalMs), flushRequested);
    if (flushRequested && flushPassesLeft == 0) flushPassesLeft = FlushPasses;
    return flushRequested;
}

ExitCode UsageLogSpy::FlushUsageData(ArgumentList& args, Options& options) {
    if (args.count != 1) return ExitCode(2);
    if (!args.At(0).GetString(11, 5, 5).Equals(WString(L"flush"), true)) return ExitCode(11);
    unsigned int waitMs = DefaultFlushWaitMs;
    double waitSeconds = 0.0;
    if (options.TryGetDouble(L"w", 14, waitSeconds, 0.01, 3600.0)) {
        waitMs = static_cast<unsigned int>(waitSeconds * 1000.0);
    }
    if (options.ContainsUnusedOptions()) return ExitCode(12);
    // This run counts itself: somebody else must be there to answer.
    if (System::GetCommandRunningCount(GetName()) <= 1) return ExitCode(15);

    OS9Event flushEvent(eventContext, FlushEventName, NoFlush, 0, 0);
    // Never lay a request over one that is still standing.
    if (!flushEvent.TryWait(NoFlush, NoFlush, waitMs, nullptr)) return ExitCode(13);
    flushEvent.Set(FlushRequested);
    if (!flushEvent.TryWait(NoFlush, NoFlush, waitMs, nullptr)) return ExitCode(13);
    return ExitCode(0);
}

void UsageLogSpy::ShowUsage() {
    pipe.WriteLine(L"UsageLogSpy <itemId>[[ itemId] [...]] [<options>]");
    pipe.WriteLine(L" Shows the status of all usage/maintenance log items and then monitors ");
    pipe.WriteLine(L" changed items with a low frequency to conserve CPU time and bandwidth.");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L" -d<pollInterval> Sets the interval (in seconds) between each item update. ");
    pipe.WriteLine(L"                  If not specified, the interval is 10s. Range: 0.1 - 3600 ");
    pipe.WriteLine(L" -e               Include extended information. I.e. Type, Location and history.");
    pipe.WriteLine(L"                   Type can be: C=Counter, D=Date or T=Timer");
    pipe.WriteLine(L"                   Location can be: I=Internal or E=External");
    pipe.WriteLine(L" -f<separator>    Use this separator between each field.");
    pipe.WriteLine(L" -g               Report '%s' when current content has been sent and we", L"Go");
    pipe.WriteLine(L"                   switch to monitoring mode.");
    pipe.WriteLine(L" -h               Report history as a comma separated list of dates for usage");
    pipe.WriteLine(L"                   dates that includes history.");
    pipe.WriteLine(L" -y<count>        Max number of status items before yielding the CPU.");
    pipe.WriteLine(L"                  Default 5.");
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Alternate usage: UsageLogSpy flush -w<wait_s>");
    pipe.WriteLine(L"  Sends an instruction to an already running UsageLogSpy to flush the current");
    pipe.WriteLine(L"   usage data");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L" -w<wait_s>     Wait max this time in seconds for the data to be flushed.");
}

CommandBase* CreateCommandUsageLogSpy() { return new UsageLogSpy(); }
static AddToCommandVector addUsageLogSpy(CreateCommandUsageLogSpy);
