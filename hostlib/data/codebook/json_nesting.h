// How deep a JSON text nests, found without recursion before anything walks
// it: the JSON library copies, compares and writes values recursively, so a
// file nested deeper than any dataset needs is refused first.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace hostlib::data {

inline constexpr std::size_t kMaxJsonNesting = 512;

struct NestingFault {
  std::size_t offset;   // of the bracket that goes one level too deep
  std::string pointer;  // JSON pointer of the array or object it opens
};

// The first array or object nested more than `limit` levels deep, if any.
// The text need not be valid JSON; what is not is left to the parser.
std::optional<NestingFault> FindNestingFault(std::string_view text,
                                             std::size_t limit = kMaxJsonNesting);

}  // namespace hostlib::data
