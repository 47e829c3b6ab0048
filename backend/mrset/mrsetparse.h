// The parse phase of MRSET: the token and message helpers, and the parsers
// and checks that turn a command's tokens into MRSetSubcommand records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backend/mrset/mrset.h"

class TokenSequenceBase;
class VORN_DataSource;

// ---- messages and tokens -------------------------------------------------

void ReportError(const std::string& message, const std::string& arg1, const std::string& arg2);
void ReportWarning(const std::string& message, const std::string& arg1, const std::string& arg2);

bool IsTokenEqualWith(const TokenSequenceBase& tokens, const std::string& text,
                      bool useKeywordMatch);
bool IsTruncatedTokenEqualWith(const TokenSequenceBase& tokens, const std::string& text,
                               unsigned int minLength);
void PutBackToken(TokenSequenceBase& tokens);
bool CheckClauseEnd(TokenSequenceBase& tokens);
std::int32_t TrimmedLength(const std::string& text);

// ---- the driver ----------------------------------------------------------

bool ParseSubcommands(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                      MRSetSubcommands& subcommands);
bool ParseSubcommand(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                     MRSetSubcommand& subcmd);
MRSetSubcommand::Type GetSubcommandType(const TokenSequenceBase& tokens);

// ---- clauses -------------------------------------------------------------

bool ParseNameClause(TokenSequenceBase& tokens, std::string& fName);
bool ParseLabelClause(TokenSequenceBase& tokens, std::string& fLabel);
bool ParseLabelSourceClause(TokenSequenceBase& tokens, bool& fLabelFromVarLabel);
bool ParseCategoryLabelsClause(TokenSequenceBase& tokens, bool& fCountedValueLabels);
bool ParseValueClause(TokenSequenceBase& tokens, std::string& fValue, bool& fValueIsNumber);
bool ParseVariablesClause(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                          std::vector<std::string>& fVariables, bool& fAll);

// ---- subcommands ---------------------------------------------------------

bool ParseDichotomyGroup(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                         MRSetSubcommand& subcmd);
bool ParseCategoryGroup(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                        MRSetSubcommand& subcmd);
bool ParseDisplaySubcommand(TokenSequenceBase& tokens, MRSetSubcommand& subcmd);
bool ParseDeleteSubcommand(TokenSequenceBase& tokens, MRSetSubcommand& subcmd);
bool ParseNameList(TokenSequenceBase& tokens, std::vector<std::string>& names, bool& all);

// ---- completion checks ---------------------------------------------------

bool CheckNameListSubcommand(const MRSetSubcommand& subcmd, const VORN_DataSource& dataSource);
bool CheckCategoryGroup(const MRSetSubcommand& subcmd, const VORN_DataSource& dataSource);
bool CheckDichotomyGroup(const MRSetSubcommand& subcmd, const VORN_DataSource& dataSource);
bool ValidateAgainstDataset(const std::vector<std::string>& variableNames,
                            const VORN_DataSource& dataSource, std::string countedValue,
                            bool useCountedValueLabels, std::int32_t& variableType);
