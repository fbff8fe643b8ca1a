// The one way the host reads lines of a UTF-8 text: schedule files, the
// configuration and scripts alike. A byte order mark in front of the first
// line (Windows editors write one) and the CR of a CR LF are not part of the
// text. A stream that fails to read, a folder among them, is a failure with
// its reason, never the end of the text.
#pragma once

#include <istream>
#include <string>

class TextLines {
public:
    enum class Result { Line, End, Failed };

    explicit TextLines(std::istream& stream);
    // The next line into `line`; after Failed, `FailureText()` says why.
    Result Next(std::string& line);
    std::string const& FailureText() const { return failure_; }

private:
    std::istream& stream_;
    bool atStart_;
    std::string failure_;
};
