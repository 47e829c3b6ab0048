// Tab completion at the prompt: which words fit the word being typed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hostlib/data/dataset.h"

namespace mrset_program {

// The words that begin with `word` (without regard to case), given the text
// of the line before it: dot-commands at the start of a line, subcommands
// after a slash, set names after a dollar sign, else the command's keywords
// and the variable names. `dataset` may be null. Sorted, without repeats.
std::vector<std::string> CompletionCandidates(std::string_view before, std::string_view word,
                                              const hostlib::data::Dataset* dataset);

// Whether the word is a file name (the argument of .read, .output or .open),
// which the line editor completes from the file system.
bool CompletesFileName(std::string_view before);

// Hooks the candidates into the line editor (for the active dataset).
void InstallCompletion();

}  // namespace mrset_program
