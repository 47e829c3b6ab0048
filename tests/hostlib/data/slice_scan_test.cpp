#include "hostlib/data/codebook/slice_scan.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;

// A codebook with what makes a cut hard: escapes, brackets and quotes in
// strings, several-byte characters, nested values, a repeated key.
constexpr const char* kPretty = R"({
  "name": "tricky \"one\" {[,:]}",
  "fields": [
    {"name": "a", "title": "x \\\" y", "categories": [{"value": 1, "label": "{]"}]},
    {
      "title": "ünïcödé ✓ 𝄞",
      "name": "b\u00e9",
      "name": "ƀ"
    },
    {"name": "c", "constraints": {"maxLength": 8}, "type": "string"}
  ],
  "other": {"deep": [[[{"x": [1, 2.5e3, -0, true, false, null]}]]]},
  "multipleResponseSets": [
    {"name": "$s", "type": "categories", "variables": ["a", "c"], "note": "]}"}
  ],
  "count": 12
}
)";

std::string Minified(std::string text) {
  std::string out;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      out += c;
      if (c == '\\') {
        out += text[++i];
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
      out += c;
    } else if (c != ' ' && c != '\n') {
      out += c;
    }
  }
  return out;
}

class SliceScanTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::path(::testing::TempDir()) / "slices-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Whether the scan succeeds, and what it found, in slices of `size`.
  bool Scan(const std::string& text, std::size_t size, SliceScan& scan,
            SetSink* sets = nullptr) const {
    const fs::path path = dir_ / "data.json";
    std::ofstream(path, std::ios::binary) << text;
    return ScanInSlices(SourceFile(path, files::DefaultEnv()), scan, sets, size);
  }

  fs::path dir_;
};

// Everything a scan found, spelled out for comparison.
std::string Describe(const std::string& text, const SliceScan& scan) {
  std::string out = "root " + std::to_string(scan.rootBegin) + " indent [" + scan.firstKeyIndent +
                    "] last " + std::to_string(scan.lastValueEnd) + "\n";
  for (const auto& member : scan.topLevel) {
    out += std::string(member.key.Of(text)) + " = " + std::string(member.value.Of(text)) + "\n";
  }
  for (const FieldEntry& field : scan.fields) {
    out += "field " + std::string(scan.NameOf(field)) + ": " +
           text.substr(field.begin, field.size) + "\n";
  }
  if (scan.setsPresent) {
    out += "sets [" + scan.setsKeyIndent + "] " + std::string(scan.setsValue.Of(text)) + "\n";
  }
  if (scan.fieldFault) out += "fault at " + std::to_string(scan.fieldFault->index) + "\n";
  return out;
}

TEST_F(SliceScanTest, AnySliceSizeFindsWhatOneSliceFinds) {
  const std::vector<std::string> texts = {
      kPretty,
      Minified(kPretty),
      "{}",
      " { }\n\n",
      R"({"fields": [], "fields": [1, "x", {"title": "no name"}]})",
      "{\"fields\":[{\"name\":\"q\"}\n,\n{\"name\":\"r\"}]\n}\n   ",
  };
  for (const std::string& text : texts) {
    SliceScan whole;
    ASSERT_TRUE(Scan(text, text.size() + 1, whole)) << text;
    const std::string expected = Describe(text, whole);
    for (const std::size_t size : {1, 2, 3, 5, 8, 13, 31, 64}) {
      SliceScan sliced;
      ASSERT_TRUE(Scan(text, size, sliced)) << text << "\nin slices of " << size;
      EXPECT_EQ(Describe(text, sliced), expected) << text << "\nin slices of " << size;
    }
  }
}

// Spells out the sets it is given: a set's name is its element's bytes and
// its place in the list.
class SpelledSets final : public SetSink {
 public:
  SetElement Read(const simdjson::dom::element&, std::string_view bytes,
                  std::size_t index) const override {
    return {VariableSet(std::to_string(index) + " " + std::string(bytes),
                        VariableSet::kMultipleCategorySet),
            nullptr};
  }
  void BeginList() override { text += "begin\n"; }
  void Add(SetElement set) override { text += set.set->GetName(kAsStored) + "\n"; }

  std::string text;
};

TEST_F(SliceScanTest, SetsComeInTheirOrderWhateverTheSlices) {
  const std::string text =
      R"({"multipleResponseSets": [{"name": "$old"}], "fields": [], "multipleResponseSets": [)"
      "\n  {\"name\": \"$a\", \"x\": [1, {\"y\": \"]\"}]},\n  7,\n  \"s\",\n"
      R"(  {"name": "$b"}, {"name": "$c"}, {"name": "$d"}, {"name": "$e"}]})";
  SpelledSets whole;
  SliceScan scan;
  ASSERT_TRUE(Scan(text, text.size() + 1, scan, &whole));
  EXPECT_EQ(whole.text,
            "begin\n0 {\"name\": \"$old\"}\nbegin\n"
            "0 {\"name\": \"$a\", \"x\": [1, {\"y\": \"]\"}]}\n1 7\n2 \"s\"\n"
            "3 {\"name\": \"$b\"}\n4 {\"name\": \"$c\"}\n5 {\"name\": \"$d\"}\n"
            "6 {\"name\": \"$e\"}\n");
  for (const std::size_t size : {1, 4, 9, 16, 40}) {
    SpelledSets sliced;
    SliceScan again;
    ASSERT_TRUE(Scan(text, size, again, &sliced)) << "in slices of " << size;
    EXPECT_EQ(sliced.text, whole.text) << "in slices of " << size;
  }
}

TEST_F(SliceScanTest, FindsFieldsNamesAndTheSetList) {
  SliceScan scan;
  ASSERT_TRUE(Scan(kPretty, 16, scan));
  ASSERT_EQ(scan.fields.size(), 3u);
  EXPECT_EQ(scan.NameOf(scan.fields[0]), "a");
  EXPECT_EQ(scan.NameOf(scan.fields[1]), "ƀ");  // the last "name"
  EXPECT_EQ(scan.NameOf(scan.fields[2]), "c");
  EXPECT_FALSE(scan.fieldFault);
  EXPECT_EQ(scan.firstKeyIndent, "  ");
  ASSERT_TRUE(scan.setsPresent);
  EXPECT_EQ(std::string(scan.setsValue.Of(kPretty)).substr(0, 6), "[\n    ");
  EXPECT_EQ(scan.topLevel.size(), 5u);
}

TEST_F(SliceScanTest, TheFirstFaultyFieldIsKept) {
  SliceScan scan;
  ASSERT_TRUE(Scan(R"({"fields": [{"name": "a"}, {"name": 5}, 7]})", 4, scan));
  ASSERT_TRUE(scan.fieldFault);
  EXPECT_EQ(scan.fieldFault->index, 1u);
  EXPECT_TRUE(scan.fieldFault->isObject);
  EXPECT_TRUE(scan.fieldFault->hasName);
  EXPECT_FALSE(scan.fieldFault->name);
}

TEST_F(SliceScanTest, TextTheWalkCannotFollowIsLeftToTheCarefulReader) {
  const std::vector<std::string> texts = {
      "",
      "[]",
      "{} x",
      R"({"a": 1}})",
      R"({"a" 1})",
      R"({"fields": [{"name": "a"},]})",
      R"({"fields": [{"name": "a", "x": tru}]})",
      R"({"fields": [{"name": "a", "x": 01}]})",
      R"({"other": {"x": [1, 2}})",
      R"({"fields": [{"name": "a"}])",
      R"({"fields": [{"name": "unclosed}])",
      R"({"fi\u0065lds": []})",
      "{\"fields\": [{\"name\": \"a\xff\"}]}",
      "{\"fields\": [{\"name\": \"line\nbreak\"}]}",
      R"({"name": "x", "name": [1 2]})",
  };
  for (const std::string& text : texts) {
    for (const std::size_t size : {1, 3, 7, 1024}) {
      SliceScan scan;
      EXPECT_FALSE(Scan(text, size, scan)) << text << "\nin slices of " << size;
    }
  }
}

}  // namespace
}  // namespace hostlib::data
