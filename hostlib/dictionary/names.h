// The host's rule for the characters of names; the lexer's words follow it
// too, so that every name a user can write is one word.
#pragma once

#include <cstdint>
#include <string_view>

#include "hostlib/strings/unicode.h"

namespace hostlib::dictionary {

inline constexpr std::size_t kMaxNameBytes = 64;

inline bool IsNameStart(std::int32_t codePoint) {
  return codePoint == '@' || codePoint == '#' || codePoint == '$' || strings::IsLetter(codePoint);
}

// Marks count as part of a name so that scripts that write vowels as
// combining signs (Devanagari, Thai, ...) can spell names.
inline bool IsNamePart(std::int32_t codePoint) {
  return IsNameStart(codePoint) || codePoint == '.' || codePoint == '_' ||
         strings::IsDigit(codePoint) || strings::IsMark(codePoint);
}

// True when a and b are equal ignoring the case of ASCII letters only: the
// reserved words and ALL are ASCII, and "WİTH" or "wıth" is a name.
bool EqualsAsciiNoCase(std::string_view a, std::string_view b);

// ALL AND BY EQ GE GT LE LT NE NOT OR TO WITH, in any letter case.
bool IsReservedWord(std::string_view word);

}  // namespace hostlib::dictionary
