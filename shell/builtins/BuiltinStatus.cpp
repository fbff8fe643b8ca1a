// status / status KEY / status KEY=VALUE / status KEY=: the status table.
#include "../../frame/host/System.h"
#include "../Shell.h"

namespace Shell {
namespace {

void WriteEntry(Pipe const& pipe, std::wstring const& key, StatusTable::Value const& value) {
    pipe.WriteLine(L"%s=%s", key.c_str(), StatusTable::ValueText(value).c_str());
}

ExitCode Status(Host::BuiltinContext& context) {
    if (context.words.empty()) {
        for (auto const& [key, value] : System::status.Snapshot()) WriteEntry(context.pipe, key, value);
        return ExitCode(0);
    }
    if (context.words.size() != 1) return Misuse(L"status", L"one KEY, KEY=VALUE or KEY= at most");
    std::wstring const& word = context.words[0].str;
    std::wstring::size_type equals = word.find(L'=');
    WString key(word.substr(0, equals));
    if (key.IsEmpty()) return Misuse(L"status", L"no key");
    if (equals == std::wstring::npos) {
        StatusTable::Value value;
        if (!System::status.TryGet(key, value)) return Misuse(L"status", WString(L"no key " + key.str));
        WriteEntry(context.pipe, key.str, value);
        return ExitCode(0);
    }
    WString text(word.substr(equals + 1));
    if (text.IsEmpty()) {
        System::status.Remove(key);
        return ExitCode(0);
    }
    StatusTable::Value value;
    if (!StatusTable::TryParseValue(text, value)) {
        return Misuse(L"status", WString(text.str + L" is neither true, false nor a number"));
    }
    System::status.Set(key, value);
    return ExitCode(0);
}

}  // namespace

void AddStatusBuiltin() {
    Host::AddBuiltin(L"status",
                     L"Usage: status [<key> | <key>=<value> | <key>=]\n"
                     L" Lists the status table, shows one value, sets one or removes one.\n"
                     L" A value is true, false, an int (25, -3) or a double (20.0, 1e2).",
                     Status);
}

}  // namespace Shell
