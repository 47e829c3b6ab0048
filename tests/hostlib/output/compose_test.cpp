#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/output.h"
#include "hostlib/output/compose.h"

namespace {

// Items as added; "(" opens a sublist and ")" ends it.
BpComposite Build(const std::string& format, const std::vector<std::string>& items) {
  BpComposite composite(format, true);
  for (const std::string& item : items) {
    if (item == "(") {
      composite.Sublist();
    } else if (item == ")") {
      composite.EndSublist();
    } else {
      composite.Add(BpString(item, false));
    }
  }
  composite.Finish();
  return composite;
}

struct ComposeCase {
  const char* name;
  std::string format;
  std::vector<std::string> items;
  std::string expected;
};

void PrintTo(const ComposeCase& c, std::ostream* out) { *out << c.name; }

class ComposeTest : public testing::TestWithParam<ComposeCase> {};

TEST_P(ComposeTest, Composes) {
  const ComposeCase& c = GetParam();
  EXPECT_EQ(ComposeText(Build(c.format, c.items).Value()), c.expected);
}

const ComposeCase kCases[] = {
    {"PlainText", "No MRSET to display", {}, "No MRSET to display"},
    {"FirstPlaceholder",
     "Unexpected token ^1 in this context",
     {"="},
     "Unexpected token = in this context"},
    {"PlaceholderWithoutItemStays", "Found ^1 ..", {}, "Found ^1 .."},
    {"SecondWithoutFirst", "Found ^2 here", {"a", "b"}, "Found b here a"},
    {"BothPlaceholders", "^1 was expecting ^2", {"NAME", "="}, "NAME was expecting ="},
    {"SecondWithoutItemStays", "^1 vs ^2", {"a"}, "a vs ^2"},
    {"PlaceholderTwice", "^1=^1", {"a"}, "a=a"},
    {"ExtraItemsFollow", "Found ^1.", {"a", "b", "c"}, "Found a. b c"},
    {"ItemsWithoutPlaceholder", "Text", {"a"}, "Text a"},
    {"ItemTextNotExpandedAgain", "^1 ^2", {"^2", "b"}, "^2 b"},
    {"OtherCaretsStay", "^3 ^ ^x", {"a"}, "^3 ^ ^x a"},
    {"SublistFollows",
     "One or more of the sets specified do not exist...",
     {"(", "$x", "$y", ")"},
     "One or more of the sets specified do not exist... $x $y"},
    {"SublistItemsAreNotPlaceholderItems", "^1 then", {"a", "(", "x", ")", "b"}, "a then x b"},
    {"RepeatNoItems", "[:^1\r:$1]1", {"(", ")"}, ""},
    {"RepeatOneItem", "[:^1\r:$1]1", {"(", "q1", ")"}, "q1"},
    {"RepeatThreeItems", "[:^1\r:$1]1", {"(", "q1", "q2", "q3", ")"}, "q1\nq2\nq3"},
    {"RepeatPrefixOnce", "[(:^1, :^1)]1", {"(", "a", "b", ")"}, "(a, b)"},
    {"RepeatChoosesItsSublist", "[:^1,:^1]2", {"(", "a", ")", "(", "b", "c", ")"}, "b,c a"},
    {"RepeatOfMissingSublist", "[:^1\r:$1]2", {"(", "a", ")"}, " a"},
    {"RepeatWithText", "Vars: [:^1, :^1.]1", {"(", "a", "b", ")"}, "Vars: a, b."},
    {"MalformedBracketsStay",
     "[x]1 [a:b]1 [:a:b] [:a:b]0 ^1",
     {"v"},
     "[x]1 [a:b]1 [:a:b] [:a:b]0 v"},
    {"CarriageReturnIsLineBreak", "a\rb\r\nc", {}, "a\nb\nc"},
};

INSTANTIATE_TEST_SUITE_P(Placeholders, ComposeTest, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ComposeText, NestedCompositeComposesInside) {
  BpComposite inner("inner ^1", false);
  inner.Add(BpString("z", false));
  BpComposite outer("Outer ^1", true);
  outer.Add(inner);
  EXPECT_EQ(ComposeText(outer.Value()), "Outer inner z");
}

TEST(ComposeText, PlainStringKeepsItsBytes) {
  EXPECT_EQ(ComposeText(BpString("a^1\rb", false).Value()), "a^1\rb");
}

TEST(ComposeSegments, KeepsTheFlagOfEachPiece) {
  using hostlib::output::TextSegment;
  const BpComposite message = Build("Missing:", {"(", "$x", "$y", ")"});
  const std::vector<TextSegment> expected = {
      {"Missing: ", true}, {"$x", false}, {" ", true}, {"$y", false}};
  EXPECT_EQ(hostlib::output::ComposeSegments(message.Value()), expected);

  // Pieces of one flag merge; an empty text has none.
  BpComposite cell("[:^1\r:$1]1", false);
  cell.Sublist();
  cell.Add(BpString("a", false));
  cell.Add(BpString("b", false));
  EXPECT_EQ(hostlib::output::ComposeSegments(cell.Value()),
            (std::vector<TextSegment>{{"a\nb", false}}));
  EXPECT_TRUE(hostlib::output::ComposeSegments(BpString("", true).Value()).empty());
}

}  // namespace

// Lines come from the format's line breaks only: a member's own line feed
// stays inside its line, and the flat text is the lines joined as before.
TEST(ComposeLines, SplitsAtTheFormatsBreaksOnly) {
  using hostlib::output::TextSegment;
  using Lines = std::vector<std::vector<TextSegment>>;
  BpComposite members("[:^1\r:$1]1", false);
  members.Sublist();
  for (const char* label : {"Drinks tea\nin the afternoon", "Water", ""}) {
    members.Add(BpString(label, false));
  }
  members.EndSublist();
  EXPECT_EQ(hostlib::output::ComposeLines(members.Value()),
            (Lines{{{"Drinks tea\nin the afternoon", false}}, {{"Water", false}}, {}}));
  EXPECT_EQ(ComposeText(members.Value()), "Drinks tea\nin the afternoon\nWater\n");
  EXPECT_EQ(hostlib::output::ComposeLines(BpString("", true).Value()), Lines(1));
}
