#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "host/data_source.h"
#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/data/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/session/session.h"
#include "hostlib/syntax/splitter.h"
#include "hostlib/syntax/token_sequence.h"

namespace {

using hostlib::Session;

class ExistingVarListTest : public ::testing::Test {
 protected:
  void SetUp() override { Session::Instance().Reset(); }
  void TearDown() override { Session::Instance().Reset(); }

  struct Result {
    bool ok = false;
    std::vector<int> indices;
    std::vector<std::string> messages;
  };

  // Reads `list` as it stands after a command word; `end` is a token number
  // (by default the end of the command).
  Result Read(const std::string& list, std::optional<std::uint32_t> end = std::nullopt) {
    const auto commands = hostlib::syntax::SplitCommands("X " + list + ".");
    EXPECT_EQ(commands.size(), 1u);
    const auto command = commands.at(0).command;
    const auto owned = hostlib::syntax::TokenSequenceOver(command);
    TokenSequenceBase& tokens = *owned;
    tokens.Next();
    tokens.Next();
    Result result;
    result.ok = ExistingVarList(source_, tokens, result.indices,
                                end.value_or(static_cast<std::uint32_t>(command->Size() - 1)));
    for (const auto& item : Session::Instance().Output().Items()) {
      if (const auto* message = std::get_if<hostlib::output::Message>(&item)) {
        EXPECT_EQ(message->level, kErrorLevel);
        EXPECT_TRUE(message->text.fixed);
        for (const auto& userText : message->text.items) {
          EXPECT_FALSE(userText.fixed);
        }
        result.messages.push_back(ComposeText(message->text));
      }
    }
    return result;
  }

  VORN_DataSource source_{hostlib::data::HostStateOver(
      std::make_shared<hostlib::data::Dataset>(std::vector<VORN_Variable>{
          VORN_Variable("a", 0), VORN_Variable("b", 0), VORN_Variable("c", 0),
          VORN_Variable("d", 0), VORN_Variable("Größe", 0), VORN_Variable("e", 4)}))};
};

TEST_F(ExistingVarListTest, ReadsNamesRangesAndAll) {
  const std::vector<std::pair<std::string, std::vector<int>>> cases = {
      {"a", {0}},
      {"A c B", {0, 2, 1}},
      {"GRÖßE", {4}},
      {"b TO d", {1, 2, 3}},
      {"b to B", {1}},
      {"a TO b d TO e", {0, 1, 3, 4, 5}},
      {"ALL", {0, 1, 2, 3, 4, 5}},
      {"all", {0, 1, 2, 3, 4, 5}},
  };
  for (const auto& [list, indices] : cases) {
    Session::Instance().Reset();
    const Result result = Read(list);
    EXPECT_TRUE(result.ok) << list;
    EXPECT_EQ(result.indices, indices) << list;
    EXPECT_TRUE(result.messages.empty()) << list;
  }
}

TEST_F(ExistingVarListTest, StopsBeforeTheEndToken) {
  const Result result = Read("a b c", 3);
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.indices, (std::vector<int>{0, 1}));
}

TEST_F(ExistingVarListTest, ReportsTheFirstFaultOnly) {
  struct Case {
    std::string list;
    std::vector<int> indices;  // filled before the fault
    std::string message;
  };
  const std::vector<Case> cases = {
      {"", {}, "A variable list was expected."},
      {"x", {}, "Variable x does not exist in the dataset."},
      {"a x y", {0}, "Variable x does not exist in the dataset."},
      {"a TO x", {}, "Variable x does not exist in the dataset."},
      {"d TO b", {}, "The range d TO b is reversed: b comes before d in the dataset."},
      {"a TO", {}, "A variable name was expected after TO."},
      {"a TO 5", {}, "A variable name was expected after TO. Found 5."},
      {"a TO ALL", {}, "A variable name was expected after TO. Found ALL."},
      {"TO b", {}, "A variable name was expected. Found TO."},
      {"a 'b'", {0}, "A variable name was expected. Found b."},
      {"a , b", {0}, "A variable name was expected. Found ,."},
      {"a A", {0}, "Variable a is named more than once in the list."},
      {"a TO c b", {0, 1, 2}, "Variable b is named more than once in the list."},
      {"a TO c b TO d", {0, 1, 2}, "Variable b is named more than once in the list."},
      {"größe ALL", {4, 0, 1, 2, 3}, "Variable Größe is named more than once in the list."},
  };
  for (const auto& [list, indices, message] : cases) {
    Session::Instance().Reset();
    const Result result = Read(list);
    EXPECT_FALSE(result.ok) << list;
    EXPECT_EQ(result.indices, indices) << list;
    EXPECT_EQ(result.messages, std::vector<std::string>{message}) << list;
  }
}

}  // namespace
