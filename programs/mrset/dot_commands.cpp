#include "programs/mrset/dot_commands.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "host/data_source.h"
#include "hostlib/strings/unicode.h"

namespace mrset_program {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view Trim(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string LowerAscii(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// Advances over one UTF-8 character (one byte for a stray continuation byte).
std::size_t NextCharacter(std::string_view text, std::size_t at) {
  ++at;
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
  return at;
}

// Wildcard matching without recursion: on a mismatch, the last * takes one
// more character and matching resumes after it.
bool MatchesWildcards(std::string_view name, std::string_view pattern) {
  std::size_t n = 0;
  std::size_t p = 0;
  std::size_t starAt = std::string_view::npos;
  std::size_t resumeName = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      starAt = p++;
      resumeName = n;
    } else if (p < pattern.size() && pattern[p] == '?') {
      n = NextCharacter(name, n);
      ++p;
    } else if (p < pattern.size() && pattern[p] == name[n]) {
      ++n;
      ++p;
    } else if (starAt != std::string_view::npos) {
      p = starAt + 1;
      resumeName = NextCharacter(name, resumeName);
      n = resumeName;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

// Columns padded to the widest cell; the last column is not padded.
std::string Columns(const std::vector<std::vector<std::string>>& rows) {
  std::vector<int> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t c = 0; c < row.size(); ++c) {
      widths[c] = std::max(widths[c], hostlib::strings::DisplayWidth(row[c]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      if (c + 1 < row.size()) {
        line.append(
            static_cast<std::size_t>(widths[c] - hostlib::strings::DisplayWidth(row[c])) + 2, ' ');
      }
    }
    text += std::string(Trim(line)) + "\n";
  }
  return text;
}

std::string Join(const std::vector<std::string>& words) {
  std::string joined;
  for (const std::string& word : words) joined += (joined.empty() ? "" : " ") + word;
  return joined;
}

}  // namespace

std::optional<DotCommand> ParseDotCommand(std::string_view line) {
  line = Trim(line);
  if (line.empty() || line.front() != '.') return std::nullopt;
  line.remove_prefix(1);
  const auto end = std::min(line.find_first_of(kBlanks), line.size());
  return DotCommand{LowerAscii(line.substr(0, end)), std::string(Trim(line.substr(end)))};
}

bool MatchesPattern(std::string_view name, std::string_view pattern) {
  const std::string foldedName = hostlib::strings::FoldCase(name);
  const std::string foldedPattern = hostlib::strings::FoldCase(pattern);
  if (foldedPattern.find_first_of("*?") == std::string::npos) {
    return foldedName.find(foldedPattern) != std::string::npos;
  }
  return MatchesWildcards(foldedName, foldedPattern);
}

std::string ListVariables(const hostlib::data::Dataset& dataset, std::string_view pattern) {
  std::vector<std::vector<std::string>> rows{{"Name", "Type", "Width", "Label"}};
  for (const VORN_Variable& variable : dataset.Variables()) {
    if (!MatchesPattern(variable.GetName(), pattern)) continue;
    const int type = variable.GetType();
    rows.push_back({variable.GetName(), type == 0 ? "numeric" : "string",
                    type == 0 ? "-" : std::to_string(type),
                    variable.GetLabel() != nullptr ? variable.GetLabel() : ""});
  }
  if (rows.size() == 1) {
    return pattern.empty() ? "The dataset has no variables.\n"
                           : "No variable matches \"" + std::string(pattern) + "\".\n";
  }
  return Columns(rows);
}

std::string ListSets(const hostlib::data::Dataset& dataset) {
  const auto& sets = dataset.MultipleResponseSets();
  if (sets.empty()) return "The dataset has no multiple response sets.\n";
  std::vector<std::vector<std::string>> rows{{"Name", "Type", "Label", "Variables"}};
  for (const VariableSet& set : sets) {
    const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
    rows.push_back({set.GetName(kAsStored),
                    dichotomies ? "dichotomies, counted value " + set.GetValue() : "categories",
                    set.GetLabel(), Join(set.GetVariableNames(kAsStored))});
  }
  return Columns(rows);
}

std::string_view DotHelp() {
  return R"(Commands end at a line that ends with a period, or at a blank line.
Lines that begin with a period are the program's own:
  .help               this list
  .vars [PATTERN]     the variables: name, type, width, label; PATTERN is part
                      of a name, or a name with * and ? wildcards (any case)
  .sets               the multiple response sets
  .read FILE          run the commands in FILE
  .mode text|json|html  the format of the output from now on
  .output FILE|stdout   where the output goes from now on (a file is written
                      whole when it is closed)
  .open PATH          work on the dataset in PATH
  .quit               end (Ctrl-D does too)
Ctrl-C drops the command being typed. Tab completes keywords, subcommands,
variable names and set names.
)";
}

}  // namespace mrset_program
