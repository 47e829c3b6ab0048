#include "hostlib/strings/unicode.h"

#include <algorithm>

#include <utf8proc.h>

namespace hostlib::strings {

Decoded DecodeAt(std::string_view text, std::size_t offset) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + offset;
  utf8proc_int32_t codePoint = -1;
  const utf8proc_ssize_t length =
      utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - offset), &codePoint);
  if (length <= 0 || codePoint < 0) {
    return {static_cast<std::int32_t>(bytes[0]), 1, false};
  }
  return {codePoint, static_cast<std::size_t>(length), true};
}

void AppendCodePoint(std::string& out, std::int32_t codePoint) {
  utf8proc_uint8_t buffer[4];
  const utf8proc_ssize_t length = utf8proc_encode_char(codePoint, buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

std::int32_t SimpleUpper(std::int32_t codePoint) {
  // utf8proc upper-cases U+00DF to U+1E9E; Unicode's simple mapping keeps it.
  constexpr std::int32_t kSharpS = 0xDF;
  return codePoint == kSharpS ? kSharpS : utf8proc_toupper(codePoint);
}

std::int32_t SimpleFold(std::int32_t codePoint) {
  // utf8proc folds fully. A one-character full folding is the common (simple)
  // one; where full folding grows the text, lower(upper(c)) gives the simple
  // folding (e.g. U+1E9E and U+00DF both fold to U+00DF).
  utf8proc_int32_t folded[8];
  int boundClass = 0;
  const utf8proc_ssize_t count =
      utf8proc_decompose_char(codePoint, folded, 8, UTF8PROC_CASEFOLD, &boundClass);
  if (count == 1) {
    return folded[0];
  }
  return utf8proc_tolower(SimpleUpper(codePoint));
}

namespace {

char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Names are mostly ASCII: those bytes are mapped without decoding them.
template <typename Map, typename AsciiMap>
std::string MapCharacters(std::string_view text, Map map, AsciiMap asciiMap) {
  if (IsAscii(text)) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), asciiMap);
    return out;
  }
  std::string out;
  out.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    if (static_cast<unsigned char>(text[offset]) < 0x80) {
      out.push_back(asciiMap(text[offset++]));
      continue;
    }
    const Decoded decoded = DecodeAt(text, offset);
    if (decoded.valid) {
      AppendCodePoint(out, map(decoded.codePoint));
    } else {
      out.push_back(text[offset]);
    }
    offset += decoded.length;
  }
  return out;
}

}  // namespace

// Passed as lambdas, whose types are their own, so that the ASCII path
// inlines the map rather than calling it for every byte.
std::string UpperCase(std::string_view text) {
  return MapCharacters(text, SimpleUpper, [](char c) { return AsciiUpper(c); });
}

std::string FoldCase(std::string_view text) {
  return MapCharacters(text, SimpleFold, [](char c) { return AsciiLower(c); });
}

bool IsValidUtf8(std::string_view text) { return ValidUtf8Length(text) == text.size(); }

std::size_t ValidUtf8Length(std::string_view text) {
  std::size_t offset = 0;
  while (offset < text.size()) {
    if (static_cast<unsigned char>(text[offset]) < 0x80) {
      ++offset;
      continue;
    }
    const Decoded decoded = DecodeAt(text, offset);
    if (!decoded.valid) break;
    offset += decoded.length;
  }
  return offset;
}

int DisplayWidth(std::string_view text) {
  int width = 0;
  for (std::size_t offset = 0; offset < text.size();) {
    const Decoded decoded = DecodeAt(text, offset);
    // A bad byte shows as one replacement character.
    width += decoded.valid ? utf8proc_charwidth(decoded.codePoint) : 1;
    offset += decoded.length;
  }
  return width;
}

std::size_t CharacterCount(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t offset = 0; offset < text.size(); ++count) {
    offset += DecodeAt(text, offset).length;
  }
  return count;
}

bool IsLetter(std::int32_t codePoint) {
  switch (utf8proc_category(codePoint)) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
      return true;
    default:
      return false;
  }
}

bool IsDigit(std::int32_t codePoint) {
  return utf8proc_category(codePoint) == UTF8PROC_CATEGORY_ND;
}

bool IsMark(std::int32_t codePoint) {
  switch (utf8proc_category(codePoint)) {
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
      return true;
    default:
      return false;
  }
}

}  // namespace hostlib::strings
