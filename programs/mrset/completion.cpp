#include "programs/mrset/completion.h"

#include <editline/readline.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "host/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/session/session.h"
#include "hostlib/strings/unicode.h"
#include "programs/mrset/dot_commands.h"

namespace mrset_program {
namespace {

constexpr std::array kDotCommands = {".help", ".vars",   ".sets", ".read",
                                     ".mode", ".output", ".open", ".quit"};
constexpr std::array kSubcommands = {"/MDGROUP", "/MCGROUP", "/DISPLAY", "/DELETE"};
constexpr std::array kKeywords = {"MRSET",       "NAME",           "LABEL",     "VARIABLES",
                                  "VALUE",       "CATEGORYLABELS", "VARLABELS", "COUNTEDVALUES",
                                  "LABELSOURCE", "VARLABEL",       "ALL",       "TO"};
constexpr std::array kModes = {"text", "json", "html"};

bool StartsWithFolded(std::string_view text, std::string_view prefix) {
  const std::string foldedText = hostlib::strings::FoldCase(text);
  const std::string foldedPrefix = hostlib::strings::FoldCase(prefix);
  return foldedText.compare(0, foldedPrefix.size(), foldedPrefix) == 0;
}

template <typename Words>
void AddMatching(const Words& words, std::string_view word, std::vector<std::string>& out) {
  for (std::string_view candidate : words) {
    if (StartsWithFolded(candidate, word)) out.emplace_back(candidate);
  }
}

bool IsBlank(std::string_view text) { return text.find_first_not_of(" \t") == text.npos; }

const hostlib::data::Dataset* ActiveDataset() {
  return hostlib::Session::Instance().ActiveDataset().get();
}

char* NextCandidate(const char* word, int state) {
  static std::vector<std::string> candidates;
  static std::size_t next = 0;
  if (state == 0) {
    const std::string_view line(rl_line_buffer, static_cast<std::size_t>(rl_point));
    const std::string_view before = line.substr(0, line.size() - std::strlen(word));
    candidates = CompletionCandidates(before, word, ActiveDataset());
    next = 0;
  }
  if (next >= candidates.size()) return nullptr;
  return ::strdup(candidates[next++].c_str());
}

char** Complete(const char* word, int start, int) {
  const std::string_view before(rl_line_buffer, static_cast<std::size_t>(start));
  if (CompletesFileName(before)) return nullptr;
  rl_attempted_completion_over = 1;
  return rl_completion_matches(word, NextCandidate);
}

}  // namespace

std::vector<std::string> CompletionCandidates(std::string_view before, std::string_view word,
                                              const hostlib::data::Dataset* dataset) {
  std::vector<std::string> candidates;
  if (const auto dot = ParseDotCommand(before); dot && dot->name == "mode") {
    AddMatching(kModes, word, candidates);
  } else if (!word.empty() && word.front() == '.' && IsBlank(before)) {
    AddMatching(kDotCommands, word, candidates);
  } else if (!word.empty() && word.front() == '/') {
    AddMatching(kSubcommands, word, candidates);
  } else if (!word.empty() && word.front() == '$') {
    if (dataset != nullptr) {
      for (const VariableSet& set : dataset->MultipleResponseSets()) {
        if (StartsWithFolded(set.GetName(kAsStored), word)) {
          candidates.push_back(set.GetName(kAsStored));
        }
      }
    }
  } else {
    AddMatching(kKeywords, word, candidates);
    // The dictionary is read on demand: a fault of the file meets the
    // command that reads it, not the Tab key.
    try {
      if (dataset != nullptr) {
        for (const VORN_Variable& variable : dataset->Variables()) {
          if (StartsWithFolded(variable.GetName(), word)) {
            candidates.emplace_back(variable.GetName());
          }
        }
      }
    } catch (const hostlib::data::DatasetError&) {
    }
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  return candidates;
}

bool CompletesFileName(std::string_view before) {
  const auto dot = ParseDotCommand(before);
  return dot && (dot->name == "read" || dot->name == "output" || dot->name == "open") &&
         before.find_last_of(" \t") != std::string_view::npos;
}

void InstallCompletion() {
  // $ and / begin the words completed here; = [ ] ( ) end them.
  static char breaks[] = " \t\n=[](),'\"";
  rl_completer_word_break_characters = breaks;
  rl_basic_word_break_characters = breaks;  // what the line editor reads
  rl_attempted_completion_function = Complete;
}

}  // namespace mrset_program
