// The host's notes: hints shown after a message, from the message, the
// tokens of the command that issued it and the active dataset. They never
// replace a message; they say what would have been right:
// - the closest existing variable or set names for an unknown one;
// - that set names begin with "$", for a set named without it;
// - the valid subcommands or keywords after an invalid one;
// - a period taken into a name ("drink2." when drink2 exists);
// - a command that ran on into the next line for want of a period.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/output.h"
#include "hostlib/data/dataset.h"
#include "hostlib/syntax/command.h"

namespace hostlib::diagnostics {

struct NoteContext {
  const BpText& message;                                // as issued: its format and items
  const syntax::Command* command = nullptr;             // the command that issued it
  std::size_t cursor = 0;                               // the token it was reading
  const data::Dataset* dataset = nullptr;               // the active dataset, if any
  std::function<bool(std::string_view)> isCommandWord;  // a word that begins a command
};

enum class NoteKind { kClosestNames, kDollar, kKeywords, kPeriodInName, kRunOn };

struct Note {
  NoteKind kind;
  std::string text;
};

std::vector<Note> NotesFor(const NoteContext& context);

// Edits (insert, delete, replace, swap two neighbours) between two names,
// without regard to case.
std::size_t EditDistance(std::string_view a, std::string_view b);

// Up to three of `names` nearest to `name`, all at the same distance, and
// only when close enough to be a slip of the keyboard; never `name` itself.
std::vector<std::string> ClosestNames(std::string_view name, const std::vector<std::string>& names);

}  // namespace hostlib::diagnostics
