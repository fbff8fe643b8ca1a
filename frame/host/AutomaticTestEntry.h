// Automatic tests that a plug-in file offers beside its commands.
// An entry names a test, describes it, carries flags and the test function.
#pragma once

#include "CommandBase.h"
#include "WString.h"

// What a test function gets: its output and a way to record failures.
class TestCommand {
public:
    explicit TestCommand(Pipe const& pipe);
    void Check(bool condition, wchar_t const* what);  // records a failure when false
    bool Failed() const { return failures_ != 0; }
    unsigned int Failures() const { return failures_; }

    Pipe pipe;

private:
    unsigned int failures_;
};

class AutomaticTestEntry {
public:
    AutomaticTestEntry();
    AutomaticTestEntry(wchar_t const* name, wchar_t const* description, unsigned int flags,
                       void (*function)(TestCommand&));
    AutomaticTestEntry(AutomaticTestEntry const& other);
    AutomaticTestEntry& operator=(AutomaticTestEntry const& other);
    virtual ~AutomaticTestEntry();

    WString name;
    WString description;
    unsigned int flags;
    void (*function)(TestCommand&);
};
