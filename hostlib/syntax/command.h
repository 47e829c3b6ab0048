// One command of the input, lexed: its text and its tokens.
//
// A token is a small value: kind, code, and where it stands in the command's
// text. The last token is always the end-of-command token.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hostlib::syntax {

struct Token {
  int type = 1;              // TokenSequenceBase::TokenType
  int code = 0;              // TokenSequenceBase::SubType()
  std::uint32_t offset = 0;  // into Command::Text()
  std::uint32_t length = 0;  // bytes as written, quotes included
  double number = 0.0;       // the value of a number token
};

// Where a byte of the input stands, counted from 1; columns count characters.
struct SourcePosition {
  int line = 1;
  int column = 1;
};

// The input lines a command was read from, as written (line ends cut off),
// for messages that show where they stand.
struct SourceLines {
  int first = 1;  // the number of lines[0]
  std::vector<std::string> lines;
};

class Command {
 public:
  Command(std::string text, std::vector<Token> tokens, std::vector<SourcePosition> positions,
          SourceLines lines = {});

  const std::string& Text() const { return text_; }
  std::size_t Size() const { return tokens_.size(); }
  const Token& At(std::size_t index) const { return tokens_[index]; }
  // The token as TokenString gives it (see host/output.h).
  std::string TokenText(std::size_t index) const;
  // Where token `index` begins in the input.
  SourcePosition PositionOf(std::size_t index) const { return positions_[index]; }
  // Input line `line` as written; empty for a line outside the command.
  std::string_view SourceLine(int line) const;
  // The line where the command began.
  int FirstLine() const { return lines_.lines.empty() ? PositionOf(0).line : lines_.first; }

 private:
  std::string text_;
  std::vector<Token> tokens_;
  std::vector<SourcePosition> positions_;  // one per token
  SourceLines lines_;
};

}  // namespace hostlib::syntax
