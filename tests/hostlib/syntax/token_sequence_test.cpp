#include <gtest/gtest.h>

#include <string>

#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/syntax/splitter.h"
#include "hostlib/syntax/token_sequence.h"

namespace {

std::unique_ptr<TokenSequenceBase> Sequence(std::string_view input) {
  return hostlib::syntax::TokenSequenceOver(hostlib::syntax::SplitCommands(input).at(0).command);
}

TEST(TokenSequenceTest, CursorStepsBackAndStaysAtEnd) {
  const auto owned = Sequence("a / c.");
  TokenSequenceBase& tokens = *owned;
  EXPECT_EQ(tokens.GetPosition(), 0u);
  EXPECT_TRUE(tokens.Next());
  EXPECT_EQ(TokenString(tokens), "a");
  EXPECT_TRUE(tokens.Next());
  EXPECT_EQ(tokens.SubType(), TokenSequenceBase::kSlash);
  // Steps back one token: the next Next() makes "/" current again.
  tokens.SetPosition(tokens.GetPosition() - 1);
  tokens.Next();
  EXPECT_EQ(TokenString(tokens), "a");
  EXPECT_TRUE(tokens.Next());
  EXPECT_EQ(tokens.GetPosition(), 1u);
  tokens.SetPosition(2);
  EXPECT_EQ(tokens.GetPosition(), 1u);  // takes effect at Next()
  EXPECT_TRUE(tokens.Next());
  EXPECT_EQ(TokenString(tokens), "c");
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(tokens.Next());
    EXPECT_EQ(tokens.GetPosition(), 3u);
    EXPECT_EQ(tokens.Type(), TokenSequenceBase::kEndOfCommand);
    EXPECT_EQ(TokenString(tokens), "end of command");
  }
  tokens.SetPosition(99);
  EXPECT_FALSE(tokens.Next());
  EXPECT_EQ(tokens.GetPosition(), 3u);
}

TEST(TokenSequenceTest, EmptyCommandHoldsOnlyTheEnd) {
  VORN_TokenSequence tokens(false);
  EXPECT_FALSE(tokens.Next());
  EXPECT_EQ(tokens.Type(), TokenSequenceBase::kEndOfCommand);
  EXPECT_EQ(tokens.GetPosition(), 0u);
  EXPECT_FALSE(tokens.Next());
}

TEST(TokenSequenceTest, TokenStringAndCaps) {
  struct Case {
    std::string input;
    std::string text, caps;
  };
  const Case cases[] = {
      {"display", "display", "DISPLAY"},
      {"'it''s grün'", "it's grün", "IT'S GRÜN"},
      {"ıstanbul", "ıstanbul", "ISTANBUL"},
      {"1.0", "1.0", "1.0"},
      {"-1e3", "-1e3", "-1E3"},
      {"=", "=", "="},
      {"σπίτι", "σπίτι", "ΣΠΊΤΙ"},
  };
  for (const Case& c : cases) {
    const auto owned = Sequence(c.input);
    TokenSequenceBase& tokens = *owned;
    tokens.Next();
    EXPECT_EQ(TokenString(tokens), c.text) << c.input;
    EXPECT_EQ(TokenStringCaps(tokens), c.caps) << c.input;
  }
  const auto owned = Sequence("a 2.5");
  TokenSequenceBase& tokens = *owned;
  tokens.Next();
  tokens.Next();
  EXPECT_DOUBLE_EQ(tokens.NumberValue(), 2.5);
}

TEST(KeywordMatchTest, ExactOrPrefixOfThreeCharacters) {
  struct Case {
    const char* token;
    const char* keyword;
    bool match;
  };
  const Case cases[] = {
      {"DISPLAY", "DISPLAY", true},
      {"DIS", "DISPLAY", true},
      {"DISP", "DISPLAY", true},
      {"DI", "DISPLAY", false},
      {"DISPLAYS", "DISPLAY", false},
      {"DSP", "DISPLAY", false},
      {"TO", "TO", true},
      {"T", "TO", false},
      {"ÄÖÜ", "ÄÖÜX", true},
      {"ÄÖ", "ÄÖÜX", false},
      {"", "DISPLAY", false},
      {nullptr, "X", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(KeywordMatch(c.token, c.keyword), c.match)
        << (c.token ? c.token : "null") << " " << c.keyword;
  }
}

}  // namespace
