// Names found without regard to case, by the hash of their folded text: a
// list of one number per name (its hash and its index), sorted by hash, in
// which a name is found by binary search and names that fold alike sit side
// by side. No object per name, and a sort that reads the list three times.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hostlib::data {

// The name folded as FoldName folds it: a short ASCII name (the usual one)
// in `buffer`, without allocating; any other in `other`.
inline constexpr std::size_t kShortName = 64;
std::string_view FoldedName(std::string_view name, std::array<char, kShortName>& buffer,
                            std::string& other);

std::uint32_t HashOfFolded(std::string_view folded);
std::uint32_t NameHash(std::string_view name);

class NameIndex {
 public:
  // `hashOf(i)` is the NameHash of the name at index i, for i below `count`.
  template <typename HashOf>
  NameIndex(std::size_t count, HashOf&& hashOf) : keys_(count) {
    for (std::size_t i = 0; i < count; ++i) keys_[i] = std::uint64_t{hashOf(i)} << 32 | i;
    SortByHash();
  }
  NameIndex() = default;

  // The index of the first name whose hash is `hash` and for which `matches`
  // holds; none when there is none.
  template <typename Matches>
  std::optional<std::size_t> Find(std::uint32_t hash, Matches&& matches) const {
    auto it = std::lower_bound(keys_.begin(), keys_.end(), std::uint64_t{hash} << 32);
    for (; it != keys_.end() && (*it >> 32) == hash; ++it) {
      const auto index = static_cast<std::size_t>(*it & 0xFFFFFFFF);
      if (matches(index)) return index;
    }
    return std::nullopt;
  }

  // The first name, in index order, that `sameName` finds equal to an
  // earlier one, and that earlier one (the first such).
  template <typename SameName>
  std::optional<std::pair<std::size_t, std::size_t>> FirstRepeat(SameName&& sameName) const {
    std::optional<std::pair<std::size_t, std::size_t>> repeat;
    for (std::size_t group = 0; group < keys_.size();) {
      std::size_t next = group + 1;
      while (next < keys_.size() && (keys_[next] >> 32) == (keys_[group] >> 32)) ++next;
      // Within a group the names keep their order.
      for (std::size_t a = group + 1; a < next; ++a) {
        const auto later = static_cast<std::size_t>(keys_[a] & 0xFFFFFFFF);
        if (repeat && later >= repeat->first) break;
        for (std::size_t b = group; b < a; ++b) {
          const auto earlier = static_cast<std::size_t>(keys_[b] & 0xFFFFFFFF);
          if (sameName(earlier, later)) {
            repeat = {later, earlier};
            break;
          }
        }
      }
      group = next;
    }
    return repeat;
  }

 private:
  void SortByHash();

  std::vector<std::uint64_t> keys_;  // a name's hash << 32 | its index
};

}  // namespace hostlib::data
