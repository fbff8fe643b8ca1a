// GetFormattedUsageData <0..3>: one maintenance fact as a line of text:
// the last preventive maintenance date, the PM interval in months, the last
// Desorb date, the last Desorb and sanitize date.
#pragma once

#include "../frame/host/CommandBase.h"

class GetFormattedUsageData : public CommandBase {
public:
    GetFormattedUsageData();

    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;
};

// "15 August 2024" from 20240815; a month outside 1..12 leaves its name empty.
WString ConvertUsageDateToText(int date);
