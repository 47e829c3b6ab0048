#include "hostlib/formats/syntax_out.h"

#include <cmath>
#include <cstdlib>

#include "hostlib/dictionary/names.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::formats {
namespace {

using data::DatasetError;

[[noreturn]] void Refuse(const VariableSet& set, const std::string& fault) {
  throw DatasetError("set " + set.GetName(kAsStored) + ": " + fault);
}

bool IsWord(std::string_view text) {
  if (text.empty()) return false;
  bool first = true;
  for (std::size_t at = 0; at < text.size();) {
    const strings::Decoded decoded = strings::DecodeAt(text, at);
    if (!decoded.valid) return false;
    if (first ? !dictionary::IsNameStart(decoded.codePoint)
              : !dictionary::IsNamePart(decoded.codePoint)) {
      return false;
    }
    first = false;
    at += decoded.length;
  }
  return !dictionary::EqualsAsciiNoCase(text, "ALL") && !dictionary::EqualsAsciiNoCase(text, "TO");
}

bool HasLineBreakOrControl(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return true;
  }
  return false;
}

bool MembersAreNumeric(const data::Dataset& dataset, const VariableSet& set) {
  const auto names = set.GetVariableNames(kAsStored);
  if (names.empty()) return false;
  const int index = dataset.FindVarIndex(names.front());
  return index >= 0 && dataset.Variable(index).GetType() == 0;
}

std::string CountedValue(const data::Dataset& dataset, const VariableSet& set) {
  const std::string& value = set.GetValue();
  if (MembersAreNumeric(dataset, set)) {
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (!value.empty() && end != nullptr && *end == '\0' && std::isfinite(number)) return value;
  }
  if (HasLineBreakOrControl(value)) Refuse(set, "its counted value holds a control character");
  return QuoteForSyntax(value);
}

std::string RenderCommand(const data::Dataset& dataset, const VariableSet& set) {
  const std::string name = set.GetName(kAsStored);
  if (name.empty() || name.front() != '$' || !IsWord(name)) Refuse(set, "the name is not a word");
  const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
  std::string command =
      std::string("MRSET /") + (dichotomies ? "MDGROUP" : "MCGROUP") + " NAME=" + name;
  if (!set.GetLabel().empty()) {
    if (HasLineBreakOrControl(set.GetLabel())) Refuse(set, "its label holds a control character");
    command += " LABEL=" + QuoteForSyntax(set.GetLabel());
  }
  command += "\n  VARIABLES=";
  std::size_t lineLength = 12;
  bool first = true;
  for (const std::string& member : set.GetVariableNames(kAsStored)) {
    if (!IsWord(member)) Refuse(set, "the member " + member + " is not a word");
    if (!first && lineLength + member.size() > 78) {
      command += "\n   ";
      lineLength = 3;
    }
    command += (first ? "" : " ") + member;
    lineLength += member.size() + 1;
    first = false;
  }
  if (dichotomies) {
    command += "\n  VALUE=" + CountedValue(dataset, set);
    command += std::string(" CATEGORYLABELS=") +
               (set.qUseVariableCategoryLabels() ? "COUNTEDVALUES" : "VARLABELS");
    if (set.qLabelSetByVariable()) command += " LABELSOURCE=VARLABEL";
  }
  return command + ".\n";
}

}  // namespace

std::string QuoteForSyntax(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c;
    if (c == '\'') quoted += '\'';
  }
  return quoted + "'";
}

std::string RenderSetCommands(const data::Dataset& dataset, const std::vector<VariableSet>& sets) {
  std::string text;
  for (const VariableSet& set : sets) text += RenderCommand(dataset, set);
  return text;
}

}  // namespace hostlib::formats
