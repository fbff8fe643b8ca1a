#include "UsageLogCleanup.h"

#include <algorithm>

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/System.h"

UsageLogCleanup::UsageLogCleanup() : quiet(false) {}

WString UsageLogCleanup::GetName() { return WString(L"UsageLogCleanup"); }
std::uint32_t UsageLogCleanup::GetCommandId() { return 1090; }
char const* UsageLogCleanup::GetSourceCodeTimestamp() { return "Tue Jan  9 18:30:25 2024"; }

ExitCode UsageLogCleanup::Main(ArgumentList& args, Options& options) {
    bool renameOnePrefix = options.TryGetFlag(L"n", 3);
    quiet = options.TryGetFlag(L"q", 7);
    WString fromPrefix;
    WString toPrefix;
    if (renameOnePrefix) {
        if (args.count != 2) return ExitCode(4);
        fromPrefix = args.At(0).GetString(5, 1, 200);
        toPrefix = args.At(1).GetString(6, 1, 200);
    } else if (args.count != 0) {
        return ExitCode(1);
    }
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();
    SetThreadPriority(88);

    if (renameOnePrefix) {
        RenameAndMergeEntries(fromPrefix, toPrefix);
        return ExitCode(0);
    }
    // Each step works on the store as the step before left it: the suffix
    // renames also reach keys that the prefix renames produced.
    RenameAndMergeEntries(L"Control.MethodNA.", L"Control.Interactive.");
    RenameAndMergeEntries(L"Control.MethodRun.", L"Control.Method.");
    RenameAndMergeEntries(L"Run.Cycle.", L"Run.Cycle");
    RenameAndMergeBasedOnSuffix(L".FailedCount", L".FailCount");
    RenameAndMergeBasedOnSuffix(L".FailedDate", L".FailDate");
    WildcardDelete(L"Control.Chip.DockWithChangeAll.*");
    WildcardDelete(L"Protocol.*");
    WildcardDelete(L"OD*");
    DeleteBadErrorCounters();
    return ExitCode(0);
}

void UsageLogCleanup::CopyAndMergeKey(WString const& oldKey, WString const& newKey) {
    UsageDataType type = System::usage.GetDataType(oldKey.c_str());
    int value = System::usage.GetUsageValue(oldKey.c_str(), 100);
    switch (type & UsageType::KindMask) {
        case UsageType::Counter:
            System::usage.Increment(newKey.c_str(), value);
            break;
        case UsageType::Timer:
            System::usage.IncrementTimer(newKey.c_str(), value);
            break;
        case UsageType::Date:
            // A date that already stands under the new name wins, older or not.
            if (!System::usage.ContainsKey(newKey.c_str())) {
                System::usage.SetDate(newKey.c_str(), static_cast<unsigned int>(value), false);
            }
            break;
        default:
            System::errorLog.WriteLine(L"**Unsupported usage data type 0x%x, for key %s", type, oldKey.c_str());
            throw ExitCode(101);
    }
}

void UsageLogCleanup::DeleteKey(WString const& key) {
    if (!System::usage.TryDeleteItem(key.c_str())) {
        System::errorLog.WriteLine(L"**Failed to delete usage key %s", key.c_str());
        throw ExitCode(102);
    }
}

void UsageLogCleanup::MoveKey(WString const& oldKey, WString const& newKey) {
    // The store finds keys whatever their letter case: a new name that differs
    // only in case is the old item, which a merge would double and then delete.
    if (oldKey.Equals(newKey, true)) return;
    if (!quiet) pipe.WriteLine(L"Merge/Rename usage key %s to %s", oldKey.c_str(), newKey.c_str());
    // Merge first: a failed delete leaves the old key with its value already merged.
    CopyAndMergeKey(oldKey, newKey);
    DeleteKey(oldKey);
}

void UsageLogCleanup::RenameAndMergeEntries(WString const& oldPrefix, WString const& newPrefix) {
    WStringArray keys;
    System::usage.GetMatchingKeys(WString(oldPrefix.str + L"*"), keys);
    for (unsigned int index = 0; index < keys.count; ++index) {
        // The cut goes by the prefix text, also when it holds a wildcard.
        WString newKey(newPrefix.str + keys[index].Substring(oldPrefix.Length(), -1).str);
        MoveKey(keys[index], newKey);
    }
}

void UsageLogCleanup::RenameAndMergeBasedOnSuffix(WString const& oldSuffix, WString const& newSuffix) {
    WStringArray keys;
    System::usage.GetMatchingKeys(WString(L"*" + oldSuffix.str), keys);
    for (unsigned int index = 0; index < keys.count; ++index) {
        WString const& key = keys[index];
        WString newKey(key.Substring(0, static_cast<int>(key.Length() - oldSuffix.Length())).str + newSuffix.str);
        MoveKey(key, newKey);
    }
}

void UsageLogCleanup::WildcardDelete(WString pattern) {
    WStringArray keys;
    System::usage.GetMatchingKeys(pattern, keys);
    for (unsigned int index = 0; index < keys.count; ++index) {
        if (!quiet) pipe.WriteLine(L"Delete usage key %s", keys[index].c_str());
        DeleteKey(keys[index]);
    }
}

void UsageLogCleanup::DeleteBadErrorCounters() {
    // A valid counter is "Error." + an error code with exactly two ":" + ".Count".
    static constexpr unsigned int PrefixLength = 6;  // "Error."
    static constexpr unsigned int AffixLength = 12;  // "Error." and ".Count"
    WStringArray keys;
    System::usage.GetMatchingKeys(L"Error.*.Count", keys);
    for (unsigned int index = 0; index < keys.count; ++index) {
        WString const& key = keys[index];
        WString errorCode = key.Substring(PrefixLength, static_cast<int>(key.Length() - AffixLength));
        if (std::count(errorCode.str.begin(), errorCode.str.end(), L':') == 2) continue;
        if (!quiet) pipe.WriteLine(L"Delete invalid usage log error code counter: %s", key.c_str());
        DeleteKey(key);
    }
}

void UsageLogCleanup::ShowUsage() {
    pipe.WriteLine(L"Usage: UsageLogCleanup <arguments> [<options>]");
    pipe.WriteLine(L"   Performs a cleanup of the UsageLog by renaming entries");
    pipe.WriteLine(L"   that have been changed from old version while preserving the data.");
    pipe.WriteLine(L" Alt. Usage 2: UsageLogCleanup -n <fromPrefix> <toPrefix>");
    pipe.WriteLine(L"   Renames all keys beginning with <fromPrefix> to keys starting with");
    pipe.WriteLine(L"   <toPrefix> merging the data with any existing data for <toPrefix>.");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L" -n      Rename the specified set of keys, see Alt usage 2");
    pipe.WriteLine(L" -q      Quiet, do not display progress.");
}

void UsageLogCleanup::OnExit(ExitCode&) {}

CommandBase* CreateCommandUsageLogCleanup() { return new UsageLogCleanup(); }
static AddToCommandVector addUsageLogCleanup(CreateCommandUsageLogCleanup);
