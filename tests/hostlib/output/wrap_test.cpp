#include "hostlib/output/wrap.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using hostlib::output::FitColumns;
using hostlib::output::WrapLine;
using Pieces = std::vector<std::string>;

TEST(WrapLineTest, BreaksAtBlanksElseBetweenCharacters) {
  struct Case {
    std::string line;
    int width;
    Pieces pieces;
    int indent = 0;  // pieces after the first are this much narrower
  };
  const std::vector<Case> cases = {
      {"Likes apples a lot", 0, {"Likes apples a lot"}},
      {"Likes apples a lot", 18, {"Likes apples a lot"}},
      {"Likes apples a lot", 12, {"Likes apples", "a lot"}},
      {"Likes apples a lot", 5, {"Likes", "apple", "s a", "lot"}},
      {"abcdefgh", 3, {"abc", "def", "gh"}},
      {"", 4, {""}},
      // Wide characters take two columns; a combining mark stays on its letter.
      {"日本語の", 5, {"日本", "語の"}},
      {"Cafe\u0301s", 4, {"Cafe\u0301", "s"}},
      // A character wider than the width stands alone rather than vanish.
      {"日本", 1, {"日", "本"}},
      {"Drinks tea at midday", 10, {"Drinks tea", "at", "midday"}, 2},
      {"abcdefgh", 4, {"abcd", "ef", "gh"}, 2},
      {"abc def", 3, {"abc", "d", "e", "f"}, 5},  // never narrower than one column
  };
  for (const Case& c : cases) {
    EXPECT_EQ(WrapLine(c.line, c.width, c.indent), c.pieces)
        << '"' << c.line << "\" at " << c.width;
  }
}

TEST(FitColumnsTest, CutsTheWidestColumnsFirst) {
  struct Case {
    std::vector<int> natural;
    int budget;
    std::vector<int> widths;
    std::vector<int> floors = {};  // empty: 6 for every column
  };
  const std::vector<Case> cases = {
      {{4, 10, 30}, 50, {4, 10, 30}},  // fits: unchanged
      {{4, 10, 30}, 30, {4, 10, 16}},  // only the widest is cut
      {{4, 20, 30}, 31, {4, 14, 13}},  // two share the rest, the first gets the odd column
      {{4, 20, 30}, 5, {4, 6, 6}},     // cannot fit: every cut column at the floor
      {{}, 10, {}},
      {{20, 30}, 24, {16, 8}, {16, 8}},           // a floor above the common cut holds
      {{4, 20, 30}, 20, {4, 12, 6}, {4, 12, 6}},  // cannot fit: at the floors
  };
  for (const Case& c : cases) {
    const std::vector<int> floors =
        c.floors.empty() ? std::vector<int>(c.natural.size(), 6) : c.floors;
    EXPECT_EQ(FitColumns(c.natural, c.budget, floors), c.widths) << "budget " << c.budget;
  }
}

}  // namespace
