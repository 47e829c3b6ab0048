// The lexer works one line at a time: a token never spans lines, and a
// command's end is decided by its last line alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hostlib/syntax/command.h"

namespace hostlib::syntax {

enum class LexErrorKind {
  kUnclosedQuote,     // at the opening quote
  kInvalidUtf8,       // at the first byte that is not UTF-8
  kControlCharacter,  // any control character but tab
};

struct LexError {
  LexErrorKind kind = LexErrorKind::kInvalidUtf8;
  SourcePosition position;
  std::string message;  // English, without the position
};

// Space, tab and the Unicode space separators.
bool IsBlank(std::int32_t codePoint);

// The SubType() of a delimiter: = 3, / 11, [ 36, ] 37, any other character
// 1000 plus its code point (so never 3, 11, 35, 36 or 37).
int DelimiterCode(std::int32_t codePoint);

// How a line ends a command. Without `quotes`, quote characters are taken
// as any other (comments).
struct LineEnd {
  bool blank = false;          // nothing but blanks
  bool terminated = false;     // last non-blank character outside quotes is '.'
  std::size_t terminator = 0;  // its byte offset, when terminated
  int terminatorColumn = 0;
};
LineEnd ScanLineEnd(std::string_view line, bool quotes = true);

// Appends the tokens of one line (the terminator already cut off) to those
// of the command so far; the sign rule looks at the last of them.
// `offsetBase` is where the line starts in the command's text.
void LexLine(std::string_view line, int lineNumber, std::uint32_t offsetBase,
             std::vector<Token>& tokens, std::vector<SourcePosition>& positions,
             std::vector<LexError>& errors);

}  // namespace hostlib::syntax
