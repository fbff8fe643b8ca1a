// A fuzzed UsageSchedule.ini, evaluated by GetUsageAlerts in every mode.
// Oracles: no crash; an exit number of the command is one it documents; in
// modes u, s and v every line is an alert line (id;type;level;message) and,
// once the items that the file initialises exist, the alerts of u and of s
// are among those of v.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "../fuzz_host.h"

namespace {

bool IsAlertLine(std::wstring const& line) {
    static std::wregex const idTypeLevel(L"^[0-9]+;[0-9]+;[0-9]+;");
    return std::regex_search(line, idTypeLevel);
}

// Runs the line; false when it did not end by itself. Its sorted output goes
// to `alerts`, if given: background runs that it starts keep the pipe.
bool Alerts(fuzz::Input const& input, wchar_t const* line, std::vector<std::wstring>* alerts = nullptr) {
    if (input.Spent()) return false;
    Pipe pipe([alerts](WString const& text) {
        if (alerts != nullptr) alerts->push_back(text.str);
    });
    ExitCode code = Host::RunLine(WString(line), pipe);
    if (code.kind != 0) return false;  // stopped, or refused by the host
    fuzz::Check(code.number <= 5 || (code.number >= 10 && code.number <= 33), "a documented exit number");
    if (alerts != nullptr) std::sort(alerts->begin(), alerts->end());
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input;
    std::ofstream(fuzz::DataFolder() / "UsageSchedule.ini", std::ios::binary)
        .write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
    // A first run makes the items that the file initialises, wherever it
    // uses them: the runs compared then see one store.
    Alerts(input, L"GetUsageAlerts v");
    std::vector<std::wstring> user, service, all;
    bool ran[] = {Alerts(input, L"GetUsageAlerts u", &user), Alerts(input, L"GetUsageAlerts s", &service),
                  Alerts(input, L"GetUsageAlerts v", &all)};
    for (auto const* alerts : {&user, &service, &all})
        fuzz::Check(std::all_of(alerts->begin(), alerts->end(), IsAlertLine), "alert lines only");
    for (int mode = 0; mode < 2; ++mode) {
        auto const& some = mode == 0 ? user : service;
        if (ran[mode] && ran[2])
            fuzz::Check(std::includes(all.begin(), all.end(), some.begin(), some.end()), "u and s among v");
    }
    Alerts(input, L"GetUsageAlerts c -i1");
    Alerts(input, L"GetUsageAlerts i -i1");
    return 0;
}
