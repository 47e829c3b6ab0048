#include "host/platform_strings.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "hostlib/strings/unicode.h"

namespace {

using hostlib::strings::AsciiLower;
using hostlib::strings::IsAscii;

int CompareFolded(std::string_view a, std::string_view b) {
  // An ASCII character folds to one byte, its lower case, and every other
  // character to at least one: up to the first other character the folded
  // texts compare as the bytes lowered do.
  const std::size_t shorter = std::min(a.size(), b.size());
  std::size_t i = 0;
  for (; i < shorter && IsAscii(a[i]) && IsAscii(b[i]); ++i) {
    const auto byteA = static_cast<unsigned char>(AsciiLower(a[i]));
    const auto byteB = static_cast<unsigned char>(AsciiLower(b[i]));
    if (byteA != byteB) return byteA < byteB ? -1 : 1;
  }
  if (i == shorter) {
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
  }
  const std::string foldedA = hostlib::strings::FoldCase(a);
  const std::string foldedB = hostlib::strings::FoldCase(b);
  // Byte order of UTF-8 is code point order; bad bytes sort as their value.
  const std::size_t common = std::min(foldedA.size(), foldedB.size());
  for (std::size_t i = 0; i < common; ++i) {
    const auto byteA = static_cast<unsigned char>(foldedA[i]);
    const auto byteB = static_cast<unsigned char>(foldedB[i]);
    if (byteA != byteB) {
      return byteA < byteB ? -1 : 1;
    }
  }
  if (foldedA.size() == foldedB.size()) {
    return 0;
  }
  return foldedA.size() < foldedB.size() ? -1 : 1;
}

std::string_view Bounded(const char* text, std::size_t length) {
  if (text == nullptr) {
    return {};
  }
  // Never read past the terminator, whatever length the caller passes.
  const void* end = std::memchr(text, '\0', length);
  return {text,
          end == nullptr ? length : static_cast<std::size_t>(static_cast<const char*>(end) - text)};
}

}  // namespace

int VORNMBstricmp_A(const char* a, const char* b) {
  return CompareFolded(a == nullptr ? "" : a, b == nullptr ? "" : b);
}

int VORNMBqstricmp_A(const char* a, std::size_t lengthA, const char* b, std::size_t lengthB,
                     int /*flag*/) {
  return CompareFolded(Bounded(a, lengthA), Bounded(b, lengthB)) == 0 ? 1 : 0;
}

void VORNMBstrupr_A(std::string& text) { text = hostlib::strings::UpperCase(text); }

char* VORNMBzstncpy_A(char* destination, const char* source, std::size_t size) {
  if (destination == nullptr || size == 0) {
    return destination;
  }
  const std::string_view text = source == nullptr ? std::string_view{} : std::string_view{source};
  std::size_t copied = 0;
  while (copied < text.size()) {
    const std::size_t length = hostlib::strings::DecodeAt(text, copied).length;
    if (copied + length > size - 1) {
      break;
    }
    copied += length;
  }
  std::memcpy(destination, text.data(), copied);
  destination[copied] = '\0';
  return destination;
}
