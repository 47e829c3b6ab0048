#include <array>
#include <string>

#include "host/dictionary.h"
#include "hostlib/dictionary/names.h"

namespace hostlib::dictionary {

bool EqualsAsciiNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) {
      return false;
    }
  }
  return true;
}

bool IsReservedWord(std::string_view word) {
  static constexpr std::array<std::string_view, 13> kReserved = {
      "ALL", "AND", "BY", "EQ", "GE", "GT", "LE", "LT", "NE", "NOT", "OR", "TO", "WITH"};
  for (std::string_view reserved : kReserved) {
    if (EqualsAsciiNoCase(word, reserved)) {
      return true;
    }
  }
  return false;
}

}  // namespace hostlib::dictionary

int ValidateVORNName(const std::string& name) {
  using namespace hostlib::dictionary;
  if (name.empty()) {
    return kNameEmpty;
  }
  if (!hostlib::strings::IsValidUtf8(name)) {
    return kNameNotUtf8;
  }
  if (name.size() > kMaxNameBytes) {
    return kNameTooLong;
  }
  for (std::size_t offset = 0; offset < name.size();) {
    const hostlib::strings::Decoded decoded = hostlib::strings::DecodeAt(name, offset);
    if (offset == 0 ? !IsNameStart(decoded.codePoint) : !IsNamePart(decoded.codePoint)) {
      return offset == 0 ? kNameBadFirstCharacter : kNameBadCharacter;
    }
    offset += decoded.length;
  }
  if (name.back() == '.') {
    return kNameEndsWithPeriod;
  }
  if (IsReservedWord(name)) {
    return kNameReserved;
  }
  return kValidName;
}
