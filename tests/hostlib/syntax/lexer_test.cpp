#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/syntax.h"
#include "hostlib/syntax/splitter.h"

namespace {

using hostlib::syntax::LexErrorKind;
using hostlib::syntax::SplitCommands;

struct Lexed {
  int type;
  int code;
  std::string text;
  friend bool operator==(const Lexed&, const Lexed&) = default;
};

std::ostream& operator<<(std::ostream& out, const Lexed& token) {
  return out << "{" << token.type << "," << token.code << ",'" << token.text << "'}";
}

// The tokens of the single command in `input`, end of command left out.
std::vector<Lexed> Tokens(std::string_view input) {
  const auto commands = SplitCommands(input);
  EXPECT_EQ(commands.size(), 1u) << input;
  std::vector<Lexed> out;
  if (commands.empty() || !commands[0].command) {
    return out;
  }
  const auto& command = *commands[0].command;
  EXPECT_EQ(command.At(command.Size() - 1).type, TokenSequenceBase::kEndOfCommand);
  for (std::size_t i = 0; i + 1 < command.Size(); ++i) {
    out.push_back({command.At(i).type, command.At(i).code, command.TokenText(i)});
  }
  return out;
}

constexpr int W = TokenSequenceBase::kString;
constexpr int N = TokenSequenceBase::kNumber;
constexpr int Q = TokenSequenceBase::kQuotedString;
constexpr int D = TokenSequenceBase::kDelimiter;

TEST(LexerTest, TokenTypesAndCodes) {
  struct Case {
    std::string input;
    std::vector<Lexed> expected;
  };
  const Case cases[] = {
      {"A /B=$a", {{W, 0, "A"}, {D, 11, "/"}, {W, 0, "B"}, {D, 3, "="}, {W, 0, "$a"}}},
      {"x.1_y #n @v $s", {{W, 0, "x.1_y"}, {W, 0, "#n"}, {W, 0, "@v"}, {W, 0, "$s"}}},
      {"größe βάρος 年齢 नाम", {{W, 0, "größe"}, {W, 0, "βάρος"}, {W, 0, "年齢"}, {W, 0, "नाम"}}},
      {"ALL all aLl ALLx", {{W, 35, "ALL"}, {W, 35, "all"}, {W, 35, "aLl"}, {W, 0, "ALLx"}}},
      {"[a] = /", {{D, 36, "["}, {W, 0, "a"}, {D, 37, "]"}, {D, 3, "="}, {D, 11, "/"}}},
      {"( ) , ; %",
       {{D, 1040, "("}, {D, 1041, ")"}, {D, 1044, ","}, {D, 1059, ";"}, {D, 1037, "%"}}},
      {"€", {{D, 1000 + 0x20AC, "€"}}},
      {"'it''s' \"say \"\"hi\"\"\" '' 'a\"b'",
       {{Q, 0, "it's"}, {Q, 0, "say \"hi\""}, {Q, 0, ""}, {Q, 0, "a\"b"}}},
      {"1 1.0 1. .5", {{N, 0, "1"}, {N, 0, "1.0"}, {N, 0, "1."}, {N, 0, ".5"}}},
      {"1e3 1.5E-2 2e+1", {{N, 0, "1e3"}, {N, 0, "1.5E-2"}, {N, 0, "2e+1"}}},
      {"1e 1abc 1.5.3",
       {{N, 0, "1"}, {W, 0, "e"}, {N, 0, "1"}, {W, 0, "abc"}, {N, 0, "1.5"}, {N, 0, ".3"}}},
      {". a.b", {{D, 1046, "."}, {W, 0, "a.b"}}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Tokens(c.input), c.expected) << c.input;
  }
}

TEST(LexerTest, SignBelongsToNumberAfterDelimiterOrAtStart) {
  struct Case {
    std::string input;
    std::vector<Lexed> expected;
  };
  const Case cases[] = {
      {"-1", {{N, 0, "-1"}}},
      {"v=-1", {{W, 0, "v"}, {D, 3, "="}, {N, 0, "-1"}}},
      {"(+.5)", {{D, 1040, "("}, {N, 0, "+.5"}, {D, 1041, ")"}}},
      {"a -1", {{W, 0, "a"}, {D, 1045, "-"}, {N, 0, "1"}}},
      {"1 -1", {{N, 0, "1"}, {D, 1045, "-"}, {N, 0, "1"}}},
      {"'s' -1", {{Q, 0, "s"}, {D, 1045, "-"}, {N, 0, "1"}}},
      {"= - 1", {{D, 3, "="}, {D, 1045, "-"}, {N, 0, "1"}}},
      {"=--1", {{D, 3, "="}, {D, 1045, "-"}, {N, 0, "-1"}}},
      {"=\n-1", {{D, 3, "="}, {N, 0, "-1"}}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Tokens(c.input), c.expected) << c.input;
  }
}

TEST(LexerTest, NumberValues) {
  const auto commands = SplitCommands("v=12,-1.5,.25,1e3,-2E-2,1e999,-1e999,1e-999,0.0");
  const auto& command = *commands.at(0).command;
  std::vector<double> values;
  for (std::size_t i = 0; i < command.Size(); ++i) {
    if (command.At(i).type == TokenSequenceBase::kNumber) {
      values.push_back(command.At(i).number);
    }
  }
  const std::vector<double> expected = {12, -1.5, 0.25, 1000, -0.02, HUGE_VAL, -HUGE_VAL, 0.0, 0.0};
  EXPECT_EQ(values, expected);
}

TEST(LexerTest, LexicalErrorsGiveLineAndColumn) {
  struct Case {
    std::string input;
    LexErrorKind kind;
    int line, column;
  };
  const Case cases[] = {
      {"MRSET 'abc", LexErrorKind::kUnclosedQuote, 1, 7},
      {"MRSET\n  ä \"abc.", LexErrorKind::kUnclosedQuote, 2, 5},
      {"MRSET é\xFF", LexErrorKind::kInvalidUtf8, 1, 8},
      {"MRSET 'é\xC3'", LexErrorKind::kInvalidUtf8, 1, 9},
      {"MRSET \x01", LexErrorKind::kControlCharacter, 1, 7},
      {"MRSET a\rb", LexErrorKind::kControlCharacter, 1, 8},
      {"MRSET\n'\x7F'", LexErrorKind::kControlCharacter, 2, 2},
  };
  for (const Case& c : cases) {
    const auto commands = SplitCommands(c.input);
    ASSERT_EQ(commands.size(), 1u) << c.input;
    ASSERT_TRUE(commands[0].error.has_value()) << c.input;
    EXPECT_EQ(commands[0].error->kind, c.kind) << c.input;
    EXPECT_EQ(commands[0].error->position.line, c.line) << c.input;
    EXPECT_EQ(commands[0].error->position.column, c.column) << c.input;
    EXPECT_FALSE(commands[0].error->message.empty());
  }
  EXPECT_FALSE(SplitCommands("MRSET\ta 'b'.")[0].error.has_value());
}

}  // namespace
