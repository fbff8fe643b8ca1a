// external KEY C|T|D [VALUE] / external -x KEY: the shell owns External
// items. A declared key's broadcasts (id 4) are answered by storing the
// value and setting `handled`; undeclared keys go unanswered.
#include <map>
#include <mutex>

#include "../../frame/host/System.h"
#include "../../labhost/store/UsageStore.h"
#include "../Shell.h"

namespace Shell {
namespace {

std::mutex declaredMutex;
std::map<std::wstring, UsageDataType> declaredKeys;  // by key in lower case

bool TryGetDeclaredType(WString const& key, UsageDataType& type) {
    std::lock_guard<std::mutex> lock(declaredMutex);
    auto found = declaredKeys.find(FoldAsciiCase(key.str));
    if (found == declaredKeys.end()) return false;
    type = found->second;
    return true;
}

// Sets the value through the store, which also grows a date's history;
// an item deleted since its declaration comes back.
void StoreValue(WString const& key, UsageDataType type, int value) {
    UsageStore& store = System::usage.Store();
    if (auto item = store.Find(key.str)) {
        UsageStore::SetValue(*item, static_cast<std::uint32_t>(value));
    } else {
        store.FindOrCreate(key.str, type, static_cast<std::uint32_t>(value));
    }
}

void OnBroadcast(int id, void* message) {
    if (id != UpdateExternalUsageDataBroadcastId) return;
    auto& update = *static_cast<UpdateExternalUsageDataBroadcast*>(message);
    UsageDataType type = 0;
    if (!TryGetDeclaredType(update.key, type)) return;
    StoreValue(update.key, type, update.value);
    update.handled = true;
}

bool TryParseType(WString const& letter, UsageDataType& type) {
    if (letter.Equals(L"C", true)) type = UsageType::Counter;
    else if (letter.Equals(L"T", true)) type = UsageType::Timer;
    else if (letter.Equals(L"D", true)) type = UsageType::Date;
    else return false;
    type |= UsageType::External;
    return true;
}

ExitCode Declare(Host::BuiltinContext& context) {
    WString const& key = context.words[0];
    UsageDataType type = 0;
    int value = 0;
    bool valueGiven = context.words.size() == 3;
    if (!UsageLog::IsUsageKeyNameValid(key)) return Misuse(L"external", WString(key.str + L" is no usage key"));
    if (!TryParseType(context.words[1], type)) return Misuse(L"external", L"the type is C, T or D");
    if (valueGiven && !context.words[2].TryGetInt(value, INT32_MIN, INT32_MAX, nullptr)) {
        return Misuse(L"external", WString(context.words[2].str + L" is no integer"));
    }
    UsageStore& store = System::usage.Store();
    if (!store.Find(key.str)) {
        store.FindOrCreate(key.str, type, static_cast<std::uint32_t>(value));
    } else if (valueGiven) {
        StoreValue(key, type, value);
    }
    static int listener = BroadcastManager::AddListener(OnBroadcast);
    (void)listener;
    std::lock_guard<std::mutex> lock(declaredMutex);
    declaredKeys[FoldAsciiCase(key.str)] = type;
    return ExitCode(0);
}

ExitCode External(Host::BuiltinContext& context) {
    if (context.words.size() == 2 && context.words[0].str == L"-x") {
        std::lock_guard<std::mutex> lock(declaredMutex);
        if (declaredKeys.erase(FoldAsciiCase(context.words[1].str)) == 0) {
            return Misuse(L"external", WString(context.words[1].str + L" is not declared"));
        }
        return ExitCode(0);
    }
    if (context.words.size() != 2 && context.words.size() != 3) {
        return Misuse(L"external", L"KEY C|T|D [VALUE] or -x KEY");
    }
    return Declare(context);
}

}  // namespace

void AddExternalBuiltin() {
    Host::AddBuiltin(L"external",
                     L"Usage: external <key> C|T|D [<value>]\n"
                     L"       external -x <key>\n"
                     L" Declares an External Counter, Timer or Date that the shell owns: it is\n"
                     L" created when missing, and the shell stores the values that commands\n"
                     L" send for it. -x stops that.",
                     External);
}

}  // namespace Shell
