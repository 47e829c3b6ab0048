#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostlib/syntax/splitter.h"

namespace {

using hostlib::syntax::CommandSplitter;
using hostlib::syntax::IsCompleteCommand;
using hostlib::syntax::SplitCommands;

// Each command as its tokens joined by one blank; a comment as "*".
std::vector<std::string> Split(std::string_view input) {
  std::vector<std::string> out;
  for (const auto& split : SplitCommands(input)) {
    if (split.comment) {
      out.push_back("*");
      continue;
    }
    std::string joined;
    for (std::size_t i = 0; i + 1 < split.command->Size(); ++i) {
      joined += (i == 0 ? "" : " ") + split.command->TokenText(i);
    }
    out.push_back(joined);
  }
  return out;
}

TEST(SplitterTest, CommandEndsAndComments) {
  struct Case {
    std::string input;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {"A b.\nC d.", {"A b", "C d"}},
      {"A b\n  c.  \nD", {"A b c", "D"}},
      {"A b\n\nC\n \t \nD", {"A b", "C", "D"}},
      {"A b.c\nd.", {"A b.c d"}},  // only a line's last period ends it
      {"A 'x.'\nB.", {"A x. B"}},  // a period inside quotes does not
      {"A 'x'.\nB.", {"A x", "B"}},
      {"A 1.\n", {"A 1"}},
      {"A v..\n", {"A v."}},
      {"A.\n.\n  .\nB.", {"A", "B"}},          // a lone period begins nothing
      {"A 'b c.\nD.\nE.", {"A b c. D", "E"}},  // an open quote runs to the line's end
      {"\xEF\xBB\xBF"
       "A.\r\nB\r\n\r\nC.\r\n",
       {"A", "B", "C"}},
      {"", {}},
      {"\n\n  \n", {}},
      {"* a note.\nA.", {"*", "A"}},
      {"  *a note\n still a note.\nA.", {"*", "A"}},
      {"* it's fine.\nA.", {"*", "A"}},  // quotes mean nothing in a comment
      {"* note\n\nA", {"*", "A"}},
      {"* bad \xFF \x01 bytes.\nA.", {"*", "A"}},
      {"A *b.", {"A * b"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Split(c.input), c.expected) << c.input;
  }
  const auto commands = SplitCommands("* x\xFF.\nA.");
  EXPECT_EQ(commands.at(0).command, nullptr);
  EXPECT_FALSE(commands.at(0).error.has_value());
  EXPECT_EQ(commands.at(1).command->Text(), "A");
}

TEST(SplitterTest, PositionsCountCharacters) {
  const auto commands = SplitCommands("A.\n\n  MRSET  ä='x'\n\tβ 1.");
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[1].start.line, 3);
  EXPECT_EQ(commands[1].start.column, 3);
  const auto& command = *commands[1].command;
  EXPECT_EQ(command.Text(), "  MRSET  ä='x'\n\tβ 1");
  // The end of command stands at the terminator.
  const std::pair<int, int> expected[] = {{3, 3}, {3, 10}, {3, 11}, {3, 12},
                                          {4, 2}, {4, 4},  {4, 5}};
  ASSERT_EQ(command.Size(), std::size(expected));
  for (std::size_t i = 0; i < command.Size(); ++i) {
    EXPECT_EQ(command.PositionOf(i).line, expected[i].first) << i;
    EXPECT_EQ(command.PositionOf(i).column, expected[i].second) << i;
  }
}

TEST(SplitterTest, IncrementalInput) {
  CommandSplitter splitter(5);
  EXPECT_FALSE(splitter.AddLine("").has_value());
  EXPECT_FALSE(splitter.InCommand());
  EXPECT_FALSE(splitter.AddLine("MRSET").has_value());
  EXPECT_TRUE(splitter.InCommand());
  const auto done = splitter.AddLine("  /DISPLAY.");
  ASSERT_TRUE(done.has_value());
  EXPECT_EQ(done->start.line, 6);
  EXPECT_EQ(done->command->PositionOf(1).line, 7);
  EXPECT_FALSE(splitter.InCommand());
  EXPECT_FALSE(splitter.AddLine("X").has_value());
  const auto last = splitter.Finish();
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->command->TokenText(0), "X");
  EXPECT_FALSE(splitter.Finish().has_value());
}

TEST(SplitterTest, IsCompleteCommand) {
  const std::pair<std::string, bool> cases[] = {
      {"MRSET /DISPLAY.", true},
      {"MRSET\n/DISPLAY.\n", true},
      {"MRSET", false},
      {"MRSET\n", false},
      {"MRSET\n\n", true},
      {"", false},
      {"\n", false},
      {"A 'b.", false},
      {"* note.", true},
  };
  for (const auto& [lines, complete] : cases) {
    EXPECT_EQ(IsCompleteCommand(lines), complete) << lines;
  }
}

}  // namespace
