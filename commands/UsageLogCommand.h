// UsageLog: placeholder until the command is built.
#pragma once

#include "../frame/host/CommandBase.h"

class UsageLogCommand : public CommandBase {
public:
    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
};
