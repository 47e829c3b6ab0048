// MRFREQ /TABLES=$a $b [BY var $set ...] [/WEIGHT=var] [/CELLS=COUNT COLUMN ZTEST]
//        [/ALPHA=0.05] [/DUPLICATES={EXCLUDE|INCLUDE}].
#include "backend/mrfreq/mrfreq_syntax.h"

#include <algorithm>
#include <set>

#include "host/data_source.h"
#include "host/output.h"
#include "host/syntax.h"

namespace {

using Tokens = TokenSequenceBase;

bool IsWord(const Tokens& tokens) { return tokens.Type() == Tokens::kString; }
bool IsDelimiter(const Tokens& tokens, int code) {
  return tokens.Type() == Tokens::kDelimiter && tokens.SubType() == code;
}
bool IsEnd(const Tokens& tokens) { return tokens.Type() == Tokens::kEndOfCommand; }
bool IsKeyword(const Tokens& tokens, const char* keyword) {
  return IsWord(tokens) && KeywordMatch(TokenStringCaps(tokens).c_str(), keyword);
}
// The end of a subcommand: a slash or the end of the command.
bool AtSubcommandEnd(const Tokens& tokens) {
  return IsEnd(tokens) || IsDelimiter(tokens, Tokens::kSlash);
}

// Steps past an optional "=".
void SkipEquals(Tokens& tokens) {
  tokens.Next();
  if (IsDelimiter(tokens, Tokens::kEquals)) tokens.Next();
}

bool FindSet(const std::vector<VariableSet>& sets, const VORN_DataSource& dataSource,
             const std::string& name, MrfreqItem& item) {
  const std::string wanted = name;
  const auto set = std::find_if(sets.begin(), sets.end(), [&](const VariableSet& candidate) {
    VariableSet probe(wanted, VariableSet::kMultipleCategorySet);
    return candidate.GetName(kUpperCase) == probe.GetName(kUpperCase);
  });
  if (set == sets.end()) {
    ReportMrfreqError("MRFREQ: ^1 is not a multiple response set of the dataset.", name);
    return false;
  }
  item.kind = set->GetType() == VariableSet::kMultipleDichotomySet ? MrfreqItem::kDichotomies
                                                                   : MrfreqItem::kCategories;
  item.name = set->GetName(kAsStored);
  item.label = set->GetLabel();
  item.countedValue = set->GetValue();
  item.countedValueLabels = set->qUseVariableCategoryLabels();
  for (const std::string& member : set->GetVariableNames(kAsStored)) {
    const int index = dataSource.FindVarIndex(member.c_str(), 0);
    if (index < 0) {
      ReportMrfreqError(
          "MRFREQ: the set ^1 names the variable ^2, which the dataset no longer has.", item.name,
          member);
      return false;
    }
    item.variables.push_back(index);
  }
  if (item.variables.empty()) {
    ReportMrfreqError("MRFREQ: the set ^1 has no variables.", item.name);
    return false;
  }
  item.text = dataSource.GetVariable(item.variables.front()).GetType() > 0;
  return true;
}

bool FindVariable(const VORN_DataSource& dataSource, const std::string& name, MrfreqItem& item) {
  const int index = dataSource.FindVarIndex(name.c_str(), 0);
  if (index < 0) {
    ReportMrfreqError("MRFREQ: ^1 is not a variable of the dataset.", name);
    return false;
  }
  const VORN_Variable& variable = dataSource.GetVariable(index);
  item.kind = MrfreqItem::kVariable;
  item.name = variable.GetName();
  item.label = variable.GetLabel() != nullptr ? variable.GetLabel() : "";
  item.variables = {index};
  item.text = variable.GetType() > 0;
  return true;
}

bool IsSetName(const std::string& name) { return !name.empty() && name[0] == '$'; }

// TABLES = $a $b [BY item ...]: one table per set, or per set and BY item.
bool ParseTables(Tokens& tokens, const VORN_DataSource& dataSource, MrfreqRequest& request) {
  const auto sets = VariableSets(dataSource, kMultipleResponseSets);
  std::vector<MrfreqItem> rows;
  std::vector<MrfreqItem> columns;
  bool by = false;
  for (SkipEquals(tokens); !AtSubcommandEnd(tokens); tokens.Next()) {
    if (IsWord(tokens) && TokenStringCaps(tokens) == "BY") {
      if (by || rows.empty()) {
        ReportMrfreqError(
            "MRFREQ TABLES: BY must stand once, between the sets and what they are "
            "crossed with.");
        return false;
      }
      by = true;
      continue;
    }
    const std::string name = TokenString(tokens);
    if (!IsWord(tokens)) {
      ReportMrfreqError("MRFREQ TABLES: expected the name of a set or variable. Found ^1.", name);
      return false;
    }
    MrfreqItem item;
    if (!by && !IsSetName(name)) {
      ReportMrfreqError(
          "MRFREQ TABLES: ^1 is no multiple response set; the names before BY must be sets "
          "(their names begin with $).",
          name);
      return false;
    }
    if (IsSetName(name) ? !FindSet(sets, dataSource, name, item)
                        : !FindVariable(dataSource, name, item)) {
      return false;
    }
    (by ? columns : rows).push_back(std::move(item));
  }
  if (rows.empty()) {
    ReportMrfreqError("MRFREQ TABLES: name at least one multiple response set.");
    return false;
  }
  if (by && columns.empty()) {
    ReportMrfreqError("MRFREQ TABLES: BY must be followed by variables or sets.");
    return false;
  }
  for (const MrfreqItem& row : rows) {
    if (!by) request.tables.push_back(MrfreqTable{row, false, {}});
    for (const MrfreqItem& column : columns)
      request.tables.push_back(MrfreqTable{row, true, column});
  }
  return true;
}

bool ParseWeight(Tokens& tokens, const VORN_DataSource& dataSource, MrfreqRequest& request) {
  SkipEquals(tokens);
  const std::string name = TokenString(tokens);
  if (!IsWord(tokens)) {
    ReportMrfreqError("MRFREQ WEIGHT: expected the name of a numeric variable. Found ^1.", name);
    return false;
  }
  const int index = dataSource.FindVarIndex(name.c_str(), 0);
  if (index < 0) {
    ReportMrfreqError("MRFREQ: ^1 is not a variable of the dataset.", name);
    return false;
  }
  if (dataSource.GetVariable(index).GetType() != 0) {
    ReportMrfreqError("MRFREQ WEIGHT: ^1 is a string variable; a weight must be numeric.", name);
    return false;
  }
  request.weight = index;
  tokens.Next();
  if (!AtSubcommandEnd(tokens)) {
    ReportMrfreqError("MRFREQ WEIGHT takes one variable. Found ^1 after it.", TokenString(tokens));
    return false;
  }
  return true;
}

bool ParseCells(Tokens& tokens, MrfreqRequest& request) {
  request.showCounts = request.showColumnPercents = request.showTests = false;
  bool any = false;
  for (SkipEquals(tokens); !AtSubcommandEnd(tokens); tokens.Next()) {
    if (IsKeyword(tokens, "COUNT")) {
      request.showCounts = true;
    } else if (IsKeyword(tokens, "COLUMN")) {
      request.showColumnPercents = true;
    } else if (IsKeyword(tokens, "ZTEST")) {
      request.showTests = true;
    } else if (IsKeyword(tokens, "ALL") || IsDelimiter(tokens, Tokens::kAll)) {
      request.showCounts = request.showColumnPercents = request.showTests = true;
    } else {
      ReportMrfreqError(
          "MRFREQ CELLS: ^1 is not a cell statistic; use COUNT, COLUMN, ZTEST or ALL.",
          TokenString(tokens));
      return false;
    }
    any = true;
  }
  if (!any) {
    ReportMrfreqError("MRFREQ CELLS: name at least one of COUNT, COLUMN, ZTEST or ALL.");
    return false;
  }
  return true;
}

bool ParseAlpha(Tokens& tokens, MrfreqRequest& request) {
  SkipEquals(tokens);
  if (tokens.Type() != Tokens::kNumber || !(tokens.NumberValue() > 0) ||
      !(tokens.NumberValue() < 1)) {
    ReportMrfreqError("MRFREQ ALPHA: expected a number between 0 and 1. Found ^1.",
                      TokenString(tokens));
    return false;
  }
  request.alpha = tokens.NumberValue();
  tokens.Next();
  return true;
}

bool ParseDuplicates(Tokens& tokens, MrfreqRequest& request) {
  SkipEquals(tokens);
  if (IsKeyword(tokens, "INCLUDE")) {
    request.countDuplicates = true;
  } else if (IsKeyword(tokens, "EXCLUDE")) {
    request.countDuplicates = false;
  } else {
    ReportMrfreqError("MRFREQ DUPLICATES: expected INCLUDE or EXCLUDE. Found ^1.",
                      TokenString(tokens));
    return false;
  }
  tokens.Next();
  return true;
}

}  // namespace

void ReportMrfreqError(const char* text, const std::string& first, const std::string& second) {
  BpComposite message(text, true);
  if (!first.empty()) message.Add(BpString(first, false));
  if (!second.empty()) message.Add(BpString(second, false));
  message.Finish();
  BpError(message, kShowInOutput, kErrorLevel);
}

bool ParseMrfreq(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                 MrfreqRequest& request) {
  std::set<std::string> seen;
  tokens.Next();  // the command word
  tokens.Next();
  while (!IsEnd(tokens)) {
    if (IsDelimiter(tokens, Tokens::kSlash)) tokens.Next();
    if (IsEnd(tokens)) break;
    const std::string keyword = TokenStringCaps(tokens);
    const char* subcommand = nullptr;
    for (const char* known : {"TABLES", "WEIGHT", "CELLS", "ALPHA", "DUPLICATES"}) {
      if (IsKeyword(tokens, known)) subcommand = known;
    }
    if (subcommand == nullptr) {
      ReportMrfreqError(
          "MRFREQ: ^1 is not a subcommand of MRFREQ; use TABLES, WEIGHT, CELLS, ALPHA or "
          "DUPLICATES.",
          TokenString(tokens));
      return false;
    }
    const std::string name = subcommand;
    if (name != "TABLES" && !seen.insert(name).second) {
      ReportMrfreqError("MRFREQ: the subcommand ^1 stands more than once.", name);
      return false;
    }
    bool parsed = false;
    if (name == "TABLES") parsed = ParseTables(tokens, dataSource, request);
    if (name == "WEIGHT") parsed = ParseWeight(tokens, dataSource, request);
    if (name == "CELLS") parsed = ParseCells(tokens, request);
    if (name == "ALPHA") parsed = ParseAlpha(tokens, request);
    if (name == "DUPLICATES") parsed = ParseDuplicates(tokens, request);
    if (!parsed) return false;
    if (!AtSubcommandEnd(tokens)) {
      ReportMrfreqError("MRFREQ: expected \"/\" before the next subcommand. Found ^1.",
                        TokenString(tokens));
      return false;
    }
  }
  if (request.tables.empty()) {
    ReportMrfreqError("MRFREQ needs a TABLES subcommand naming the sets to count.");
    return false;
  }
  return true;
}
