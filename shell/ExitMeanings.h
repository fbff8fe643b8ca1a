// What exit numbers mean, in words. The plug-in's commands carry only the
// numbers; the host keeps their meanings here, for the interactive prompt
// and for the published table (docs/exit-numbers.md is printed from it).
//
// A command's numbers are its own: number 5 of one command has nothing to do
// with number 5 of another. Codes of kind 1 are the host's own whatever the
// command, and a stopped run means the same for every command.
#pragma once

#include <string>
#include <vector>

#include "ExitCode.h"

namespace ExitMeanings {

struct Entry {
    char const* command;  // a command's name; "" for the host's own codes (kind 1)
    unsigned int number;
    char const* meaning;
};

// Every entry: the host's own codes first, then the commands by name, each
// command's numbers ascending.
std::vector<Entry> const& All();

// The meaning of `code` as command `command` ended with it; empty when the
// table knows none (success, a builtin, a number the command does not use).
std::string Describe(std::string const& command, ExitCode const& code);

// The whole table as the Markdown page that ships as docs/exit-numbers.md.
std::string MarkdownPage();

}  // namespace ExitMeanings
