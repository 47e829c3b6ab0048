#include <gtest/gtest.h>

#include <string>

#include "host/dictionary.h"

namespace {

std::string Repeat(const std::string& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

TEST(ValidateNameTest, EachFaultKind) {
  struct Case {
    std::string name;
    int expected;
  };
  const Case cases[] = {
      {"age", kValidName},
      {"Q1_a.b", kValidName},
      {"$sys", kValidName},
      {"#n", kValidName},
      {"@x", kValidName},
      {"Größe", kValidName},
      {"βάρος", kValidName},
      {"年齢", kValidName},
      {"नाम", kValidName},  // combining vowel sign inside a name
      {"a1", kValidName},
      {"", kNameEmpty},
      {std::string(64, 'a'), kValidName},
      {std::string(65, 'a'), kNameTooLong},
      {Repeat("ä", 32), kValidName},  // 64 bytes, 32 characters
      {Repeat("ä", 32) + "a", kNameTooLong},
      {Repeat("世", 22), kNameTooLong},
      {"1abc", kNameBadFirstCharacter},
      {"_abc", kNameBadFirstCharacter},
      {".abc", kNameBadFirstCharacter},
      {"a b", kNameBadCharacter},
      {"a-b", kNameBadCharacter},
      {"a\xFF", kNameNotUtf8},
      {"abc.", kNameEndsWithPeriod},
      {"a..", kNameEndsWithPeriod},
      {"all", kNameReserved},
      {"With", kNameReserved},
      {"TO", kNameReserved},
      {"not", kNameReserved},
      {"eq", kNameReserved},
      {"WİTH", kValidName},  // only ASCII case variants are reserved
      {"TOTAL", kValidName},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ValidateVORNName(c.name), c.expected) << c.name;
  }
}

}  // namespace
