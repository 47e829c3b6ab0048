// Byte ranges of values inside a JSON text, so that a file can be changed in
// one place and keep every other byte.
//
// The text must be valid JSON (parse it first); the walk is iterative, so a
// deeply nested file costs no stack.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace hostlib::data {

struct Span {
  std::size_t begin = 0;  // the value's first byte
  std::size_t end = 0;    // one past its last byte
};

// The whole top-level value.
Span RootSpan(std::string_view text);
// The value of `key` in the object at `object`; none when the key is absent.
// The last of repeated keys wins, as when the text is parsed.
std::optional<Span> MemberSpan(std::string_view text, Span object, std::string_view key);
// The index-th element of the array at `array`; none when there are fewer.
std::optional<Span> ElementSpan(std::string_view text, Span array, std::size_t index);

}  // namespace hostlib::data
