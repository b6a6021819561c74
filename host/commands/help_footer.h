// What stands below every subcommand's options: examples to copy, and what the exit status means.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// An exit status and what it means for the command.
using ExitMeaning = std::pair<int, std::string>;

/// @param examples  whole command lines, without the program's name
/// @param exits     what is the command's own; what every command has, 0 and 2, is added where it is not named
std::string helpFooter(const std::vector<std::string>& examples, std::vector<ExitMeaning> exits = {});

/// The text with line feeds put in between words, so that no line is longer than `width` unless a word is. Pure.
std::string wrapped(const std::string& text, std::size_t width);

/// What the statuses behind an interruption mean.
extern const char* const kInterrupted;

/// The statuses of a command that works through a source with the plug-in and writes files.
std::vector<ExitMeaning> runExits();

}  // namespace host
