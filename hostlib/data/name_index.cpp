#include "hostlib/data/name_index.h"

#include <algorithm>

#include "hostlib/data/dataset.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::data {

std::string_view FoldedName(std::string_view name, std::array<char, kShortName>& buffer,
                            std::string& other) {
  if (name.size() > buffer.size() || !strings::IsAscii(name)) return other = FoldName(name);
  std::transform(name.begin(), name.end(), buffer.begin(), strings::AsciiLower);
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
