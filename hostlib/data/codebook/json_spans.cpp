#include "hostlib/data/codebook/json_spans.h"

#include <array>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <nlohmann/json.hpp>

namespace hostlib::data::json_spans {
namespace {

constexpr std::array<bool, 256> MakeTable(std::string_view bytes) {
  std::array<bool, 256> table{};
  for (const char c : bytes) table[static_cast<unsigned char>(c)] = true;
  return table;
}

constexpr auto kScalarEnd = MakeTable(",]} \t\r\n");

// The position after the closing quote of the string opening at `pos`.
std::size_t SkipString(std::string_view text, std::size_t pos) {
  ++pos;
  for (;;) {
    const void* found = std::memchr(text.data() + pos, '"', text.size() - pos);
    if (found == nullptr) return text.size();
    std::size_t quote = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    std::size_t backslashes = 0;
    while (quote - backslashes > pos && text[quote - backslashes - 1] == '\\') ++backslashes;
    if (backslashes % 2 == 0) return quote + 1;
    pos = quote + 1;
  }
}

// One step of the byte-wise walk through a container; true when it closed.
bool Step(std::string_view text, std::size_t& pos, std::size_t& depth, bool& inString) {
  const char c = text[pos];
  if (inString) {
    pos += c == '\\' ? 2 : 1;
    inString = c != '"';
    return false;
  }
  ++pos;
  if (c == '"') {
    inString = true;
  } else if (c == '[' || c == '{') {
    ++depth;
  } else if ((c == ']' || c == '}') && --depth == 0) {
    return true;
  }
  return false;
}

#if defined(__SSE2__)
// Bit i set where byte i of the 64 at `data` is `c`.
std::uint64_t Mask64(const char* data, char c) {
  const __m128i wanted = _mm_set1_epi8(c);
  std::uint64_t mask = 0;
  for (int part = 0; part < 4; ++part) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * part));
    const auto bits = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, wanted)));
    mask |= static_cast<std::uint64_t>(bits) << (16 * part);
  }
  return mask;
}

// Bit i set where an odd number of the bits 0..i of `x` are.
std::uint64_t PrefixXor(std::uint64_t x) {
  for (int shift = 1; shift < 64; shift *= 2) x ^= x << shift;
  return x;
}
#endif

// The end of the array or object whose bracket is at `pos`. Sixty-four
// bytes at a time where the machine can: strings are told by their quotes
// (a block with a backslash is walked byte by byte), and brackets outside
// them are only counted unless the container may close in the block.
std::size_t SkipContainer(std::string_view text, std::size_t pos) {
  std::size_t depth = 0;
  bool inString = false;
#if defined(__SSE2__)
  while (pos + 64 <= text.size()) {
    const char* data = text.data() + pos;
    if (Mask64(data, '\\') != 0) {
      for (const std::size_t end = pos + 64; pos < end && pos < text.size();) {
        if (Step(text, pos, depth, inString)) return pos;
      }
      continue;
    }
    const std::uint64_t inside = PrefixXor(Mask64(data, '"')) ^ (inString ? ~0ULL : 0ULL);
    const std::uint64_t opens = (Mask64(data, '[') | Mask64(data, '{')) & ~inside;
    const std::uint64_t closes = (Mask64(data, ']') | Mask64(data, '}')) & ~inside;
    const auto closing = static_cast<std::size_t>(__builtin_popcountll(closes));
    if (closing < depth) {
      depth += static_cast<std::size_t>(__builtin_popcountll(opens)) - closing;
    } else {
      for (std::uint64_t brackets = opens | closes; brackets != 0; brackets &= brackets - 1) {
        const int bit = __builtin_ctzll(brackets);
        if ((opens >> bit) & 1) {
          ++depth;
        } else if (--depth == 0) {
          return pos + static_cast<std::size_t>(bit) + 1;
        }
      }
    }
    inString = (inside >> 63) & 1;
    pos += 64;
  }
#endif
  while (pos < text.size()) {
    if (Step(text, pos, depth, inString)) return pos;
  }
  return text.size();
}

}  // namespace

std::size_t SkipWhitespace(std::string_view text, std::size_t pos) {
  while (pos < text.size() &&
         (text[pos] == ' ' || text[pos] == '\t' || text[pos] == '\n' || text[pos] == '\r')) {
    ++pos;
  }
  return pos;
}

std::size_t SkipValue(std::string_view text, std::size_t pos) {
  pos = SkipWhitespace(text, pos);
  if (pos >= text.size()) return pos;
  if (text[pos] == '"') return SkipString(text, pos);
  if (text[pos] != '[' && text[pos] != '{') {
    while (pos < text.size() && !kScalarEnd[static_cast<unsigned char>(text[pos])]) ++pos;
    return pos;
  }
  return SkipContainer(text, pos);
}

std::vector<Member> ObjectMembers(std::string_view text, Span value) {
  std::vector<Member> members;
  std::size_t pos = SkipWhitespace(text, value.begin + 1);  // past '{'
  while (pos < value.end && text[pos] == '"') {
    Member member;
    member.key = {pos, SkipString(text, pos)};
    pos = SkipWhitespace(text, member.key.end) + 1;  // past ':'
    member.value.begin = SkipWhitespace(text, pos);
    member.value.end = SkipValue(text, member.value.begin);
    members.push_back(member);
    pos = SkipWhitespace(text, member.value.end);
    if (pos < value.end && text[pos] == ',') pos = SkipWhitespace(text, pos + 1);
  }
  return members;
}

std::vector<Span> ArrayElements(std::string_view text, Span value) {
  std::vector<Span> elements;
  std::size_t pos = SkipWhitespace(text, value.begin + 1);  // past '['
  while (pos < value.end && text[pos] != ']') {
    const Span element{pos, SkipValue(text, pos)};
    elements.push_back(element);
    pos = SkipWhitespace(text, element.end);
    if (pos < value.end && text[pos] == ',') pos = SkipWhitespace(text, pos + 1);
  }
  return elements;
}

std::string Minified(std::string_view text, Span value) {
  std::string out;
  out.reserve(value.end - value.begin);
  std::size_t pos = value.begin;
  while (pos < value.end) {
    const char c = text[pos];
    if (c == '"') {
      const std::size_t end = SkipString(text, pos);
      out.append(text.substr(pos, end - pos));
      pos = end;
    } else {
      if (c != ' ' && c != '\t' && c != '\n' && c != '\r') out += c;
      ++pos;
    }
  }
  return out;
}

std::string KeyText(std::string_view text, Span key) {
  const std::string_view quoted = key.Of(text);
  if (quoted.find('\\') == std::string_view::npos) {
    return std::string(quoted.substr(1, quoted.size() - 2));
  }
  return nlohmann::json::parse(quoted).get<std::string>();
}

std::string IndentBefore(std::string_view text, std::size_t pos) {
  std::size_t start = pos;
  while (start > 0 && (text[start - 1] == ' ' || text[start - 1] == '\t')) --start;
  if (start > 0 && text[start - 1] != '\n') return "";
  return std::string(text.substr(start, pos - start));
}

}  // namespace hostlib::data::json_spans
