// Live status values by key (bool, int or double), safe for concurrent runs.
// A read converts between int and double; a value of another kind, or one
// outside the range a read asks for, counts as not read (false).
#pragma once

#include <map>
#include <mutex>
#include <variant>

#include "WString.h"

class StatusTable {
public:
    using Value = std::variant<bool, int, double>;

    bool TryGetBool(WString const& key, bool& value);
    bool TryGetInt(WString const& key, int& value, int smallest, int largest);
    bool TryGetDouble(WString const& key, double& value, double smallest, double largest);

    // Host side: the shell's "status" builtin.
    void Set(WString const& key, Value value);
    bool Remove(WString const& key);
    bool TryGet(WString const& key, Value& value) const;
    std::map<std::wstring, Value> Snapshot() const;
    void Clear();
    static WString ValueText(Value const& value);
    // "true"/"false" a bool, digits without point or exponent an int,
    // any other number a double; false for anything else.
    static bool TryParseValue(WString const& text, Value& value);

private:
    mutable std::mutex mutex_;
    std::map<std::wstring, Value> values_;
};
