// ResetUsageAlert <alertId>: the short form of "GetUsageAlerts c -i<alertId>",
// for the id at the head of an alert line. Whatever the reset run gives, this
// command ends with 0 once it has started it.
#pragma once

#include "../frame/host/CommandBase.h"

class ResetUsageAlert : public CommandBase {
public:
    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;
};
