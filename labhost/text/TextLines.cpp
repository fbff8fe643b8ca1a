#include "TextLines.h"

#include <cerrno>
#include <cstring>

namespace {
constexpr char ByteOrderMark[] = "\xEF\xBB\xBF";
constexpr std::size_t ByteOrderMarkLength = sizeof ByteOrderMark - 1;
}  // namespace

TextLines::TextLines(std::istream& stream) : stream_(stream), atStart_(true) {}

TextLines::Result TextLines::Next(std::string& line) {
    errno = 0;
    if (!std::getline(stream_, line)) {
        // The library turns a failed read into badbit; errno keeps the reason.
        if (!stream_.bad()) return Result::End;
        failure_ = errno != 0 ? std::strerror(errno) : "read error";
        return Result::Failed;
    }
    if (atStart_ && line.compare(0, ByteOrderMarkLength, ByteOrderMark) == 0) line.erase(0, ByteOrderMarkLength);
    atStart_ = false;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return Result::Line;
}
