// forecast [DAYS]: the first day on which each alert of the schedule falls
// due, from today to today + DAYS. The plug-in's own GetUsageAlerts judges
// every day, for users and for service, in a sandbox of the host that is
// carried from day to day as daily runs would carry the store; the live
// store, the logs and the clock never see it. Only the first evaluation that
// wrote error lines or failed is reported, once, as one run would report it.
#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "../../frame/host/System.h"
#include "../../labhost/HostSandbox.h"
#include "../../labhost/runs/Runs.h"
#include "../../labhost/services/HostClock.h"
#include "../Shell.h"

namespace Shell {
namespace {

constexpr int DefaultDays = 90;
constexpr int MostDays = 3660;
constexpr int LastDate = 99991231;  // the store's dates end here
wchar_t const* const Audiences[] = {L"u", L"s"};

struct Evaluation {
    ExitCode code;
    std::vector<WString> alertLines;
    std::vector<WString> errorLines;
};

Evaluation Evaluate(HostSandbox& sandbox, wchar_t const* audience) {
    Evaluation evaluation;
    Pipe capture([&evaluation](WString const& line) { evaluation.alertLines.push_back(line); });
    evaluation.code = Host::RunInPlace(WString(std::wstring(L"GetUsageAlerts ") + audience), capture);
    evaluation.errorLines = sandbox.TakeErrorLines();
    return evaluation;
}

// "id;type;level", what tells one alert from another: its message may read
// differently from day to day.
std::wstring AlertOf(WString const& alertLine) {
    std::wstring const& text = alertLine.str;
    std::wstring::size_type end = text.find(L';');
    for (int more = 0; more < 2 && end != std::wstring::npos; ++more) end = text.find(L';', end + 1);
    return text.substr(0, end);
}

class Forecast {
public:
    explicit Forecast(Pipe const& pipe) : pipe_(pipe) {}

    // Evaluates the days from `firstDay` to `lastDay` in order; gives the
    // report, if any evaluation needs one.
    std::optional<Evaluation> Run(int firstDay, int lastDay) {
        std::optional<Evaluation> report;
        HostSandbox sandbox(System::usage.Store(), firstDay);
        for (int day = firstDay; day <= lastDay; ++day) {
            Runs::ThrowIfStopped();
            sandbox.SetDay(day);
            for (wchar_t const* audience : Audiences) {
                Evaluation evaluation = Evaluate(sandbox, audience);
                bool clean = evaluation.code.number == 0 && evaluation.errorLines.empty();
                if (!clean && !report) report = evaluation;
                // A failure of the host, not of the schedule, would be the same on every day.
                if (evaluation.code.kind != 0) return report;
                Print(DateTime::FromDays(day).ToDateInt(), audience, evaluation.alertLines);
            }
        }
        return report;
    }

private:
    void Print(int date, wchar_t const* audience, std::vector<WString> const& alertLines) {
        for (WString const& line : alertLines) {
            if (!printed_.insert(audience + (L";" + AlertOf(line))).second) continue;
            pipe_.WriteLine(L"%d;%s;%s", date, audience, line.c_str());
        }
    }

    Pipe pipe_;
    std::set<std::wstring> printed_;  // audience;id;type;level
};

ExitCode RunForecast(Host::BuiltinContext& context) {
    int days = DefaultDays;
    if (context.words.size() > 1 ||
        (context.words.size() == 1 && !context.words[0].TryGetInt(days, 1, MostDays, nullptr))) {
        return Misuse(L"forecast", WString::Format(L"DAYS is a number from 1 to %d", MostDays));
    }
    int today = HostClock::Now().ToDays();
    int lastDay = std::min(today + days, DateTime(LastDate, 0).ToDays());
    std::optional<Evaluation> report = Forecast(context.pipe).Run(today, lastDay);
    if (!report) return ExitCode(0);
    for (WString const& line : report->errorLines) System::errorLog.WriteLine(line);
    return report->code;
}

}  // namespace

void AddForecastBuiltin() {
    Host::AddBuiltin(L"forecast",
                     L"Usage: forecast [<days>]\n"
                     L" Shows when each alert of the schedule falls due, from today to today + <days>\n"
                     L" (default 90, 1 to 3660): for each alert and audience (u user, s service) the\n"
                     L" first day on which \"GetUsageAlerts u\" or \"GetUsageAlerts s\" would show it:\n"
                     L"  YYYYMMDD;u|s;<id>;<type>;<level>;<message as it would read that day>\n"
                     L" Counters and timers count as they are now; dates move on day by day.\n"
                     L" Nothing changes: not the store, the logs or the clock; no reset or ignore\n"
                     L" command runs. Errors in the schedule go to the error log once.",
                     RunForecast);
}

}  // namespace Shell
