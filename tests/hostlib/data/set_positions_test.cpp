#include "hostlib/data/database/set_positions.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace hostlib::data {
namespace {

constexpr std::int64_t kS = kPositionSpacing;
constexpr auto kNone = std::nullopt;
using Stored = std::vector<std::optional<std::int64_t>>;

TEST(PlaceSetsTest, KeepsTheLongestIncreasingRunAndFillsTheRoomBetween) {
  struct Case {
    std::string what;
    Stored stored;
    std::vector<std::int64_t> positions;
    bool clear;
  };
  const std::int64_t big = std::numeric_limits<std::int64_t>::max();
  const std::vector<Case> cases = {
      {"nothing", {}, {}, true},
      {"unchanged", {0, kS, 2 * kS}, {0, kS, 2 * kS}, true},
      {"new ones in the room",
       {kNone, kS, kNone, 2 * kS, kNone},
       {511, kS, 1536, 2 * kS, 3 * kS},
       true},
      {"one set moved", {0, 3 * kS, kS, 2 * kS}, {0, 512, kS, 2 * kS}, true},
      {"spread evenly", {0, kNone, kNone, 9}, {0, 3, 6, 9}, true},
      {"onto another's old position: the next free one",
       {0, 30, 20, 40, 10},
       {0, 11, 20, 40, 40 + kS},
       true},
      {"onto another's old position, no room to step aside",
       {0, 5, 2, 6, 1},
       {0, 1, 2, 6, 6 + kS},
       false},
      {"no room: all anew after the greatest", {0, kNone, 1}, {2, 2 + kS, 2 + 2 * kS}, true},
      {"no room before the first", {2, 0, 1}, {3, 3 + kS, 3 + 2 * kS}, true},
      {"all new", {kNone, kNone}, {kS - 1, 2 * kS - 1}, true},
      {"no room after the greatest either", {big - 1, kNone, big}, {kS, 2 * kS, 3 * kS}, true},
      {"all anew from the start, onto an old position: the next free one",
       {big - 1, kNone, big, kS},
       {kS + 1, 2 * kS, 3 * kS, 4 * kS},
       true},
  };
  for (const Case& c : cases) {
    const SetPlacement placement = PlaceSets(c.stored);
    EXPECT_EQ(placement.positions, c.positions) << c.what;
    EXPECT_EQ(placement.clearOfOldPositions, c.clear) << c.what;
  }
}

}  // namespace
}  // namespace hostlib::data
