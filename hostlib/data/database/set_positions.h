// Where the sets of a list go in a database's `position` column, which only
// orders them: positions increase along the list, with room left between
// them so that a set added later rarely moves the others.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace hostlib::data {

// Room left between the positions of sets placed anew.
inline constexpr std::int64_t kPositionSpacing = 1024;

struct SetPlacement {
  std::vector<std::int64_t> positions;  // one per set of the list, increasing
  // Whether no new position is an old one of another set, so that rows can
  // move in any order.
  bool clearOfOldPositions = false;
};

// `stored[i]`: the position of the list's i-th set when its row is kept,
// none when it is written anew. The kept sets of a longest increasing run of
// positions stay; the others take the room between them (evenly spread);
// where there is not enough room every set is placed anew, after the
// greatest old position. A moving set whose place is another's old position
// takes the next free one where the room allows.
SetPlacement PlaceSets(const std::vector<std::optional<std::int64_t>>& stored);
// The same, given the kept sets' old positions (`stored`'s values),
// preferably in increasing order as a store read them.
SetPlacement PlaceSets(const std::vector<std::optional<std::int64_t>>& stored,
                       std::vector<std::int64_t> oldPositions);

}  // namespace hostlib::data
