#include "hostlib/data/database/set_positions.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

namespace hostlib::data {
namespace {

constexpr std::int64_t kGreatest = std::numeric_limits<std::int64_t>::max();

// Marks the sets of a longest run whose stored positions increase along the
// list (patience sorting, n log n).
std::vector<bool> LongestIncreasingRun(const std::vector<std::optional<std::int64_t>>& stored) {
  // Most saves keep every stored set in its order (sets added or changed):
  // the kept sets are then the run.
  std::vector<bool> inRun(stored.size(), false);
  std::optional<std::int64_t> last;
  bool increasing = true;
  for (std::size_t i = 0; i < stored.size() && increasing; ++i) {
    if (!stored[i]) continue;
    increasing = !last || *last < *stored[i];
    last = stored[i];
    inRun[i] = true;
  }
  if (increasing) return inRun;
  inRun.assign(stored.size(), false);
  // Per run length, the index ending the best such run and its position
  // (kept apart: the search reads the positions alone).
  std::vector<std::size_t> tails;
  std::vector<std::int64_t> tailPositions;
  std::vector<std::size_t> previous(stored.size(), stored.size());
  for (std::size_t i = 0; i < stored.size(); ++i) {
    if (!stored[i]) continue;
    const auto place = std::lower_bound(tailPositions.begin(), tailPositions.end(), *stored[i]);
    const auto length = static_cast<std::size_t>(place - tailPositions.begin());
    if (length > 0) previous[i] = tails[length - 1];
    if (length == tails.size()) {
      tails.push_back(i);
      tailPositions.push_back(*stored[i]);
    } else {
      tails[length] = i;
      tailPositions[length] = *stored[i];
    }
  }
  for (std::size_t i = tails.empty() ? stored.size() : tails.back(); i < stored.size();
       i = previous[i]) {
    inRun[i] = true;
  }
  return inRun;
}

// Every set anew, spaced, after `greatest` when that leaves room, else from
// the spacing itself (room before the first).
SetPlacement PlaceAllAnew(std::size_t count, std::optional<std::int64_t> greatest) {
  SetPlacement placement;
  const auto needed = static_cast<std::int64_t>(count) * kPositionSpacing;
  const bool after = greatest && *greatest < kGreatest - needed;
  const std::int64_t first = after ? *greatest + 1 : kPositionSpacing;
  for (std::size_t i = 0; i < count; ++i) {
    placement.positions.push_back(first + static_cast<std::int64_t>(i) * kPositionSpacing);
  }
  return placement;
}

// A kept set that moves onto another's old position makes the rows move
// twice (through negative positions, so that no two share one on the way).
// Such a set is nudged up to a position no row holds, where the room before
// the next set allows; the placement is clear of old positions when every
// moving set found one.
void AvoidOldPositions(const std::vector<std::optional<std::int64_t>>& stored,
                       std::vector<std::int64_t> old, SetPlacement& placement) {
  std::vector<std::int64_t>& positions = placement.positions;
  placement.clearOfOldPositions = true;
  const auto moves = [&](std::size_t i) { return stored[i] && *stored[i] != positions[i]; };
  // Most saves move no kept set (one set added or changed): no index of the
  // old positions then.
  bool anyMoves = false;
  for (std::size_t i = 0; i < positions.size() && !anyMoves; ++i) anyMoves = moves(i);
  if (!anyMoves) return;
  if (!std::is_sorted(old.begin(), old.end())) std::sort(old.begin(), old.end());
  for (std::size_t i = 0; i < positions.size(); ++i) {
    if (!moves(i)) continue;
    auto taken = std::lower_bound(old.begin(), old.end(), positions[i]);
    if (taken == old.end() || *taken != positions[i]) continue;
    const std::int64_t limit = i + 1 < positions.size() ? positions[i + 1] : kGreatest;
    std::int64_t free = positions[i] + 1;
    // Each step passes an old position in this set's own room: linear in all.
    for (++taken; free < limit && taken != old.end() && *taken == free; ++taken) ++free;
    if (free < limit) {
      positions[i] = free;
    } else {
      placement.clearOfOldPositions = false;
    }
  }
}

SetPlacement PlaceKeepingTheLongestRun(const std::vector<std::optional<std::int64_t>>& stored) {
  std::optional<std::int64_t> greatest;
  for (const auto& position : stored) {
    if (position && (!greatest || *position > *greatest)) greatest = position;
  }
  const std::vector<bool> stays = LongestIncreasingRun(stored);
  SetPlacement placement;
  placement.positions.resize(stored.size());
  std::int64_t below = -1;  // positions stay at 0 or above
  for (std::size_t start = 0; start < stored.size();) {
    std::size_t end = start;
    while (end < stored.size() && !stays[end]) ++end;
    const std::size_t count = end - start;
    if (end < stored.size()) {
      const std::int64_t above = *stored[end];
      // below >= -1 and above > below: the room fits in 64 bits unsigned
      if (above <= below ||
          static_cast<std::uint64_t>(above) - static_cast<std::uint64_t>(below) <= count) {
        return PlaceAllAnew(stored.size(), greatest);
      }
      const std::uint64_t room =
          static_cast<std::uint64_t>(above) - static_cast<std::uint64_t>(below);
      const std::uint64_t step = room / (count + 1);
      const std::uint64_t rest = room % (count + 1);
      for (std::size_t k = 0; k < count; ++k) {
        const std::uint64_t offset = step * (k + 1) + rest * (k + 1) / (count + 1);
        placement.positions[start + k] =
            static_cast<std::int64_t>(static_cast<std::uint64_t>(below) + offset);
      }
      placement.positions[end] = above;
      below = above;
      start = end + 1;
    } else {
      if (below > kGreatest - static_cast<std::int64_t>(count + 1) * kPositionSpacing) {
        return PlaceAllAnew(stored.size(), greatest);
      }
      for (std::size_t k = 0; k < count; ++k) {
        placement.positions[start + k] =
            below + static_cast<std::int64_t>(k + 1) * kPositionSpacing;
      }
      start = end;
    }
  }
  return placement;
}

}  // namespace

SetPlacement PlaceSets(const std::vector<std::optional<std::int64_t>>& stored,
                       std::vector<std::int64_t> oldPositions) {
  SetPlacement placement = PlaceKeepingTheLongestRun(stored);
  AvoidOldPositions(stored, std::move(oldPositions), placement);
  return placement;
}

SetPlacement PlaceSets(const std::vector<std::optional<std::int64_t>>& stored) {
  std::vector<std::int64_t> old;
  for (const auto& position : stored) {
    if (position) old.push_back(*position);
  }
  return PlaceSets(stored, std::move(old));
}

}  // namespace hostlib::data
