#include "hostlib/diagnostics/notes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "host/syntax.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::diagnostics {
namespace {

std::u32string FoldedCodePoints(std::string_view text) {
  const std::string folded = strings::FoldCase(text);
  std::u32string codePoints;
  for (std::size_t offset = 0; offset < folded.size();) {
    const strings::Decoded decoded = strings::DecodeAt(folded, offset);
    codePoints.push_back(static_cast<char32_t>(decoded.codePoint));
    offset += decoded.length;
  }
  return codePoints;
}

// How far a name may be from another and still be a slip: one edit for a
// short name, up to three for a long one.
std::size_t CloseEnough(std::size_t length) { return std::clamp<std::size_t>(length / 3, 1, 3); }

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool SameName(std::string_view a, std::string_view b) {
  return strings::FoldCase(a) == strings::FoldCase(b);
}

// "a", "a or b", "a, b or c".
std::string Alternatives(const std::vector<std::string>& names, std::string_view last) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? std::string(" ") + std::string(last) + " " : ", ";
    text += names[i];
  }
  return text;
}

std::vector<std::string> VariableNames(const data::Dataset& dataset) {
  std::vector<std::string> names;
  names.reserve(dataset.Variables().size());
  for (const VORN_Variable& variable : dataset.Variables()) names.emplace_back(variable.GetName());
  return names;
}

std::vector<std::string> SetNames(const data::Dataset& dataset) {
  std::vector<std::string> names;
  for (const VariableSet& set : dataset.MultipleResponseSets())
    names.push_back(set.GetName(kAsStored));
  return names;
}

std::optional<std::string> Find(const std::vector<std::string>& names, std::string_view name) {
  for (const std::string& candidate : names) {
    if (SameName(candidate, name)) return candidate;
  }
  return std::nullopt;
}

// ---- unknown names ---------------------------------------------------------

// Messages that name something the dataset does not have.
bool NamesSomethingUnknown(std::string_view format) {
  constexpr std::array kPhrases = {"does not exist",
                                   "do not exist",
                                   "can not be found",
                                   "not in the dataset",
                                   "is not a variable of the dataset",
                                   "is not a multiple response set of the dataset"};
  return std::any_of(kPhrases.begin(), kPhrases.end(),
                     [&](const char* phrase) { return Contains(format, phrase); });
}

bool IsAboutSets(std::string_view format) {
  return Contains(format, "MRSET") || Contains(format, " sets ") ||
         Contains(format, "multiple response set");
}

// The names a message is about: its items, or else the word it was reading.
std::vector<std::string> NamesOf(const NoteContext& context) {
  std::vector<std::string> names;
  for (const BpText& item : context.message.items) {
    if (!item.text.empty() && item.text.find(' ') == std::string::npos) names.push_back(item.text);
  }
  if (names.empty() && context.command != nullptr &&
      context.command->At(context.cursor).type == TokenSequenceBase::kString) {
    names.push_back(context.command->TokenText(context.cursor));
  }
  return names;
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::optional<Note> PeriodInName(std::string_view name, const std::vector<std::string>& existing) {
  if (name.size() < 2 || name.back() != '.') return std::nullopt;
  std::string_view stem = name;
  while (!stem.empty() && stem.back() == '.') stem.remove_suffix(1);
  const auto found = Find(existing, stem);
  if (!found) return std::nullopt;
  return Note{NoteKind::kPeriodInName,
              Quoted(name) + " was read as one name, period included: a period ends a command " +
                  "only at the end of a line (" + *found + " exists)"};
}

void NotesOnUnknownName(const NoteContext& context, const std::string& name,
                        std::vector<Note>& notes) {
  if (context.isCommandWord && context.isCommandWord(name)) return;  // the run-on note says it
  const bool aboutSets = IsAboutSets(context.message.text);
  const std::vector<std::string> existing =
      aboutSets ? SetNames(*context.dataset) : VariableNames(*context.dataset);
  if (Find(existing, name)) return;
  if (auto period = PeriodInName(name, existing)) {
    notes.push_back(std::move(*period));
    return;
  }
  if (aboutSets && !name.starts_with('$')) {
    const auto withDollar = Find(existing, "$" + name);
    notes.push_back({NoteKind::kDollar,
                     "set names begin with \"$\"" +
                         (withDollar ? ": did you mean " + *withDollar + "?" : std::string())});
    return;
  }
  const std::vector<std::string> closest = ClosestNames(name, existing);
  if (closest.empty()) return;
  notes.push_back({NoteKind::kClosestNames, "did you mean " + Alternatives(closest, "or") + "?"});
}

// ---- keywords --------------------------------------------------------------

struct Grammar {
  std::string_view subcommand;
  std::vector<std::string> keywords;
};

const std::vector<Grammar>& MrsetGrammar() {
  static const std::vector<Grammar> grammar = {
      {"MDGROUP", {"NAME", "LABEL", "VARIABLES", "VALUE", "CATEGORYLABELS", "LABELSOURCE"}},
      {"MCGROUP", {"NAME", "LABEL", "VARIABLES"}},
      {"DISPLAY", {"NAME"}},
      {"DELETE", {"NAME"}}};
  return grammar;
}

std::vector<std::string> Subcommands() {
  std::vector<std::string> names;
  for (const Grammar& grammar : MrsetGrammar()) names.emplace_back(grammar.subcommand);
  return names;
}

std::string Slashed(std::vector<std::string> names, std::string_view last) {
  for (std::string& name : names) name.insert(0, "/");
  return Alternatives(names, last);
}

std::string DidYouMean(const std::vector<BpText>& items, const std::vector<std::string>& valid) {
  if (items.empty()) return {};
  const std::vector<std::string> closest = ClosestNames(items.front().text, valid);
  return closest.empty() ? std::string() : "; did you mean " + Alternatives(closest, "or") + "?";
}

std::optional<Note> KeywordNote(const BpText& message) {
  const std::string_view format = message.text;
  if (format.starts_with("Invalid MRSET subcommand.")) {
    return Note{NoteKind::kKeywords, "MRSET takes the subcommands " +
                                         Slashed(Subcommands(), "and") +
                                         DidYouMean(message.items, Subcommands())};
  }
  if (format.starts_with("Begin subcommand symbol expected.")) {
    return Note{NoteKind::kKeywords,
                "a subcommand begins with \"/\": " + Slashed(Subcommands(), "or")};
  }
  for (const Grammar& grammar : MrsetGrammar()) {
    if (format == "Unexpected ^1 keyword in " + std::string(grammar.subcommand) + " subcommand.") {
      return Note{NoteKind::kKeywords, std::string(grammar.subcommand) + " takes " +
                                           Alternatives(grammar.keywords, "and") +
                                           DidYouMean(message.items, grammar.keywords)};
    }
  }
  return std::nullopt;
}

// ---- a command that ran on ---------------------------------------------------

std::optional<Note> RunOnNote(const NoteContext& context) {
  if (context.command == nullptr || !context.isCommandWord) return std::nullopt;
  const syntax::Command& command = *context.command;
  for (std::size_t i = 1; i < command.Size(); ++i) {
    const int line = command.PositionOf(i).line;
    if (command.At(i).type != TokenSequenceBase::kString ||
        line == command.PositionOf(i - 1).line || !context.isCommandWord(command.TokenText(i))) {
      continue;
    }
    return Note{NoteKind::kRunOn, "the command that begins on line " +
                                      std::to_string(command.FirstLine()) + " runs on into line " +
                                      std::to_string(line) + " (" + command.TokenText(i) +
                                      " there begins no command of its own): a command ends "
                                      "only with a period at the end of a line, outside quotes"};
  }
  return std::nullopt;
}

}  // namespace

std::size_t EditDistance(std::string_view a, std::string_view b) {
  const std::u32string x = FoldedCodePoints(a);
  const std::u32string y = FoldedCodePoints(b);
  // Three rows of the optimal string alignment table.
  std::vector<std::size_t> before(y.size() + 1), previous(y.size() + 1), current(y.size() + 1);
  for (std::size_t j = 0; j <= y.size(); ++j) previous[j] = j;
  for (std::size_t i = 1; i <= x.size(); ++i) {
    current[0] = i;
    for (std::size_t j = 1; j <= y.size(); ++j) {
      const std::size_t replace = previous[j - 1] + (x[i - 1] == y[j - 1] ? 0 : 1);
      current[j] = std::min({previous[j] + 1, current[j - 1] + 1, replace});
      if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1]) {
        current[j] = std::min(current[j], before[j - 2] + 1);
      }
    }
    before.swap(previous);
    previous.swap(current);
  }
  return previous[y.size()];
}

std::vector<std::string> ClosestNames(std::string_view name,
                                      const std::vector<std::string>& names) {
  const std::size_t length = strings::CharacterCount(name);
  const std::size_t limit = CloseEnough(length);
  std::vector<std::pair<std::size_t, std::string>> close;
  for (const std::string& candidate : names) {
    const std::size_t candidateLength = strings::CharacterCount(candidate);
    if ((candidateLength > length ? candidateLength - length : length - candidateLength) > limit) {
      continue;
    }
    const std::size_t distance = EditDistance(name, candidate);
    if (distance > 0 && distance <= limit) close.emplace_back(distance, candidate);
  }
  // The nearest alone: a name one slip away hides those two slips away.
  std::stable_sort(close.begin(), close.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> closest;
  for (std::size_t i = 0; i < close.size() && i < 3 && close[i].first == close.front().first; ++i) {
    closest.push_back(close[i].second);
  }
  return closest;
}

std::vector<Note> NotesFor(const NoteContext& context) {
  std::vector<Note> notes;
  if (context.dataset != nullptr && NamesSomethingUnknown(context.message.text)) {
    for (const std::string& name : NamesOf(context)) NotesOnUnknownName(context, name, notes);
  }
  if (context.message.text.starts_with("The MRSET name ^1 is invalid") &&
      !context.message.items.empty() && context.message.items.front().text.ends_with('.')) {
    notes.push_back({NoteKind::kPeriodInName,
                     Quoted(context.message.items.front().text) +
                         " was read as one name, period included: a period ends a command "
                         "only at the end of a line"});
  }
  if (auto keywords = KeywordNote(context.message)) notes.push_back(std::move(*keywords));
  if (auto runOn = RunOnNote(context)) notes.push_back(std::move(*runOn));
  return notes;
}

}  // namespace hostlib::diagnostics
