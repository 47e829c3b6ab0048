// Splits input text into commands and lexes them.
//
// A command begins at its first token and ends at a line whose last
// non-blank character outside a quoted string is a period (the terminator,
// which is no token), at an empty or all-blank line, or at the end of the
// input. A command whose first character is '*' is a comment: it ends by the
// same rules, but quotes in it mean nothing and it is never lexed.
//
// Also: blanks are space, tab and the Unicode space separators; a line that
// holds only a terminator begins no command; lexical errors are collected and
// the first one is reported, and lexing goes on past it.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "hostlib/syntax/command.h"
#include "hostlib/syntax/lexer.h"

namespace hostlib::syntax {

struct SplitCommand {
  // The lexed command; null for a comment. With a lexical error it holds the
  // tokens that could be read, and must not be run.
  std::shared_ptr<const Command> command;
  bool comment = false;           // skipped; not counted as a command
  std::optional<LexError> error;  // the first lexical error
  SourcePosition start;           // its first non-blank character
};

// Incremental form, for input that arrives line by line (the prompt).
class CommandSplitter {
 public:
  // `firstLine` numbers the first line that AddLine receives.
  explicit CommandSplitter(int firstLine = 1);

  // One line, without its line end (a trailing CR is dropped; a byte-order
  // mark opening the first line is skipped). Returns the command that this
  // line ends, if any.
  std::optional<SplitCommand> AddLine(std::string_view line);

  // End of the input: the command still open, if any.
  std::optional<SplitCommand> Finish();

  // True while a command has begun and has not ended.
  bool InCommand() const { return open_; }

  // The number the next line will get.
  int NextLine() const { return nextLine_; }

 private:
  void Append(std::string_view line, int lineNumber, const LineEnd& end);
  SplitCommand Close();

  int nextLine_;
  bool firstCall_ = true;
  bool open_ = false;
  bool comment_ = false;
  SourcePosition start_;
  SourcePosition endPosition_;
  std::string text_;
  SourceLines lines_;
  std::vector<Token> tokens_;
  std::vector<SourcePosition> positions_;
  std::vector<LexError> errors_;
};

// All commands of a whole input (UTF-8, LF or CRLF line ends).
std::vector<SplitCommand> SplitCommands(std::string_view input);

// True when the lines hold a command and the last line ends it (by its
// terminator, or by being blank after a command): the prompt then runs what
// it has gathered.
bool IsCompleteCommand(std::string_view lines);

}  // namespace hostlib::syntax
