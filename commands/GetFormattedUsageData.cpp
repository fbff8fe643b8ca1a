#include "GetFormattedUsageData.h"

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/System.h"

namespace {
constexpr std::uint32_t ConfigurableFlag = 4;

wchar_t const* const MonthNames[] = {L"January", L"February", L"Mar",     L"April",    L"May",      L"June",
                                     L"July",    L"August",   L"September", L"October", L"November", L"December"};

WString DateItemText(wchar_t const* key) {
    int date = 0;
    if (!System::usage.TryGetUsageValue(key, date)) return WString(L"Unknown date");
    return ConvertUsageDateToText(date);
}

WString ServiceIntervalText() {
    int days = System::config.GetIntOrUseDefaultAndAdd(L"Config", L"ServiceInterval", 183, 100, 1, 2147483647);
    // Months of 30 days, halves rounded upward.
    WString text;
    text.Append(static_cast<int>((static_cast<long long>(days) + 15) / 30), false);
    text.str += L" months";
    return text;
}
}  // namespace

WString ConvertUsageDateToText(int date) {
    int year = date / 10000;
    int rest = date % 10000;
    int month = rest / 100;
    int day = rest % 100;
    WString text;
    text.Append(day, false);
    text.str += L' ';
    if (month >= 1 && month <= 12) text.str += MonthNames[month - 1];
    text.str += L' ';
    text.Append(year, false);
    return text;
}

GetFormattedUsageData::GetFormattedUsageData() { commandFlags |= ConfigurableFlag; }

WString GetFormattedUsageData::GetName() { return WString(L"GetFormattedUsageData"); }
std::uint32_t GetFormattedUsageData::GetCommandId() { return 1079; }
char const* GetFormattedUsageData::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode GetFormattedUsageData::Main(ArgumentList& args, Options& options) {
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    if (args.count != 1) return ExitCode(1);
    int selection = args.At(0).GetInt(6, 0, 3);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    WString text;
    switch (selection) {
        case 0: text = DateItemText(L"Schedule.ServiceDate"); break;
        case 1: text = ServiceIntervalText(); break;
        case 2: text = DateItemText(L"Schedule.DesorbDate"); break;
        default: text = DateItemText(L"Schedule.SanitizeDate"); break;
    }
    pipe.DoWriteLine(text);
    return ExitCode(0);
}

void GetFormattedUsageData::ShowUsage() {
    pipe.WriteLine(L"");
    pipe.WriteLine(L"Usage: GetFormattedUsageData <arguments> [<options>]");
    pipe.WriteLine(L"Arguments:");
    pipe.WriteLine(L"        %d: Last preventive maintenance date", 0);
    pipe.WriteLine(L"        %d: PM interval", 1);
    pipe.WriteLine(L"        %d: Last Desorb date", 2);
    pipe.WriteLine(L"        %d: Last Desorb and sanitize date", 3);
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L"");
}

void GetFormattedUsageData::OnExit(ExitCode&) {}

CommandBase* CreateCommandGetFormattedUsageData() { return new GetFormattedUsageData(); }
static AddToCommandVector addGetFormattedUsageData(CreateCommandGetFormattedUsageData);
