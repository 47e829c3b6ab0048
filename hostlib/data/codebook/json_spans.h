// Byte spans in JSON text already known to be valid: where a value, an
// object's members or an array's elements begin and end. Nothing here
// recurses or allocates per nesting level, so any depth is safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace hostlib::data::json_spans {

struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;  // one past the last byte
  std::string_view Of(std::string_view text) const { return text.substr(begin, end - begin); }
};

struct Member {
  Span key;  // with its quotes
  Span value;
};

// The end of the value that begins at `pos` (after any white space).
std::size_t SkipValue(std::string_view text, std::size_t pos);
std::size_t SkipWhitespace(std::string_view text, std::size_t pos);

// The members of the object, or the elements of the array, spanning `value`.
std::vector<Member> ObjectMembers(std::string_view text, Span value);
std::vector<Span> ArrayElements(std::string_view text, Span value);

// The value's bytes without the white space between its tokens.
std::string Minified(std::string_view text, Span value);

// The white space that begins the line of `pos`, when only white space
// precedes it there; "" otherwise.
std::string IndentBefore(std::string_view text, std::size_t pos);

// The key's text without quotes, escapes resolved.
std::string KeyText(std::string_view text, Span key);

}  // namespace hostlib::data::json_spans
