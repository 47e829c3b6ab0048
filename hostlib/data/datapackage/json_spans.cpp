#include "hostlib/data/datapackage/json_spans.h"

#include <nlohmann/json.hpp>
#include <string>

namespace hostlib::data {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && IsBlank(text[at])) ++at;
  return at;
}

// One past the closing quote of the string that opens at `at`.
std::size_t StringEnd(std::string_view text, std::size_t at) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      return at + 1;
    }
  }
  return text.size();
}

// One past the value that begins at `at` (no blanks before it).
std::size_t ValueEnd(std::string_view text, std::size_t at) {
  if (at >= text.size()) return at;
  if (text[at] == '"') return StringEnd(text, at);
  if (text[at] != '{' && text[at] != '[') {
    while (at < text.size() && !IsBlank(text[at]) && text[at] != ',' && text[at] != ']' &&
           text[at] != '}') {
      ++at;
    }
    return at;
  }
  std::size_t depth = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == '"') {
      at = StringEnd(text, at);
      continue;
    }
    if (c == '{' || c == '[') ++depth;
    if (c == '}' || c == ']') {
      if (--depth == 0) return at + 1;
    }
    ++at;
  }
  return at;
}

std::string DecodeKey(std::string_view raw) {
  try {
    return nlohmann::json::parse(raw).get<std::string>();
  } catch (const nlohmann::json::exception&) {
    return {};
  }
}

}  // namespace

Span RootSpan(std::string_view text) {
  const std::size_t begin = SkipBlanks(text, 0);
  return {begin, ValueEnd(text, begin)};
}

std::optional<Span> MemberSpan(std::string_view text, Span object, std::string_view key) {
  if (object.begin >= text.size() || text[object.begin] != '{') return std::nullopt;
  std::optional<Span> found;
  std::size_t at = SkipBlanks(text, object.begin + 1);
  while (at < object.end && text[at] == '"') {
    const std::size_t keyEnd = StringEnd(text, at);
    const bool match = DecodeKey(text.substr(at, keyEnd - at)) == key;
    at = SkipBlanks(text, keyEnd);
    at = SkipBlanks(text, at + 1);  // the colon
    const std::size_t valueEnd = ValueEnd(text, at);
    if (match) found = Span{at, valueEnd};
    at = SkipBlanks(text, valueEnd);
    if (at < object.end && text[at] == ',') at = SkipBlanks(text, at + 1);
  }
  return found;
}

std::optional<Span> ElementSpan(std::string_view text, Span array, std::size_t index) {
  if (array.begin >= text.size() || text[array.begin] != '[') return std::nullopt;
  std::size_t at = SkipBlanks(text, array.begin + 1);
  for (std::size_t i = 0; at < array.end && text[at] != ']'; ++i) {
    const std::size_t valueEnd = ValueEnd(text, at);
    if (i == index) return Span{at, valueEnd};
    at = SkipBlanks(text, valueEnd);
    if (at < array.end && text[at] == ',') at = SkipBlanks(text, at + 1);
  }
  return std::nullopt;
}

}  // namespace hostlib::data
