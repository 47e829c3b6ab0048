// The token helpers that every clause parser leans on, and what a command
// saves. Messages and tables are covered end to end by the golden cases of
// the mrset program.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "backend/mrset/mrsetparse.h"
#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/data/dataset.h"
#include "hostlib/session/session.h"
#include "hostlib/syntax/splitter.h"
#include "hostlib/syntax/token_sequence.h"

extern "C" void MRSET();

namespace {

using hostlib::Session;

class MrsetParseTest : public testing::Test {
 protected:
  void SetUp() override { Session::Instance().Reset(); }
  void TearDown() override { Session::Instance().Reset(); }

  // A token sequence over `text` with token `current` current.
  static std::unique_ptr<TokenSequenceBase> TokensAt(const std::string& text, int current) {
    auto tokens =
        hostlib::syntax::TokenSequenceOver(hostlib::syntax::SplitCommands(text).at(0).command);
    for (int i = 0; i <= current; ++i) tokens->Next();
    return tokens;
  }

  static std::vector<std::string> Messages() {
    std::vector<std::string> texts;
    for (const auto& item : Session::Instance().Output().Items()) {
      if (const auto* message = std::get_if<hostlib::output::Message>(&item)) {
        texts.push_back(ComposeText(message->text));
      }
    }
    return texts;
  }
};

TEST_F(MrsetParseTest, ClauseEndAcceptsWhatMayFollowAClause) {
  struct Case {
    const char* text;  // token 2 is the clause's value
    bool accepted;
    std::string current;  // the current token afterwards
    std::vector<std::string> messages;
  };
  const std::vector<Case> cases = {
      {"NAME = $a", true, "end of command", {}},
      {"NAME = $a / DISPLAY", true, "$a", {}},
      {"NAME = $a LABEL = 'x'", true, "$a", {}},
      {"NAME = $a LABEL", true, "$a", {}},
      {"NAME = $a LABEL 5", true, "$a", {}},
      {"NAME = $a LABEL (", false, "(", {"Unexpected token ( in this context"}},
      {"NAME = $a ,", false, ",", {"Unexpected token , in this context"}},
      {"NAME = $a 'x'", false, "x", {"Unexpected token x in this context"}},
      {"NAME = $a 5", false, "5", {"Unexpected token 5 in this context"}},
  };
  for (const Case& c : cases) {
    Session::Instance().Reset();
    auto tokens = TokensAt(c.text, 2);
    EXPECT_EQ(c.accepted, CheckClauseEnd(*tokens)) << c.text;
    EXPECT_EQ(c.current, TokenString(*tokens)) << c.text;
    EXPECT_EQ(c.messages, Messages()) << c.text;
  }
}

TEST_F(MrsetParseTest, KeywordTests) {
  struct Case {
    const char* token;
    bool label;        // IsTokenEqualWith "LABEL", keyword rule
    bool labelSource;  // IsTruncatedTokenEqualWith "LABELSOURCE", 6
  };
  const std::vector<Case> cases = {
      {"LAB", true, false},    {"label", true, false},     {"LABELS", false, true},
      {"labels", false, true}, {"LABELSXYZ", false, true}, {"LABELSOURCE", false, true},
      {"LA", false, false},    {"LABELX", false, false},
  };
  for (const Case& c : cases) {
    const auto tokens = TokensAt(c.token, 0);
    EXPECT_EQ(c.label, IsTokenEqualWith(*tokens, "LABEL", true)) << c.token;
    EXPECT_EQ(c.labelSource, IsTruncatedTokenEqualWith(*tokens, "LABELSOURCE", 6)) << c.token;
  }
  EXPECT_TRUE(IsTokenEqualWith(*TokensAt("/", 0), "/", false));
  EXPECT_FALSE(IsTokenEqualWith(*TokensAt("DISPLAY", 0), "DIS", false));
}

TEST_F(MrsetParseTest, TrimmedLengthCountsOnlyBlanksAsBlank) {
  EXPECT_EQ(4, TrimmedLength("  ab c  "));
  EXPECT_EQ(0, TrimmedLength("   "));
  EXPECT_EQ(0, TrimmedLength(""));
  EXPECT_EQ(3, TrimmedLength("\tx\t"));
}

TEST_F(MrsetParseTest, ReportErrorFillsPlaceholdersFromTheArgumentsGiven) {
  ReportError("A ^1 B ^2", "", "");
  ReportError("A ^1 B ^2", "", "two");
  ReportWarning("A ^1 B ^2", "one", "two");
  EXPECT_EQ((std::vector<std::string>{"A ^1 B ^2", "A two B ^2", "A one B two"}), Messages());
}

TEST_F(MrsetParseTest, OnlyACommandThatParsedSavesAndADisplayAloneSaves) {
  auto dataset = std::make_shared<hostlib::data::Dataset>(
      std::vector<VORN_Variable>{VORN_Variable("a", 0), VORN_Variable("b", 0)});
  Session::Instance().OpenDataset(dataset);
  const auto run = [](const std::string& text) {
    Session::Instance().BeginCommand(1, hostlib::syntax::SplitCommands(text).at(0).command);
    MRSET();
    Session::Instance().EndCommand();
  };
  run("MRSET /MCGROUP NAME=$x VARIABLES=a b /DELETE NAME=$x.");
  EXPECT_EQ(0u, dataset->SetsRevision());
  run("MRSET /DISPLAY NAME=ALL.");
  EXPECT_EQ(1u, dataset->SetsRevision());
  run("MRSET /MCGROUP NAME=$x VARIABLES=a b.");
  EXPECT_EQ(2u, dataset->SetsRevision());
  ASSERT_EQ(1u, dataset->MultipleResponseSets().size());
  EXPECT_EQ("$x", dataset->MultipleResponseSets()[0].GetName(kAsStored));
}

}  // namespace
