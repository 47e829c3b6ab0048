#include "hostlib/formats/csv_inference.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>

#include <nlohmann/json.hpp>

#include "hostlib/data/codebook/imported_contents.h"
#include "hostlib/dictionary/names.h"
#include "hostlib/formats/syntax_out.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::formats {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMaxCategories = 12;
constexpr std::size_t kMaxStringWidth = 32767;

std::optional<double> AsNumber(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end == nullptr || *end != '\0' || !std::isfinite(value) ||
      std::isspace(static_cast<unsigned char>(text.front()))) {
    return std::nullopt;
  }
  return value;
}

bool IsBlankText(const std::string& text) {
  return text.find_first_not_of(" \t") == std::string::npos;
}

struct Column {
  std::string header;
  std::string name;
  bool numeric = true;
  std::size_t width = 1;
  std::set<std::string> texts;  // distinct non-blank values, up to one more than kept
  std::set<double> numbers;
  std::size_t filled = 0;
};

// A name the lexer reads as one word, made of the header.
std::string NameFromHeader(const std::string& header, std::size_t position) {
  std::string name;
  for (std::size_t at = 0; at < header.size();) {
    const strings::Decoded decoded = strings::DecodeAt(header, at);
    const bool keep = decoded.valid && (name.empty() ? dictionary::IsNameStart(decoded.codePoint)
                                                     : dictionary::IsNamePart(decoded.codePoint));
    if (keep) {
      name.append(header, at, decoded.length);
    } else if (!name.empty() && decoded.valid && (dictionary::IsNamePart(decoded.codePoint))) {
      name.append(header, at, decoded.length);
    } else if (!name.empty()) {
      name += '_';
    } else if (decoded.valid && strings::IsDigit(decoded.codePoint)) {
      name = "v";
      name.append(header, at, decoded.length);
    }
    at += decoded.length;
  }
  if (name.empty() || name.front() == '$') name = "v" + std::to_string(position + 1) + name;
  if (dictionary::EqualsAsciiNoCase(name, "ALL") || dictionary::EqualsAsciiNoCase(name, "TO")) {
    name += '_';
  }
  return name;
}

std::string Unique(std::string name, std::unordered_set<std::string>& taken) {
  std::string candidate = name;
  for (int n = 2; !taken.insert(data::FoldName(candidate)).second; ++n) {
    candidate = name + "_" + std::to_string(n);
  }
  return candidate;
}

std::vector<Column> ReadColumns(const CsvTable& table) {
  std::vector<Column> columns(table.header.size());
  std::unordered_set<std::string> taken;
  for (std::size_t c = 0; c < columns.size(); ++c) {
    columns[c].header = table.header[c];
    columns[c].name = Unique(NameFromHeader(table.header[c], c), taken);
  }
  for (const auto& row : table.rows) {
    for (std::size_t c = 0; c < columns.size(); ++c) {
      Column& column = columns[c];
      const std::string& value = row[c];
      column.width = std::min(kMaxStringWidth, std::max(column.width, value.size()));
      if (IsBlankText(value)) continue;
      ++column.filled;
      if (column.texts.size() <= kMaxCategories) column.texts.insert(value);
      const auto number = AsNumber(value);
      if (!number) {
        column.numeric = false;
      } else if (column.numbers.size() <= kMaxCategories) {
        column.numbers.insert(*number);
      }
    }
  }
  return columns;
}

bool HasFewValues(const Column& column) {
  const std::size_t distinct = column.numeric ? column.numbers.size() : column.texts.size();
  if (distinct == 0 || distinct > kMaxCategories || distinct >= column.filled) return false;
  return !column.numeric || std::all_of(column.numbers.begin(), column.numbers.end(),
                                        [](double v) { return std::trunc(v) == v; });
}

Json RenderField(const Column& column, const std::string& title) {
  Json field = Json::object();
  field["name"] = column.name;
  if (column.numeric) {
    field["type"] = "number";
  } else {
    field["type"] = "string";
    field["constraints"] = {{"maxLength", column.width}};
  }
  if (!title.empty()) field["title"] = title;
  if (HasFewValues(column)) {
    Json categories = Json::array();
    if (column.numeric) {
      // Whole numbers as integers where one holds them; beyond, as they are.
      constexpr double kIntegerLimit = 9007199254740992.0;  // 2^53
      for (const double v : column.numbers) {
        if (std::fabs(v) <= kIntegerLimit) {
          categories.push_back(static_cast<std::int64_t>(v));
        } else {
          categories.push_back(v);
        }
      }
    } else {
      for (const auto& v : column.texts) categories.push_back(v);
    }
    field["categories"] = std::move(categories);
  }
  return field;
}

// A run of columns that may be one question.
struct Run {
  std::string prefix;
  bool slashed = false;              // PREFIX/OPTION rather than PREFIX_n
  std::vector<std::size_t> columns;  // in the order of the question
};

std::vector<Run> FindRuns(const std::vector<Column>& columns) {
  std::map<std::string, Run> slashed;
  std::map<std::string, std::map<long, std::size_t>> numbered;
  std::vector<std::string> order;
  for (std::size_t c = 0; c < columns.size(); ++c) {
    const std::string& header = columns[c].header;
    if (const auto slash = header.rfind('/');
        slash != std::string::npos && slash > 0 && slash + 1 < header.size()) {
      Run& run = slashed[header.substr(0, slash)];
      if (run.columns.empty()) order.push_back("/" + header.substr(0, slash));
      run.prefix = header.substr(0, slash);
      run.slashed = true;
      run.columns.push_back(c);
      continue;
    }
    const auto underscore = header.rfind('_');
    if (underscore == std::string::npos || underscore == 0 || underscore + 1 == header.size()) {
      continue;
    }
    const std::string digits = header.substr(underscore + 1);
    if (digits.size() > 6 || digits.find_first_not_of("0123456789") != std::string::npos) continue;
    auto& members = numbered[header.substr(0, underscore)];
    if (members.empty()) order.push_back("_" + header.substr(0, underscore));
    members.emplace(std::stol(digits), c);
  }
  std::vector<Run> runs;
  for (const std::string& key : order) {
    const std::string prefix = key.substr(1);
    if (key.front() == '/') {
      if (slashed[prefix].columns.size() >= 2) runs.push_back(slashed[prefix]);
      continue;
    }
    const auto& members = numbered[prefix];
    // 1..n without a gap.
    if (members.size() < 2 || members.begin()->first != 1 ||
        members.rbegin()->first != static_cast<long>(members.size())) {
      continue;
    }
    Run run{prefix, false, {}};
    for (const auto& [number, column] : members) run.columns.push_back(column);
    runs.push_back(std::move(run));
  }
  return runs;
}

// The one mark that every member holds where it is selected, when 0/1 or
// blank/mark describe all members.
std::optional<std::string> CountedMark(const std::vector<Column>& columns, const Run& run) {
  std::set<std::string> marks;
  std::set<std::string> trues;  // as spelt
  bool zeroOne = true;
  bool trueFalse = true;
  for (const std::size_t c : run.columns) {
    const Column& column = columns[c];
    if (column.texts.size() > 2) return std::nullopt;
    for (const std::string& v : column.texts) {
      // As numbers: tools write 1.0 where a column of ticks had blanks.
      const auto number = AsNumber(v);
      const bool zero = number && *number == 0;
      const bool one = number && *number == 1;
      if (!zero && !one) zeroOne = false;
      if (!zero) marks.insert(one ? std::string("1") : v);
      std::string lower = v;
      for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      if (lower == "true") trues.insert(v);
      trueFalse = trueFalse && (lower == "true" || lower == "false");
    }
  }
  if (zeroOne) return "1";
  // Forms export a ticked option as True, else False, in one spelling.
  if (trueFalse) return trues.size() == 1 ? std::optional(*trues.begin()) : std::nullopt;
  if (marks.size() != 1) return std::nullopt;
  for (const std::size_t c : run.columns) {
    if (columns[c].texts.size() > 1) return std::nullopt;  // blank and the mark only
  }
  return *marks.begin();
}

// Each member holds its own option's text where it was chosen, and nothing
// elsewhere (as platforms export "Q/Option" columns): a category set counts
// those texts across its members.
bool HoldsOptionTexts(const std::vector<Column>& columns, const Run& run) {
  bool any = false;
  for (const std::size_t c : run.columns) {
    if (!columns[c].numbers.empty() || columns[c].texts.size() > 1) return false;
    any = any || !columns[c].texts.empty();
  }
  return any;
}

// One width for the members of such a run, so that they make one set.
void WidenOptionColumns(std::vector<Column>& columns, const Run& run) {
  std::size_t width = 1;
  for (const std::size_t c : run.columns) width = std::max(width, columns[c].width);
  for (const std::size_t c : run.columns) {
    columns[c].numeric = false;
    columns[c].width = width;
  }
}

std::string SetName(const std::string& prefix, std::unordered_set<std::string>& taken) {
  return Unique("$" + NameFromHeader(prefix, 0), taken);
}

}  // namespace

InferredDictionary InferDictionary(const CsvTable& table, const std::string& dataPath) {
  std::vector<Column> columns = ReadColumns(table);
  const std::vector<Run> runs = FindRuns(columns);
  std::vector<bool> optionTexts(runs.size(), false);
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const auto mark = CountedMark(columns, runs[r]);
    optionTexts[r] = !mark && HoldsOptionTexts(columns, runs[r]);
    // Members that hold a text mark ("X", "True") are strings of one width,
    // whichever of them the cases happened to fill.
    const bool textMark = mark && std::any_of(runs[r].columns.begin(), runs[r].columns.end(),
                                              [&](std::size_t c) { return !columns[c].numeric; });
    if (optionTexts[r] || textMark) WidenOptionColumns(columns, runs[r]);
  }
  std::vector<std::string> titles(columns.size());
  for (std::size_t c = 0; c < columns.size(); ++c) {
    if (columns[c].name != columns[c].header) titles[c] = columns[c].header;
  }
  for (const Run& run : runs) {
    if (!run.slashed) continue;
    for (const std::size_t c : run.columns)
      titles[c] = columns[c].header.substr(run.prefix.size() + 1);
  }
  InferredDictionary inferred;
  Json fields = Json::array();
  for (std::size_t c = 0; c < columns.size(); ++c)
    fields.push_back(RenderField(columns[c], titles[c]));
  const Json codebook = {{"path", dataPath}, {"fields", fields}};
  inferred.contents = data::ContentsFromDescriptorText(codebook.dump(), dataPath);

  std::unordered_set<std::string> setNames;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const Run& run = runs[r];
    const std::string shown = run.prefix + (run.slashed ? "/..." : "_1..");
    const bool numeric = columns[run.columns.front()].numeric;
    const bool sameType = std::all_of(run.columns.begin(), run.columns.end(), [&](std::size_t c) {
      return columns[c].numeric == numeric &&
             (numeric || columns[c].width == columns[run.columns.front()].width);
    });
    const auto mark = CountedMark(columns, run);
    if (!mark && !optionTexts[r] && (run.slashed || !sameType)) {
      inferred.notes.push_back(shown + ": the columns hold no common mark or codes of one type");
      continue;
    }
    VariableSet set(SetName(run.prefix, setNames),
                    mark ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    set.SetLabel(run.prefix);
    if (mark) {
      set.SetValue(*mark);
      if (!sameType) {
        inferred.notes.push_back(shown + ": the columns are of different types");
        continue;
      }
    }
    for (const std::size_t c : run.columns) set.AddVariableName(columns[c].name);
    inferred.proposedSets.push_back(std::move(set));
  }
  return inferred;
}

std::string RenderProposal(const InferredDictionary& inferred, const std::string& source) {
  std::string text = "* Multi-select questions found in " + source +
                     " by mrset-convert: review, then run on its codebook.\n";
  for (const std::string& note : inferred.notes) text += "* Not proposed: " + note + ".\n";
  if (inferred.proposedSets.empty()) text += "* None found.\n";
  text += "\n";
  text += RenderSetCommands(inferred.contents.dataset, inferred.proposedSets);
  return text;
}

}  // namespace hostlib::formats
