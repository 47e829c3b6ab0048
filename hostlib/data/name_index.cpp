#include "hostlib/data/name_index.h"

#include <algorithm>

#include "hostlib/data/dataset.h"

namespace hostlib::data {

std::string_view FoldedName(std::string_view name, std::array<char, kShortName>& buffer,
                            std::string& other) {
  const bool ascii = std::all_of(name.begin(), name.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!ascii || name.size() > buffer.size()) return other = FoldName(name);
  std::transform(name.begin(), name.end(), buffer.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return {buffer.data(), name.size()};
}

std::uint32_t HashOfFolded(std::string_view folded) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(folded));
}

std::uint32_t NameHash(std::string_view name) {
  std::array<char, kShortName> buffer{};
  std::string other;
  return HashOfFolded(FoldedName(name, buffer, other));
}

void NameIndex::SortByHash() {
  // A radix sort by the hash, in three passes of 11, 11 and 10 bits; each
  // keeps the order of equal ones.
  std::vector<std::uint64_t> sorted(keys_.size());
  for (const unsigned shift : {32U, 43U, 54U}) {
    std::array<std::size_t, 2048> starts{};
    for (const std::uint64_t key : keys_) ++starts[(key >> shift) & 0x7FF];
    std::size_t total = 0;
    for (std::size_t& start : starts) total += std::exchange(start, total);
    for (const std::uint64_t key : keys_) sorted[starts[(key >> shift) & 0x7FF]++] = key;
    keys_.swap(sorted);
  }
}

}  // namespace hostlib::data
