#include "hostlib/diagnostics/notes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using hostlib::diagnostics::ClosestNames;
using hostlib::diagnostics::EditDistance;

TEST(EditDistance, CountsEditsWithoutRegardToCase) {
  struct Case {
    const char* a;
    const char* b;
    std::size_t distance;
  };
  const Case cases[] = {
      {"like1", "LIKE1", 0},  {"lkie2", "like2", 1},  // two neighbours swapped
      {"frut2", "fruit2", 1}, {"drink2.", "drink2", 1}, {"like1", "like3", 1}, {"", "abc", 3},
      {"GRÜN", "grün", 0},    {"grn", "grün", 1},       {"abc", "xyz", 3},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EditDistance(c.a, c.b), c.distance) << c.a << " / " << c.b;
    EXPECT_EQ(EditDistance(c.b, c.a), c.distance) << c.b << " / " << c.a;
  }
}

TEST(ClosestNames, OffersTheNearestAtMostThreeAndOnlyWhenClose) {
  const std::vector<std::string> names = {"like1", "like2", "like3", "like4", "same1", "q1"};
  struct Case {
    const char* name;
    std::vector<std::string> closest;
  };
  const Case cases[] = {
      {"lkie2", {"like2"}},                    // one slip hides those two slips away
      {"like", {"like1", "like2", "like3"}},   // ties: three, in dictionary order
      {"LIKE1", {"like2", "like3", "like4"}},  // never the name itself
      {"q2", {"q1"}},
      {"zzzzz", {}},  // nothing close
      {"likes12345", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(ClosestNames(c.name, names), c.closest) << c.name;
}

}  // namespace
