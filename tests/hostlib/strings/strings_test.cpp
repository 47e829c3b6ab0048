#include <gtest/gtest.h>

#include <string>

#include "host/platform_strings.h"
#include "hostlib/strings/unicode.h"

namespace {

using hostlib::strings::DisplayWidth;
using hostlib::strings::FoldCase;
using hostlib::strings::IsValidUtf8;
using hostlib::strings::UpperCase;

TEST(UnicodeTest, UpperCaseIsSimplePerCharacter) {
  const std::pair<std::string, std::string> cases[] = {
      {"abc", "ABC"},       {"αβγ ωσς", "ΑΒΓ ΩΣΣ"},   {"ığdır", "IĞDIR"},
      {"straße", "STRAßE"}, {"漢字かな", "漢字かな"}, {"ǆ", "Ǆ"},
      {"a\xFF", "A\xFF"},
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(UpperCase(in), out) << in;
    std::string text = in;
    VORNMBstrupr_A(text);
    EXPECT_EQ(text, out) << in;
  }
}

TEST(UnicodeTest, FoldCaseMakesCaseVariantsEqual) {
  const std::pair<std::string, std::string> equal[] = {
      {"ABC", "abc"}, {"ΣΊΣΥΦΟΣ", "σίσυφος"}, {"ς", "σ"}, {"ẞ", "ß"}, {"Ǆ", "ǆ"}, {"ǅ", "ǆ"},
  };
  for (const auto& [a, b] : equal) {
    EXPECT_EQ(FoldCase(a), FoldCase(b)) << a << " " << b;
  }
  EXPECT_NE(FoldCase("ß"), FoldCase("ss"));  // simple folding does not grow text
  EXPECT_EQ(FoldCase("x\x80y"), "x\x80y");
}

TEST(UnicodeTest, ValidityAndWidth) {
  EXPECT_TRUE(IsValidUtf8("Grüße, 世界"));
  EXPECT_TRUE(IsValidUtf8(""));
  for (const char* bad : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xFF"}) {
    EXPECT_FALSE(IsValidUtf8(bad)) << bad;
  }
  EXPECT_EQ(DisplayWidth("abc"), 3);
  EXPECT_EQ(DisplayWidth("世界"), 4);
  EXPECT_EQ(DisplayWidth("e\xCC\x81"), 1);  // e + combining acute
  EXPECT_EQ(DisplayWidth("a\xFF"), 2);
}

TEST(PlatformStringsTest, CompareWithoutCase) {
  EXPECT_EQ(VORNMBstricmp_A("ΚΑΛΗΜΕΡΑ", "καλημερα"), 0);
  EXPECT_EQ(VORNMBstricmp_A("Ärger", "ärger"), 0);
  EXPECT_LT(VORNMBstricmp_A("abc", "ABD"), 0);
  EXPECT_GT(VORNMBstricmp_A("abcd", "ABC"), 0);
  EXPECT_LT(VORNMBstricmp_A("z", "ä"), 0);  // code point order
  EXPECT_EQ(VORNMBstricmp_A("a\xFF", "A\xFF"), 0);
  EXPECT_NE(VORNMBstricmp_A("a\xFE", "a\xFF"), 0);
  EXPECT_GT(VORNMBstricmp_A("Z", "_"), 0);  // folded: "z" after "_"
  EXPECT_EQ(VORNMBstricmp_A("Q1är", "q1ÄR"), 0);
  EXPECT_LT(VORNMBstricmp_A("q1", "Q1ä"), 0);
  EXPECT_GT(VORNMBstricmp_A("q1ä", "Q1"), 0);
  EXPECT_LT(VORNMBstricmp_A("Q1a", "q1ä"), 0);

  EXPECT_NE(VORNMBqstricmp_A("LABELSXYZ", 6, "LABELSOURCE", 6, 0), 0);
  EXPECT_NE(VORNMBqstricmp_A("labels", 6, "LABELSOURCE", 6, 0), 0);
  EXPECT_EQ(VORNMBqstricmp_A("LABEL", 5, "LABELSOURCE", 6, 0), 0);
  EXPECT_NE(VORNMBqstricmp_A("şehir", 6, "ŞEHIR", 6, 0), 0);
  EXPECT_NE(VORNMBqstricmp_A("ab", 10, "AB", 2, 0), 0);  // stops at the terminator
}

TEST(PlatformStringsTest, BoundedCopyKeepsCharactersWhole) {
  struct Case {
    const char* source;
    std::size_t size;
    std::string expected;
  };
  const Case cases[] = {
      {"abcdef", 4, "abc"},
      {"äbc", 2, ""},  // ä needs 2 bytes plus the terminator
      {"äbc", 3, "ä"},
      {"世界", 6, "世"},
      {"世界", 7, "世界"},
      {"a\xFF"
       "b",
       3, "a\xFF"},  // a bad byte is a character of one byte
      {"abc", 1, ""},
  };
  for (const Case& c : cases) {
    char buffer[16];
    std::fill(std::begin(buffer), std::end(buffer), 'X');
    EXPECT_EQ(VORNMBzstncpy_A(buffer, c.source, c.size), buffer);
    EXPECT_EQ(std::string(buffer), c.expected) << c.source << " " << c.size;
  }
  char untouched[2] = {'X', 'Y'};
  VORNMBzstncpy_A(untouched, "abc", 0);
  EXPECT_EQ(untouched[0], 'X');
}

}  // namespace
