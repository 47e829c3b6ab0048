#include "hostlib/data/name_index.h"

#include <algorithm>

#include "hostlib/data/dataset.h"
#include "hostlib/data/radix_sort.h"
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

void NameIndex::SortByHash() { SortByUpperHalf(keys_, 32); }

}  // namespace hostlib::data
