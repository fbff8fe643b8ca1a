// Exit codes and their text for log lines.
#include "ExitCode.h"

#include <cstdio>

ExitCode::ExitCode() : commandId(0), kind(0), number(0) {}
ExitCode::ExitCode(unsigned int number) : commandId(0), kind(0), number(number) {}
ExitCode::ExitCode(unsigned short commandId, unsigned short kind, unsigned int number)
    : commandId(commandId), kind(kind), number(number) {}

char const* ExitCode::ToCString() const {
    // A small ring, so that two codes can stand in one formatted line.
    thread_local char buffers[4][48];
    thread_local unsigned int next = 0;
    char* text = buffers[next++ % 4];
    std::snprintf(text, sizeof buffers[0], "%u (command %u, kind %u)", static_cast<unsigned int>(number),
                  static_cast<unsigned int>(commandId), static_cast<unsigned int>(kind));
    return text;
}
