#include "backend/mrset/mrsetparse.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <set>

#include "backend/mrset/mrsetassert.h"
#include "host/data_source.h"
#include "host/dictionary.h"
#include "host/output.h"
#include "host/platform_strings.h"
#include "host/syntax.h"

#define PARSE_ASSERT(condition, text) MRSET_ASSERT(condition, text, "backend/mrset/mrsetparse")

namespace {

constexpr int kEndOfCommand = TokenSequenceBase::kEndOfCommand;
constexpr int kWord = TokenSequenceBase::kString;
constexpr int kNumber = TokenSequenceBase::kNumber;
constexpr int kQuotedString = TokenSequenceBase::kQuotedString;
constexpr int kDelimiter = TokenSequenceBase::kDelimiter;
constexpr int kEqualsCode = TokenSequenceBase::kEquals;
constexpr int kSlashCode = TokenSequenceBase::kSlash;
constexpr int kAllCode = TokenSequenceBase::kAll;
constexpr int kLeftBracketCode = TokenSequenceBase::kLeftBracket;
constexpr int kRightBracketCode = TokenSequenceBase::kRightBracket;

constexpr std::size_t kMaxNameBytes = 64;
constexpr std::size_t kMaxLabelBytes = 255;
constexpr unsigned int kLabelSourceMinLength = 6;

void Report(const std::string& message, const std::string& arg1, const std::string& arg2,
            int level) {
  BpComposite composite(std::string(message.c_str()), true);
  if (!arg1.empty()) composite.Add(BpString(std::string(arg1), false));
  if (!arg2.empty()) composite.Add(BpString(std::string(arg2), false));
  composite.Finish();
  BpError(composite, kShowInOutput, level);
}

bool IsSlash(const TokenSequenceBase& tokens) { return IsTokenEqualWith(tokens, "/", false); }
bool IsEquals(const TokenSequenceBase& tokens) { return IsTokenEqualWith(tokens, "=", false); }

// The "=" after a clause keyword. The clauses of NAME, LABEL, LABELSOURCE and
// CATEGORYLABELS report it with a trailing ";", VALUE and VARIABLES without.
bool ExpectEquals(TokenSequenceBase& tokens, const std::string& keyword, bool withSemicolon) {
  tokens.Next();
  if (IsEquals(tokens)) return true;
  ReportError(withSemicolon ? "MRSET ^1 was expecting \"=\". Found ^2...;"
                            : "MRSET ^1 was expecting \"=\". Found ^2...",
              keyword, TokenString(tokens));
  return false;
}

// Hands the token that ended a subcommand back to the driver.
void PutBackInline(TokenSequenceBase& tokens) {
  const std::uint32_t position = tokens.GetPosition();
  PARSE_ASSERT(position > 0, "pos > 0");
  tokens.SetPosition(position - 1);
  tokens.Next();
}

bool IsBlank(unsigned char byte) {
  static const auto kBlanks = [] {
    std::array<bool, 256> table{};
    table[static_cast<unsigned char>(' ')] = true;
    return table;
  }();
  return kBlanks[byte];
}

}  // namespace

// ---- messages and tokens -------------------------------------------------

void ReportError(const std::string& message, const std::string& arg1, const std::string& arg2) {
  Report(message, arg1, arg2, kErrorLevel);
}

void ReportWarning(const std::string& message, const std::string& arg1, const std::string& arg2) {
  Report(message, arg1, arg2, kWarningLevel);
}

bool IsTokenEqualWith(const TokenSequenceBase& tokens, const std::string& text,
                      bool useKeywordMatch) {
  const std::string token = TokenStringCaps(tokens);
  if (useKeywordMatch) return KeywordMatch(token.c_str(), text.c_str());
  return token == text;
}

bool IsTruncatedTokenEqualWith(const TokenSequenceBase& tokens, const std::string& text,
                               unsigned int minLength) {
  const std::string token = TokenStringCaps(tokens);
  if (token.length() < minLength) return false;
  return VORNMBqstricmp_A(token.c_str(), minLength, text.c_str(), minLength, 0) != 0;
}

void PutBackToken(TokenSequenceBase& tokens) { PutBackInline(tokens); }

bool CheckClauseEnd(TokenSequenceBase& tokens) {
  tokens.Next();
  switch (tokens.Type()) {
    case kEndOfCommand:
      return true;
    case kDelimiter:
      if (tokens.SubType() == kSlashCode) {
        PutBackToken(tokens);
        return true;
      }
      break;
    case kWord:
      // The keyword of the next clause: it may be followed by anything but a
      // delimiter other than "=".
      tokens.Next();
      if (tokens.Type() == kDelimiter && tokens.SubType() != kEqualsCode) break;
      PutBackToken(tokens);
      PutBackToken(tokens);
      return true;
    default:
      break;
  }
  ReportError("Unexpected token ^1 in this context", TokenString(tokens), "");
  return false;
}

std::int32_t TrimmedLength(const std::string& text) {
  std::size_t first = 0;
  while (first < text.size() && IsBlank(static_cast<unsigned char>(text[first]))) ++first;
  std::size_t last = text.size();
  while (last > first && IsBlank(static_cast<unsigned char>(text[last - 1]))) --last;
  return static_cast<std::int32_t>(last - first);
}

// ---- the driver ----------------------------------------------------------

bool ParseSubcommands(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                      MRSetSubcommands& subcommands) {
  tokens.Next();
  PARSE_ASSERT(tokens.Type() == TokenSequenceBase::kString,
               "command.Type() == TokenSequenceBase::kString");
  PARSE_ASSERT(IsTokenEqualWith(tokens, "MRSET", true),
               "IsTokenEqualWith(command, PSTD string(\"MRSET\"))");

  const bool result = true;
  if (tokens.Next()) {
    for (;;) {
      if (!IsSlash(tokens)) {
        if (!subcommands.empty()) {
          ReportError("Begin subcommand symbol expected. Found ^1 ...", TokenString(tokens), "");
          return false;
        }
        // The "/" before the first subcommand may be left out.
        PutBackInline(tokens);
      }
      MRSetSubcommand subcmd;
      if (!ParseSubcommand(tokens, dataSource, subcmd)) return false;
      subcommands.push_back(std::move(subcmd));
      if (!tokens.Next()) break;
    }
  }
  if (subcommands.empty()) {
    ReportError("No subcommand in MRSET command.", "", "");
    return false;
  }
  return result;
}

bool ParseSubcommand(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                     MRSetSubcommand& subcmd) {
  tokens.Next();
  subcmd.fType = GetSubcommandType(tokens);
  switch (subcmd.fType) {
    case MRSetSubcommand::kNone:
      ReportError("Invalid MRSET subcommand. Found ^1 ..", TokenString(tokens), "");
      return false;
    case MRSetSubcommand::kMDGROUP:
      return ParseDichotomyGroup(tokens, dataSource, subcmd) &&
             CheckDichotomyGroup(subcmd, dataSource);
    case MRSetSubcommand::kMCGROUP:
      return ParseCategoryGroup(tokens, dataSource, subcmd) &&
             CheckCategoryGroup(subcmd, dataSource);
    case MRSetSubcommand::kDISPLAY:
      return ParseDisplaySubcommand(tokens, subcmd) && CheckNameListSubcommand(subcmd, dataSource);
    case MRSetSubcommand::kDELETE:
      return ParseDeleteSubcommand(tokens, subcmd) && CheckNameListSubcommand(subcmd, dataSource);
  }
  PARSE_ASSERT(false, "!\"This is not a handled type.\"");
  return false;
}

MRSetSubcommand::Type GetSubcommandType(const TokenSequenceBase& tokens) {
  if (IsTokenEqualWith(tokens, "MDGROUP", true)) return MRSetSubcommand::kMDGROUP;
  if (IsTokenEqualWith(tokens, "MCGROUP", true)) return MRSetSubcommand::kMCGROUP;
  if (IsTokenEqualWith(tokens, "DISPLAY", true)) return MRSetSubcommand::kDISPLAY;
  if (IsTokenEqualWith(tokens, "DELETE", true)) return MRSetSubcommand::kDELETE;
  return MRSetSubcommand::kNone;
}

// ---- clauses -------------------------------------------------------------

bool ParseNameClause(TokenSequenceBase& tokens, std::string& fName) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "NAME", true),
               "IsTokenEqualWith(command, PSTD string(\"NAME\"))");
  if (!ExpectEquals(tokens, "NAME", true)) return false;
  tokens.Next();
  if (tokens.Type() != kWord) {
    ReportError("Unexpected MRSET name value ^1 was found.", TokenString(tokens), "");
    return false;
  }
  fName = TokenString(tokens);
  if (fName[0] != '$') {
    ReportError("The MRSET name ^1 must start with $.", fName, "");
    return false;
  }
  // The limit is 64 bytes; the message has always spoken of 8.
  if (fName.length() > kMaxNameBytes) {
    ReportError("The MRSET name ^1 has more than 8 chars length", fName, "");
    return false;
  }
  if (ValidateVORNName(fName) != kValidName) {
    ReportError("The MRSET name ^1 is invalid", fName, "");
    return false;
  }
  return CheckClauseEnd(tokens);
}

bool ParseLabelClause(TokenSequenceBase& tokens, std::string& fLabel) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "LABEL", true) &&
                   !IsTruncatedTokenEqualWith(tokens, "LABELSOURCE", kLabelSourceMinLength),
               "IsTokenEqualWith(command, PSTD string(\"LABEL\")) && "
               "!IsTruncatedTokenEqualWith(command, PSTD string(\"LABELSOURCE\"), 6)");
  if (!ExpectEquals(tokens, "LABEL", true)) return false;
  tokens.Next();
  if (tokens.Type() != kQuotedString) {
    ReportError("A quoted label string was expected. Found ^1 ..", TokenString(tokens), "");
    return false;
  }
  fLabel = TokenString(tokens);
  if (fLabel.length() > kMaxLabelBytes) {
    ReportWarning("The MRSET label ^1 will be truncated to a length of 255 chars.", fLabel, "");
    char buffer[kMaxLabelBytes + 1] = {};
    VORNMBzstncpy_A(buffer, fLabel.c_str(), sizeof buffer);
    fLabel = buffer;
  }
  return CheckClauseEnd(tokens);
}

bool ParseLabelSourceClause(TokenSequenceBase& tokens, bool& fLabelFromVarLabel) {
  PARSE_ASSERT(IsTruncatedTokenEqualWith(tokens, "LABELSOURCE", kLabelSourceMinLength),
               "IsTruncatedTokenEqualWith(command, PSTD string(\"LABELSOURCE\"), 6)");
  if (!ExpectEquals(tokens, "LABELSOURCE", true)) return false;
  tokens.Next();
  if (tokens.Type() == kWord && IsTokenEqualWith(tokens, "VARLABEL", true)) {
    fLabelFromVarLabel = true;
    return CheckClauseEnd(tokens);
  }
  ReportError("The keyword VARLABEL was expected.  Found ^1...", TokenString(tokens), "");
  return false;
}

bool ParseCategoryLabelsClause(TokenSequenceBase& tokens, bool& fCountedValueLabels) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "CATEGORYLABELS", true),
               "IsTokenEqualWith(command, PSTD string(\"CATEGORYLABELS\"))");
  if (!ExpectEquals(tokens, "CATEGORYLABELS", true)) return false;
  tokens.Next();
  if (tokens.Type() == kWord && IsTokenEqualWith(tokens, "VARLABELS", true)) {
    fCountedValueLabels = false;
    return CheckClauseEnd(tokens);
  }
  if (tokens.Type() == kWord && IsTokenEqualWith(tokens, "COUNTEDVALUES", true)) {
    fCountedValueLabels = true;
    return CheckClauseEnd(tokens);
  }
  ReportError("Expected VARLABELS or COUNTEDVALUES.  Found ^1...", TokenString(tokens), "");
  return false;
}

bool ParseValueClause(TokenSequenceBase& tokens, std::string& fValue, bool& fValueIsNumber) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "VALUE", true),
               "IsTokenEqualWith(command, PSTD string(\"VALUE\"))");
  if (!ExpectEquals(tokens, "VALUE", false)) return false;
  tokens.Next();
  if (tokens.Type() != kQuotedString && tokens.Type() != kNumber) {
    ReportError("The MRSET value was expected. Found ^1...", TokenString(tokens), "");
    return false;
  }
  fValue = TokenString(tokens);
  fValueIsNumber = tokens.Type() == kNumber;
  if (fValueIsNumber) {
    const double value = tokens.NumberValue();
    // Reported, yet the clause goes on: its result is the clause end's.
    if (value != std::floor(value)) {
      ReportError("The counted value ^1 is not an integer.", fValue, "");
    }
  }
  return CheckClauseEnd(tokens);
}

bool ParseVariablesClause(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                          std::vector<std::string>& fVariables, bool& fAll) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "VARIABLES", true),
               "IsTokenEqualWith(command, PSTD string(\"VARIABLES\"))");
  fVariables.clear();
  fAll = false;
  if (!ExpectEquals(tokens, "VARIABLES", false)) return false;

  tokens.Next();
  const std::uint32_t start = tokens.GetPosition();
  while (tokens.Type() == kWord) tokens.Next();
  // A word followed by "=" is the next clause's keyword, not a variable.
  if (tokens.SubType() == kEqualsCode) PutBackToken(tokens);
  const std::uint32_t end = tokens.GetPosition();

  tokens.SetPosition(start);
  tokens.Next();
  std::vector<int> indices;
  const bool result = ExistingVarList(dataSource, tokens, indices, end);
  for (const int index : indices) fVariables.emplace_back(dataSource.GetVariable(index).GetName());

  tokens.SetPosition(end - 1);
  tokens.Next();
  return result;
}

// ---- subcommands ---------------------------------------------------------

namespace {

// The clauses of a group, in the order their keywords are tested.
enum class Clause { kName, kLabelSource, kLabel, kCategoryLabels, kVariables, kValue, kNone };

Clause DichotomyClause(const TokenSequenceBase& tokens) {
  if (IsTokenEqualWith(tokens, "NAME", true)) return Clause::kName;
  if (IsTruncatedTokenEqualWith(tokens, "LABELSOURCE", kLabelSourceMinLength)) {
    return Clause::kLabelSource;
  }
  if (IsTokenEqualWith(tokens, "LABEL", true)) return Clause::kLabel;
  if (IsTokenEqualWith(tokens, "CATEGORYLABELS", true)) return Clause::kCategoryLabels;
  if (IsTokenEqualWith(tokens, "VARIABLES", true)) return Clause::kVariables;
  if (IsTokenEqualWith(tokens, "VALUE", true)) return Clause::kValue;
  return Clause::kNone;
}

Clause CategoryClause(const TokenSequenceBase& tokens) {
  if (IsTokenEqualWith(tokens, "NAME", true)) return Clause::kName;
  if (IsTokenEqualWith(tokens, "LABEL", true)) return Clause::kLabel;
  if (IsTokenEqualWith(tokens, "VARIABLES", true)) return Clause::kVariables;
  return Clause::kNone;
}

bool ParseClause(Clause clause, TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                 MRSetSubcommand& subcmd) {
  switch (clause) {
    case Clause::kName:
      return ParseNameClause(tokens, subcmd.fName);
    case Clause::kLabelSource:
      return ParseLabelSourceClause(tokens, subcmd.fLabelFromVarLabel);
    case Clause::kLabel:
      return ParseLabelClause(tokens, subcmd.fLabel);
    case Clause::kCategoryLabels:
      return ParseCategoryLabelsClause(tokens, subcmd.fCountedValueLabels);
    case Clause::kVariables:
      return ParseVariablesClause(tokens, dataSource, subcmd.fVariables, subcmd.fAll);
    case Clause::kValue:
      return ParseValueClause(tokens, subcmd.fValue, subcmd.fValueIsNumber);
    case Clause::kNone:
      break;
  }
  return false;
}

struct GroupGrammar {
  const char* emptyMessage;
  const char* unexpectedMessage;
  Clause (*clauseOf)(const TokenSequenceBase&);
};

// A group is a run of clauses up to the next "/" or the end of the command.
// It returns its last clause's result, so a group with no clause fails (and
// one followed at once by "/" fails without a message of its own).
bool ParseGroup(const GroupGrammar& grammar, TokenSequenceBase& tokens,
                const VORN_DataSource& dataSource, MRSetSubcommand& subcmd) {
  tokens.Next();
  if (tokens.Type() == kEndOfCommand) ReportError(grammar.emptyMessage, "", "");

  bool result = false;
  while (!IsSlash(tokens) && tokens.Type() != kEndOfCommand) {
    const Clause clause = grammar.clauseOf(tokens);
    if (clause == Clause::kNone) {
      ReportError(grammar.unexpectedMessage, TokenString(tokens), "");
      result = false;
      break;
    }
    result = ParseClause(clause, tokens, dataSource, subcmd);
    if (!result) break;
    tokens.Next();
  }
  PutBackToken(tokens);
  return result;
}

}  // namespace

bool ParseDichotomyGroup(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                         MRSetSubcommand& subcmd) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "MDGROUP", true),
               "IsTokenEqualWith(command, PSTD string(\"MDGROUP\"))");
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kMDGROUP,
               "subcmd.fType == MRSetSubcommand::kMDGROUP");
  static constexpr GroupGrammar kGrammar{
      "Empty MDGroup found", "Unexpected ^1 keyword in MDGROUP subcommand.", DichotomyClause};
  return ParseGroup(kGrammar, tokens, dataSource, subcmd);
}

bool ParseCategoryGroup(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                        MRSetSubcommand& subcmd) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "MCGROUP", true),
               "IsTokenEqualWith(command, PSTD string(\"MCGROUP\"))");
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kMCGROUP,
               "subcmd.fType == MRSetSubcommand::kMCGROUP");
  static constexpr GroupGrammar kGrammar{
      "Empty MCGroup found", "Unexpected ^1 keyword in MCGROUP subcommand.", CategoryClause};
  return ParseGroup(kGrammar, tokens, dataSource, subcmd);
}

namespace {

// DISPLAY and DELETE: the keyword, then NAME clauses up to the next "/" or
// the end. Only a NAME clause makes the result true, so a keyword followed at
// once by "/" fails without a message.
bool ParseNameListSubcommand(TokenSequenceBase& tokens, MRSetSubcommand& subcmd,
                             const char* emptyMessage, const char* unexpectedMessage) {
  tokens.Next();
  if (tokens.Type() == kEndOfCommand) ReportError(emptyMessage, "", "");

  bool result = false;
  while (!IsSlash(tokens) && tokens.Type() != kEndOfCommand) {
    if (!IsTokenEqualWith(tokens, "NAME", true)) {
      ReportError(unexpectedMessage, TokenString(tokens), "");
      result = false;
      break;
    }
    result = ParseNameList(tokens, subcmd.fNames, subcmd.fAll);
    if (!result) break;
    tokens.Next();
  }
  PutBackInline(tokens);
  return result;
}

}  // namespace

bool ParseDisplaySubcommand(TokenSequenceBase& tokens, MRSetSubcommand& subcmd) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "DISPLAY", true),
               "IsTokenEqualWith(command, PSTD string(\"DISPLAY\"))");
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kDISPLAY,
               "subcmd.fType == MRSetSubcommand::kDISPLAY");
  return ParseNameListSubcommand(tokens, subcmd, "Empty Display found",
                                 "Unexpected ^1 keyword in DISPLAY subcommand.");
}

bool ParseDeleteSubcommand(TokenSequenceBase& tokens, MRSetSubcommand& subcmd) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "DELETE", true),
               "IsTokenEqualWith(command, PSTD string(\"DELETE\"))");
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kDELETE,
               "subcmd.fType == MRSetSubcommand::kDELETE");
  return ParseNameListSubcommand(tokens, subcmd, "Empty Delete found",
                                 "Unexpected ^1 keyword in DELETE subcommand.");
}

bool ParseNameList(TokenSequenceBase& tokens, std::vector<std::string>& names, bool& all) {
  PARSE_ASSERT(IsTokenEqualWith(tokens, "NAME", true),
               "IsTokenEqualWith(command, PSTD string(\"NAME\"))");
  names.clear();

  tokens.Next();
  if (!IsEquals(tokens)) {
    ReportError("Names \"=\" was expected. Found ^1...", TokenString(tokens), "");
    return false;
  }

  tokens.Next();
  if (tokens.Type() != kDelimiter && tokens.SubType() != kLeftBracketCode &&
      tokens.SubType() != kAllCode) {
    ReportError("Square bracket expected.", "", "");
    return false;
  }
  // Any delimiter other than "[" is accepted here and records nothing.
  if (tokens.SubType() != kLeftBracketCode) {
    if (tokens.SubType() == kAllCode) all = true;
    return true;
  }

  tokens.Next();
  for (;;) {
    if (tokens.Type() == kWord) {
      names.push_back(TokenString(tokens));
      tokens.Next();
      continue;
    }
    if (tokens.Type() == kDelimiter) {
      if (tokens.SubType() == kRightBracketCode) return true;
      if (tokens.Type() == kEndOfCommand) {
        ReportError("Right square bracket expected. EoC found.", "", "");
      } else {
        ReportError("Name or right sq bracket expected. Found ^1...", TokenString(tokens), "");
      }
      return false;
    }
    // The end of the command inside the brackets reads as a missing bracket.
    if (tokens.Type() == kEndOfCommand) {
      ReportError("Square bracket expected.", "", "");
    } else {
      ReportError("Name or right sq bracket expected. Found ^1...", TokenString(tokens), "");
    }
    return false;
  }
}

// ---- completion checks ---------------------------------------------------

bool CheckNameListSubcommand(const MRSetSubcommand& subcmd, const VORN_DataSource&) {
  PARSE_ASSERT(
      subcmd.fType == MRSetSubcommand::kDISPLAY || subcmd.fType == MRSetSubcommand::kDELETE,
      "subcmd.fType == MRSetSubcommand::kDISPLAY || subcmd.fType == MRSetSubcommand::kDELETE");
  // Names are looked up when the command is applied; here they only have to
  // be there. The check never fails.
  for (const std::string& mrSetName : subcmd.fNames) {
    PARSE_ASSERT(!mrSetName.empty(), "!mrSetName.empty()");
  }
  return true;
}

bool CheckCategoryGroup(const MRSetSubcommand& subcmd, const VORN_DataSource& dataSource) {
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kMCGROUP,
               "subcmd.fType == MRSetSubcommand::kMCGROUP");
  // Reported, but the check goes on and may still pass.
  if (subcmd.fName.empty()) ReportError("MCGROUP has no name.", "", "");
  if (!subcmd.fAll && subcmd.fVariables.empty()) {
    ReportError("MCGROUP ^1 has no variable names.", subcmd.fName, "");
    return false;
  }
  std::int32_t variableType = -1;
  if (!subcmd.fAll &&
      !ValidateAgainstDataset(subcmd.fVariables, dataSource, subcmd.fValue, false, variableType)) {
    return false;
  }
  if (subcmd.fLabelFromVarLabel) {
    ReportError("^1:LABELSOURCE=VARLABEL is invalid for an MCGROUP...", subcmd.fName, "");
    return false;
  }
  return true;
}

bool CheckDichotomyGroup(const MRSetSubcommand& subcmd, const VORN_DataSource& dataSource) {
  PARSE_ASSERT(subcmd.fType == MRSetSubcommand::kMDGROUP,
               "subcmd.fType == MRSetSubcommand::kMDGROUP");
  if (subcmd.fName.empty()) {
    ReportError("MDGROUP has no name.", "", "");
    return false;
  }
  if (!subcmd.fAll && subcmd.fVariables.empty()) {
    ReportError("MDGROUP ^1 has no variable names.", subcmd.fName, "");
    return false;
  }
  if (subcmd.fValue.empty()) {
    ReportError("MDGROUP ^1 has no counted value.", subcmd.fName, "");
    return false;
  }

  // The kind of the counted value is compared only after the validation, so
  // its label checks see a value of the wrong kind first.
  bool numericVariables = false;
  if (!subcmd.fAll) {
    std::int32_t variableType = -1;
    if (!ValidateAgainstDataset(subcmd.fVariables, dataSource, subcmd.fValue,
                                subcmd.fCountedValueLabels, variableType)) {
      return false;
    }
    if (variableType == 0) {
      if (!subcmd.fValueIsNumber) {
        ReportError("^1:variables are numbers and countedval is string.", subcmd.fName, "");
        return false;
      }
      numericVariables = true;
    }
  }
  if (!numericVariables && subcmd.fValueIsNumber) {
    ReportError("^1:variables are string and countedval is number.", subcmd.fName, "");
    return false;
  }
  if (subcmd.fLabelFromVarLabel && !subcmd.fCountedValueLabels) {
    ReportError("^1:LABELSOURCE=VARLABEL requires CATEGORYLABELS=COUNTEDVALUES...", subcmd.fName,
                "");
    return false;
  }
  return true;
}

namespace {

struct CaseInsensitiveLess {
  bool operator()(const std::string& a, const std::string& b) const {
    return VORNMBstricmp_A(a.c_str(), b.c_str()) < 0;
  }
};

bool HasText(const char* text) { return text != nullptr && text[0] != '\0'; }

}  // namespace

bool ValidateAgainstDataset(const std::vector<std::string>& variableNames,
                            const VORN_DataSource& dataSource, std::string countedValue,
                            bool useCountedValueLabels, std::int32_t& variableType) {
  variableType = -1;
  std::set<std::string, CaseInsensitiveLess> seenLabels;
  std::string firstCountedValueLabel;

  if (variableNames.size() == 1) {
    ReportError("Only one variable ^1 was found.", variableNames.front(), "");
    return false;
  }
  if (variableNames.empty()) {
    ReportError("No variable was found.", "", "");
    return false;
  }

  for (const std::string& name : variableNames) {
    const int index = dataSource.FindVarIndex(name.c_str(), 0);
    if (index == -1) {
      ReportError("^1 variable not in the dataset.", name, "");
      return false;
    }
    const VORN_Variable& var = dataSource.GetVariable(index);

    const int type = var.GetType();
    if (variableType == -1) {
      variableType = type;
    } else if (variableType == 0) {
      if (type > 0) {
        ReportError("^1 variable has a different type.", var.GetName(), "");
        return false;
      }
    } else if (type == 0) {
      ReportError("^1 variable has a different type.", var.GetName(), "");
      return false;
    } else {
      PARSE_ASSERT(var.GetType() > 0, "var.GetType() > 0");
      variableType = std::min(variableType, type);
    }

    if (countedValue.empty()) continue;

    if (!useCountedValueLabels && HasText(var.GetLabel()) &&
        !seenLabels.insert(var.GetLabel()).second) {
      ReportWarning("Duplicate label found for variable ^1.", var.GetName(), "");
    }

    if (variableType > 0 && TrimmedLength(countedValue) > variableType) {
      ReportError("CountVal ^1 is wider than the narrowest variable.", countedValue, "");
      return false;
    }

    VORN_ValueLabelMap valueLabels(var.GetValueLabels());
    valueLabels.Reset();
    const double numericValue = std::atof(countedValue.c_str());
    const char* label =
        variableType != 0 ? valueLabels.GetLabel(countedValue) : valueLabels.GetLabel(numericValue);

    if (useCountedValueLabels) {
      // The counted value's label becomes the variable's category label.
      if (!HasText(label)) {
        ReportError("No countedval label for variable ^1...", var.GetName(), "");
        return false;
      }
      if (!seenLabels.insert(label).second) {
        ReportError("CountedVal label of variable ^1 is not unique...", var.GetName(), "");
        return false;
      }
    } else if (HasText(label)) {
      if (firstCountedValueLabel.empty()) {
        firstCountedValueLabel = label;
      } else if (VORNMBstricmp_A(label, firstCountedValueLabel.c_str()) != 0) {
        ReportWarning("CountVal ^1 label different in the variables.", countedValue, "");
      }
    }
  }
  return true;
}
