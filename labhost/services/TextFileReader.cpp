// Line-by-line reading of a UTF-8 file, one line read ahead so that `atEnd`
// comes with the last line. A read that fails is reported by the ReadLine
// that would have given that line, so every line before it is delivered.
#include "../text/TextLines.h"
#include "HostServices.h"

TextFileReader::TextFileReader(WString const& path, unsigned int exitNumber)
    : atEnd(0),
      file_(path.ToUtf8(), std::ios::binary),
      lines_(std::make_unique<TextLines>(file_)),
      exitNumber_(exitNumber),
      hasNext_(false),
      failed_(false) {
    if (!file_.is_open()) throw ExitCode(exitNumber);
    ReadAhead();
    if (failed_) throw ExitCode(exitNumber);
    atEnd = hasNext_ ? 0 : 1;
}

TextFileReader::~TextFileReader() = default;

void TextFileReader::ReadAhead() {
    TextLines::Result result = lines_->Next(next_);
    hasNext_ = result == TextLines::Result::Line;
    failed_ = result == TextLines::Result::Failed;
}

WString TextFileReader::ReadLine() {
    if (failed_) throw ExitCode(exitNumber_);
    if (!hasNext_) {
        atEnd = 1;
        return WString();
    }
    WString line = WString::FromUtf8(next_);
    ReadAhead();
    if (!hasNext_ && !failed_) atEnd = 1;
    return line;
}
