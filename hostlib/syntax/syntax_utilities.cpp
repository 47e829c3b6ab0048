#include <string_view>

#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/strings/unicode.h"

bool KeywordMatch(const char* token, const char* keyword) {
  if (token == nullptr || keyword == nullptr) {
    return false;
  }
  const std::string_view written(token);
  const std::string_view full(keyword);
  if (written == full) {
    return true;
  }
  constexpr std::size_t kMinimumCharacters = 3;
  return full.starts_with(written) &&
         hostlib::strings::CharacterCount(written) >= kMinimumCharacters;
}

std::string TokenString(const TokenSequenceBase& tokens) { return tokens.Text(); }

std::string TokenStringCaps(const TokenSequenceBase& tokens) {
  return hostlib::strings::UpperCase(tokens.Text());
}
