// Further services of the host: hash tables, the growable array, logs, the
// text file reader, the configuration, named events and broadcasts.
// Each is safe for concurrent runs where several runs can reach it (logs,
// configuration, events, broadcasts).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "ExitCode.h"
#include "WString.h"

// Text to text, keys compared exactly; keys come back in insertion order.
class WStringHashTable {
public:
    explicit WStringHashTable(int buckets);  // 0 buckets is fine
    void Insert(WString const& key, WString const& value);
    void GetKeys(WStringArray& keys) const;
    WString GetValue(WString const& key, unsigned int unused) const;  // empty if absent
    bool ContainsKey(WString const& key) const;

private:
    std::vector<std::wstring> order_;
    std::unordered_map<std::wstring, WString> values_;
};

// Text to int, keys compared exactly.
class IntHashTable {
public:
    explicit IntHashTable(int buckets);  // 0 buckets is fine
    void Add(WString const& key, int value);     // a key that is not there yet
    void Insert(WString const& key, int value);  // add or replace
    bool ContainsKey(WString const& key) const;
    bool TryGetValue(WString const& key, int& value) const;

private:
    std::unordered_map<std::wstring, int> values_;
};

// The host's growable array: a count, a capacity and a storage pointer.
// Add grows the capacity by 10 entries at a time. An index at or past the
// count throws ExitCode(0, 1, 116), an access without storage ExitCode(0, 1, 117).
template <typename T>
class Array {
public:
    unsigned int count = 0;
    unsigned int capacity = 0;
    T* data = nullptr;

    Array() = default;
    Array(Array const&) = delete;
    Array& operator=(Array const&) = delete;
    ~Array() { delete[] data; }

    void Add(T const& value) {
        if (count == capacity) Grow(capacity + 10);
        data[count++] = value;
    }
    // Room for `total` entries in one step, for a caller that knows how many
    // it will add: growing by 10 at a time copies quadratically often.
    void Reserve(unsigned int total) {
        if (total > capacity) Grow(total);
    }
    T& operator[](unsigned int index) {
        if (data == nullptr) throw ExitCode(0, 1, HostExit::ArrayNoStorage);
        if (index >= count) throw ExitCode(0, 1, HostExit::ArrayIndex);
        return data[index];
    }

private:
    void Grow(unsigned int newCapacity) {
        T* bigger = new T[newCapacity];
        for (unsigned int i = 0; i < count; ++i) bigger[i] = data[i];
        delete[] data;
        data = bigger;
        capacity = newCapacity;
    }
};

// A log file: each line gets the host clock's time stamp "YYYY-MM-DD HH:MM:SS"
// and a blank in front. A log that would grow past its size limit is renamed
// to NAME.1 and started afresh. While `enabled` is false nothing is written.
class LogFile {
public:
    // `folder` empty: the data folder's log/ directory, resolved at each write.
    LogFile(WString const& folder, WString const& name, unsigned int sizeLimit);
    void WriteLine(wchar_t const* format, ...);
    void WriteLine(WString line);
    WString Path() const;

    // Read directly by the plug-in's narration while the shell may toggle
    // it (`runlog off`), hence atomic; it reads and assigns like a bool.
    std::atomic<bool> enabled;

private:
    void Append(WString const& line);
    WString folder_;
    WString name_;
    unsigned int sizeLimit_;
    std::mutex mutex_;
};

class TextLines;

// Reads a UTF-8 text file line by line; CR LF and LF both end a line, and a
// byte order mark at the start is skipped. `atEnd` is set together with the
// last line. A file that cannot be opened or read (a folder, a read error
// part way) throws ExitCode(exitNumber), never passes for the end.
class TextFileReader {
public:
    TextFileReader(WString const& path, unsigned int exitNumber);  // throws exitNumber
    ~TextFileReader();
    WString ReadLine();  // throws exitNumber

    unsigned char atEnd;

private:
    void ReadAhead();
    std::ifstream file_;
    std::unique_ptr<TextLines> lines_;
    unsigned int exitNumber_;
    std::string next_;
    bool hasNext_;
    bool failed_;
};

// "[Section]" and "key=value" lines of DATA/config.ini.
class ConfigFileData {
public:
    ConfigFileData();
    // Gives the configured integer; a missing key is entered with its default
    // and written back to the file; a value that is no integer in range throws
    // ExitCode(exitNumber).
    int GetIntOrUseDefaultAndAdd(WString const& section, WString const& key, int defaultValue,
                                 unsigned int exitNumber, int smallest, int largest);

    // Host side.
    // A missing file is an empty configuration. One that cannot be read is
    // refused (false, `error` set): it is then neither used nor written.
    bool Load(WString const& path, std::string& error);
    bool TryGetText(WString const& section, WString const& key, WString& value) const;

private:
    struct Line {
        std::wstring section;  // section this line belongs to ("" before any header)
        std::wstring text;
    };
    bool Save() const;
    mutable std::mutex mutex_;
    WString path_;
    std::vector<Line> lines_;
};

// A named event with an integer value that runs can meet on. The first
// constructor of a name sets its start value; later ones reach the same event.
// The context takes no part in the name. Waits end early, by throwing the stop
// code, when the waiting run is stopped.
class OS9Event {
public:
    OS9Event(int context, wchar_t const* name, int initialValue, int unused1, int unused2);
    void Set(int value) const;
    // Waits until the value lies in [smallest, largest] or the time is out;
    // the value is left as it is.
    void Wait(int smallest, int largest, unsigned int milliseconds, bool& reached) const;
    int TryWait(int smallest, int largest, unsigned int milliseconds, int* value) const;

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
};

struct UpdateExternalUsageDataBroadcast {
    std::int32_t processId;
    WString key;
    std::int32_t value;
    bool handled;

    UpdateExternalUsageDataBroadcast(int processId, WString const& key, int value);
};

// Hands a message to every listener; returns when they all have had it.
class BroadcastManager {
public:
    using Listener = std::function<void(int id, void* message)>;
    static void Broadcast(int id, void* message);
    // Host side: returns a handle for RemoveListener.
    static int AddListener(Listener listener);
    static void RemoveListener(int handle);
};

constexpr int UpdateExternalUsageDataBroadcastId = 4;
