#include "hostlib/data/codebook/json_spans.h"

#include <array>
#include <cstring>

#include <nlohmann/json.hpp>

namespace hostlib::data::json_spans {
namespace {

constexpr std::array<bool, 256> MakeTable(std::string_view bytes) {
  std::array<bool, 256> table{};
  for (const char c : bytes) table[static_cast<unsigned char>(c)] = true;
  return table;
}

constexpr auto kStructural = MakeTable("\"[]{}");
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
  std::size_t depth = 0;
  while (pos < text.size()) {
    const char c = text[pos];
    if (!kStructural[static_cast<unsigned char>(c)]) {
      ++pos;
    } else if (c == '"') {
      pos = SkipString(text, pos);
    } else {
      ++pos;
      if (c == '[' || c == '{') {
        ++depth;
      } else if (--depth == 0) {
        return pos;
      }
    }
  }
  return pos;
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

}  // namespace hostlib::data::json_spans
