// The result of a run: returned by value from Main, thrown by value from
// deeper down. Number 0 is success whatever the other fields hold.
//
// ExitCode(number) leaves commandId 0 and kind 0: the host fills commandId
// with the command's id before OnExit. Host-wide codes have kind 1
// (commandId 0); a stopped run ends with (its command id, 2, 3).
#pragma once

#include <cstdint>

class ExitCode {
public:
    std::uint16_t commandId;
    std::uint16_t kind;
    std::uint32_t number;

    ExitCode();
    explicit ExitCode(unsigned int number);
    ExitCode(unsigned short commandId, unsigned short kind, unsigned int number);

    // Text for a %s in a log line; valid until the calling thread's next
    // few calls.
    char const* ToCString() const;
};

// Host-wide exit numbers (kind 1, command id 0).
namespace HostExit {
constexpr unsigned int ArrayIndex = 116;     // Array index at or past count
constexpr unsigned int ArrayNoStorage = 117; // Array access without storage
constexpr unsigned int InvalidDate = 118;    // DateTime(int, int) with a bad date
constexpr unsigned int Deadlock = 119;       // a booking that would wait forever
constexpr unsigned int NoThread = 120;       // no thread could be made for the run
constexpr unsigned int UnexpectedFailure = 121;  // the run failed with no exit code (memory, a bug)
constexpr unsigned int NestedTooDeep = 122;  // command lines nested past MaxNesting
constexpr unsigned int UnknownCommand = 127; // shell: no such command
}  // namespace HostExit

// A stop (kill, signal 3) leaves a wait as ExitCode(commandId, StopKind, StopNumber).
constexpr unsigned short StopKind = 2;
constexpr unsigned int StopNumber = 3;
