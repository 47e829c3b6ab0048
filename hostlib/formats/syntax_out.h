// MRSET commands that define a dataset's sets: run on the same dictionary
// without sets, they give back the same sets.
#pragma once

#include <string>
#include <vector>

#include "hostlib/data/dataset.h"

namespace hostlib::formats {

// One MRSET command per set, each ending in a period. Throws DatasetError
// (naming the set and the fault) for a set that commands cannot express: a
// name or a member that is not a word, a label with a line break.
std::string RenderSetCommands(const data::Dataset& dataset, const std::vector<VariableSet>& sets);

// A quoted string as the lexer reads it back: the quote doubled inside.
std::string QuoteForSyntax(std::string_view text);

}  // namespace hostlib::formats
