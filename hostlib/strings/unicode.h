// Unicode helpers of the host (UTF-8 in, UTF-8 out), on utf8proc's tables.
//
// Bytes that do not form UTF-8 are kept as they are and count as one
// character each, so no function here fails on bad input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace hostlib::strings {

// Each character mapped to its simple Unicode upper case.
std::string UpperCase(std::string_view text);

// Each character mapped by simple Unicode case folding; two texts that are
// equal without regard to case fold to the same bytes.
std::string FoldCase(std::string_view text);

// ASCII, whose letters change case byte for byte: the fast path for names,
// which are mostly ASCII.
inline bool IsAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }
inline bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return IsAscii(c); });
}
inline char AsciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsValidUtf8(std::string_view text);
// How many bytes from the start form UTF-8: the offset of the first bad byte,
// or the text's size.
std::size_t ValidUtf8Length(std::string_view text);

// Terminal columns: combining marks and controls 0, wide characters 2.
int DisplayWidth(std::string_view text);

// Characters (code points; a bad byte counts as one).
std::size_t CharacterCount(std::string_view text);

// One step of decoding: the character at `offset`. For a byte that is not
// UTF-8, `valid` is false, `length` is 1 and `codePoint` is the byte.
struct Decoded {
  std::int32_t codePoint = 0;
  std::size_t length = 0;
  bool valid = false;
};
Decoded DecodeAt(std::string_view text, std::size_t offset);

// Appends the UTF-8 form of a valid code point.
void AppendCodePoint(std::string& out, std::int32_t codePoint);

std::int32_t SimpleUpper(std::int32_t codePoint);
std::int32_t SimpleFold(std::int32_t codePoint);

// Letters of any script (general category L*).
bool IsLetter(std::int32_t codePoint);
// Decimal digits of any script (general category Nd).
bool IsDigit(std::int32_t codePoint);
// Combining marks (general category M*): the vowel signs and accents that
// some scripts need inside a word.
bool IsMark(std::int32_t codePoint);

}  // namespace hostlib::strings
