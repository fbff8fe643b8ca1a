// UsageLogCleanup [-q] | UsageLogCleanup -n <fromPrefix> <toPrefix> [-q]
//
// Migrates the usage store after an upgrade: renames keys whose names have
// changed, merging their data into what stands under the new name (counts and
// times add up, an existing date stays), and deletes keys that are no longer
// wanted. Without -n a fixed list of migrations runs in order; with -n one
// prefix is renamed. Changes stay pending: nothing is saved here. The first
// failure ends the run, and what was done before it stays done.
#pragma once

#include "../frame/host/CommandBase.h"

class UsageLogCleanup : public CommandBase {
public:
    UsageLogCleanup();

    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;

private:
    void CopyAndMergeKey(WString const& oldKey, WString const& newKey);
    void DeleteKey(WString const& key);
    void RenameAndMergeEntries(WString const& oldPrefix, WString const& newPrefix);
    void RenameAndMergeBasedOnSuffix(WString const& oldSuffix, WString const& newSuffix);
    void WildcardDelete(WString pattern);
    void DeleteBadErrorCounters();
    // Copies and merges the old key into the new one, then deletes the old one.
    void MoveKey(WString const& oldKey, WString const& newKey);

    bool quiet;  // -q: no progress lines
};
