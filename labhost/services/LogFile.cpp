// Log files: one time-stamped line per write, renamed to NAME.log.1 when the
// next line would pass the size limit.
#include <sys/stat.h>

#include <atomic>
#include <cstdio>

#include "../HostSandbox.h"
#include "../text/TextFormat.h"
#include "HostClock.h"
#include "HostServices.h"
#include "StandardStreams.h"
#include "System.h"

namespace {
std::atomic<bool> echoErrorLog{false};

// Opened per line: a log survives the process dying at any moment, and
// outside readers always see whole lines.
bool AppendToFile(std::string const& path, std::string const& text) {
    std::FILE* file = std::fopen(path.c_str(), "a");
    if (file == nullptr) return false;
    bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
}
}  // namespace

void Host::EchoErrorLog(bool on) { echoErrorLog = on; }

LogFile::LogFile(WString const& folder, WString const& name, unsigned int sizeLimit)
    : enabled(true), folder_(folder), name_(name), sizeLimit_(sizeLimit) {}

WString LogFile::Path() const {
    WString folder = folder_.str.empty() ? System::GetLogDirectory() : folder_;
    return WString(folder.str + L"/" + name_.str + L".log");
}

void LogFile::WriteLine(wchar_t const* format, ...) {
    va_list args;
    va_start(args, format);
    WString line(FormatWide(format, args));
    va_end(args);
    Append(line);
}

void LogFile::WriteLine(WString line) { Append(line); }

void LogFile::Append(WString const& line) {
    if (!enabled) return;
    if (HostSandbox* sandbox = HostSandbox::Active()) return sandbox->HoldBack(*this, line);
    bool const errorLine = this == &System::errorLog, echoed = echoErrorLog && errorLine;
    if (echoed) Host::WriteErrorLine(line);
    bool written = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Stamped under the lock, so that the lines of a file stay in time order.
        DateTime now = HostClock::Now();
        int date = now.ToDateInt(), second = now.SecondOfDay();
        char stamp[64];
        std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d ", date / 10000, date / 100 % 100,
                      date % 100, second / 3600, second / 60 % 60, second % 60);
        std::string text = stamp + line.ToUtf8() + "\n";
        std::string path = Path().ToUtf8();
        struct stat info {};
        if (stat(path.c_str(), &info) == 0 && static_cast<unsigned long long>(info.st_size) + text.size() > sizeLimit_) {
            std::rename(path.c_str(), (path + ".1").c_str());
        }
        written = AppendToFile(path, text);
    }
    // An error line that its file cannot take (a full disk) goes to stderr
    // rather than nowhere.
    if (!written && errorLine && !echoed) Host::WriteErrorLine(line);
}
