// Line-by-line reading of a UTF-8 file, one line read ahead so that `atEnd`
// comes with the last line.
#include "HostServices.h"

TextFileReader::TextFileReader(WString const& path, unsigned int exitNumber)
    : atEnd(0), file_(path.ToUtf8(), std::ios::binary), hasNext_(false) {
    if (!file_.is_open()) throw ExitCode(exitNumber);
    atEnd = ReadAhead() ? 0 : 1;
}

bool TextFileReader::ReadAhead() {
    hasNext_ = static_cast<bool>(std::getline(file_, next_));
    if (hasNext_ && !next_.empty() && next_.back() == '\r') next_.pop_back();
    return hasNext_;
}

WString TextFileReader::ReadLine() {
    if (!hasNext_) {
        atEnd = 1;
        return WString();
    }
    WString line = WString::FromUtf8(next_);
    if (!ReadAhead()) atEnd = 1;
    return line;
}
