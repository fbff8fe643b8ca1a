// Entries of a plug-in's automatic tests and the checks they report through.
#include "AutomaticTestEntry.h"

TestCommand::TestCommand(Pipe const& pipe) : pipe(pipe), failures_(0) {}

void TestCommand::Check(bool condition, wchar_t const* what) {
    if (condition) return;
    ++failures_;
    pipe.WriteLine(L"  failed: %s", what);
}

AutomaticTestEntry::AutomaticTestEntry() : flags(0), function(nullptr) {}
AutomaticTestEntry::AutomaticTestEntry(wchar_t const* name, wchar_t const* description, unsigned int flags,
                                       void (*function)(TestCommand&))
    : name(name), description(description), flags(flags), function(function) {}
AutomaticTestEntry::AutomaticTestEntry(AutomaticTestEntry const& other) = default;
AutomaticTestEntry& AutomaticTestEntry::operator=(AutomaticTestEntry const& other) = default;
AutomaticTestEntry::~AutomaticTestEntry() = default;
