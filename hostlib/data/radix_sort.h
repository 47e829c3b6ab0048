// A stable sort of 64-bit keys by their upper half: a number and, below it,
// what it belongs to (an index, say). No comparisons: passes of 11 bits over
// the bits that can differ.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace hostlib::data {

// Sorts `keys` by bits 32 to 32 + `bits` (at most 32), keeping the order of
// keys alike there; the bits above those must be zero.
inline void SortByUpperHalf(std::vector<std::uint64_t>& keys, unsigned bits) {
  std::vector<std::uint64_t> sorted(keys.size());
  for (unsigned shift = 32; shift < 32 + bits; shift += 11) {
    std::array<std::size_t, 2048> starts{};
    for (const std::uint64_t key : keys) ++starts[(key >> shift) & 0x7FF];
    std::size_t total = 0;
    for (std::size_t& start : starts) total += std::exchange(start, total);
    for (const std::uint64_t key : keys) sorted[starts[(key >> shift) & 0x7FF]++] = key;
    keys.swap(sorted);
  }
}

}  // namespace hostlib::data
