// Dot-commands: lines of the prompt that begin with a period are the
// program's own commands (help, listings, switching format, output or
// dataset) and never reach a command module. These are the pieces that do
// not depend on the running program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hostlib/data/dataset.h"

namespace mrset_program {

struct DotCommand {
  std::string name;      // as typed, without the period, lower-cased
  std::string argument;  // the rest of the line, blanks trimmed
};

// The dot-command on `line`, when its first non-blank character is a period.
std::optional<DotCommand> ParseDotCommand(std::string_view line);

// Whether `name` matches `pattern` without regard to case: with * (any run
// of characters) or ? (one character) the whole name must match, else the
// pattern must occur somewhere in the name. An empty pattern matches all.
bool MatchesPattern(std::string_view name, std::string_view pattern);

// The variables whose names match `pattern`: name, type, width and label in
// aligned columns, or a line that says none matched.
std::string ListVariables(const hostlib::data::Dataset& dataset, std::string_view pattern);

// The multiple response sets: name, type, label and variables.
std::string ListSets(const hostlib::data::Dataset& dataset);

// What .help shows.
std::string_view DotHelp();

}  // namespace mrset_program
