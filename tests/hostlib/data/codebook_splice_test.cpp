#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hostlib/data/codebook/codebook_store.h"
#include "hostlib/data/codebook/json_spans.h"
#include "hostlib/data/codebook/splice_writer.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;

class CodebookSpliceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::path(::testing::TempDir()) / "splice-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path Write(const std::string& text) const {
    std::ofstream(dir_ / "data.json", std::ios::binary) << text;
    return dir_ / "data.json";
  }
  static std::string Read(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }

  fs::path dir_;
};

VariableSet Dichotomy(const std::string& name, std::vector<std::string> members) {
  VariableSet set(name, VariableSet::kMultipleDichotomySet);
  set.SetValue("1");
  for (const auto& member : members) set.AddVariableName(member);
  return set;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(CodebookSpliceTest, SaveChangesOnlyTheSetListBytes) {
  // What the host does not interpret, as written: big and odd numbers,
  // repeated keys, escapes, no white space at all.
  const std::string head =
      R"({"fields": [{"name": "a", "type": "integer", "x": 1.50,)"
      R"( "categories": [{"value": 1E5, "label": "L\u0041"}]}, {"name": "b"}],)"
      R"( "big": 123456789012345678901234567890, "dup": 1, "dup": 2,)";
  const struct {
    std::string before, after;
  } files[] = {
      {head + R"( "multipleResponseSets": )", R"(, "tail": [1.0e0]})"},
      {head + "\n  \"multipleResponseSets\": ", ",\n  \"tail\": {\"x\": -0.0}\n}\n"},
      {R"({"fields":[{"name":"a"},{"name":"b"}],"multipleResponseSets":)", R"(})"},
  };
  for (const auto& file : files) {
    const fs::path path = Write(file.before + "[]" + file.after);
    CodebookFile store(path);
    Dataset dataset = store.Load();
    const std::vector<VariableSet> sets = {Dichotomy("$x", {"a", "b"}), Dichotomy("$y", {"b"})};
    dataset.ReplaceMultipleResponseSets(sets);
    store.Save(dataset);
    const std::string saved = Read(path);
    ASSERT_EQ(saved.substr(0, file.before.size()), file.before);
    ASSERT_EQ(saved.substr(saved.size() - file.after.size()), file.after);

    CodebookFile again(path);
    Dataset reread = again.Load();
    EXPECT_EQ(reread.MultipleResponseSets(), sets);
    // A second save of the same sets writes the same bytes.
    again.Save(reread);
    EXPECT_EQ(Read(path), saved);
  }
}

TEST_F(CodebookSpliceTest, LargeFilesAreSplicedLikeSmallOnes) {
  // Past some megabytes the bytes kept are copied on a thread of their own
  // while the list is written in pieces at its own place.
  const std::string filler(9 << 20, 'x');
  const std::string fields = R"("fields": [{"name": "a", "note": ")" + filler + R"("}])";
  std::vector<VariableSet> many;
  for (int i = 0; i < 20000; ++i) many.push_back(Dichotomy("$s" + std::to_string(i), {"a"}));
  const struct {
    std::string before, after;
  } files[] = {
      {"{\n  " + fields + ",\n  \"multipleResponseSets\": ", "\n}\n"},
      {"{\n  \"multipleResponseSets\": ", ",\n  " + fields + "\n}\n"},
  };
  for (const auto& file : files) {
    const fs::path path = Write(file.before + "[]" + file.after);
    CodebookFile store(path);
    Dataset dataset = store.Load();
    dataset.ReplaceMultipleResponseSets(many);
    store.Save(dataset);
    EXPECT_TRUE(Read(path) == file.before + RenderSetList(many, "  ", path) + file.after);
    EXPECT_EQ(CodebookFile(path).Load().MultipleResponseSets(), many);
  }
  const fs::path path = Write("{\n  " + fields + "\n}\n");
  CodebookFile store(path);
  Dataset dataset = store.Load();
  dataset.ReplaceMultipleResponseSets(many);
  store.Save(dataset);
  EXPECT_TRUE(Read(path) == "{\n  " + fields + ",\n  \"multipleResponseSets\": " +
                                RenderSetList(many, "  ", path) + "\n}\n");
}

TEST_F(CodebookSpliceTest, AbsentListIsAddedOnlyForSets) {
  const std::string text = "{\n  \"fields\": [{\"name\": \"a\"}],\n  \"x\": 1.50\n}\n";
  const fs::path path = Write(text);
  CodebookFile store(path);
  Dataset dataset = store.Load();
  store.Save(dataset);
  EXPECT_EQ(Read(path), text);

  dataset.ReplaceMultipleResponseSets({Dichotomy("$x", {"a"})});
  store.Save(dataset);
  EXPECT_EQ(Read(path),
            "{\n  \"fields\": [{\"name\": \"a\"}],\n  \"x\": 1.50,\n"
            "  \"multipleResponseSets\": [\n"
            "    {\"name\": \"$x\", \"type\": \"dichotomies\", \"countedValue\": \"1\", "
            "\"categoryLabels\": \"variableLabels\",\n"
            "     \"variables\": [\"a\"]}\n  ]\n}\n");
}

TEST_F(CodebookSpliceTest, DeletingOneSetChangesOnlyItsLines) {
  const fs::path path = Write(R"({"fields": [{"name": "a"}, {"name": "b"}]})");
  CodebookFile store(path);
  Dataset dataset = store.Load();
  VariableSet extra("$c", VariableSet::kMultipleCategorySet);
  extra.AddVariableName("a");
  extra.SetStoreExtras(R"({"note": 1.50, "list": [1, 2]})");
  const std::vector<VariableSet> three = {Dichotomy("$a", {"a", "b"}), extra,
                                          Dichotomy("$b", {"b"})};
  dataset.ReplaceMultipleResponseSets(three);
  store.Save(dataset);
  const std::vector<std::string> before = Lines(Read(path));

  dataset.ReplaceMultipleResponseSets({three[0], three[2]});
  store.Save(dataset);
  const std::vector<std::string> after = Lines(Read(path));
  // The deleted set's four lines (two of its own, one per unknown key) go.
  ASSERT_EQ(after.size() + 4, before.size());
  std::vector<std::string> expected = before;
  expected.erase(expected.begin() + 4, expected.begin() + 8);
  EXPECT_EQ(after, expected);
  EXPECT_EQ(before[6], R"(   "note": 1.50,)");
}

TEST_F(CodebookSpliceTest, NumbersTheFastParserRefusesReadTheSame) {
  // A number beyond 64 bits sends the file to the general reader: the same
  // dictionary, sets and faults.
  const std::string big = R"("big": 123456789012345678901234567890, )";
  const std::string body =
      R"("fields": [{"name": "a", "type": "integer", "categories": [{"value": 2, "label": "two"}]}],)"
      R"( "multipleResponseSets": [{"name": "$s", "type": "categories", "variables": ["a"],)"
      R"( "x": 1E5}]})";
  for (const std::string& prefix : {std::string("{"), "{" + big}) {
    CodebookFile store(Write(prefix + body));
    const Dataset dataset = store.Load();
    ASSERT_EQ(dataset.ColumnCount(), 1u);
    EXPECT_EQ(dataset.Variable(0).GetValueLabels().Labels().numeric.at(2.0), "two");
    ASSERT_EQ(dataset.MultipleResponseSets().size(), 1u);
    EXPECT_EQ(dataset.MultipleResponseSets()[0].StoreExtras(), R"({"x":1E5})");
  }
  const std::string faults[][2] = {
      {R"("fields": [{"name": "a\u0000"}]})", "/fields/0/name: must not hold the character U+0000"},
      {R"("fields": [{"name": "a"}, {"name": "A"}]})",
       R"(/fields/1/name: duplicate name "A" (the same as "a" at /fields/0/name, without regard to case))"},
      {R"("fields": [{"name": "a", "constraints": {"maxLength": 0}}]})",
       "/fields/0/constraints/maxLength: must be an integer from 1 to 32767"},
  };
  for (const auto& [text, fault] : faults) {
    for (const std::string& prefix : {std::string("{"), "{" + big}) {
      const fs::path path = Write(prefix + text);
      CodebookFile store(path);
      try {
        store.Load().Variables();
        ADD_FAILURE() << "accepted " << text;
      } catch (const DatasetError& error) {
        EXPECT_EQ(error.what(), path.string() + ": " + fault);
      }
    }
  }
}

// The open keeps each field's bytes and name: names with escapes, a
// repeated "name" key (the last counts) and fields after the set list are
// found and read as they are, across saves.
TEST_F(CodebookSpliceTest, FieldsAreFoundAndReadFromTheirOwnBytes) {
  const fs::path path = Write(
      R"({"multipleResponseSets": [], "x": {"fields": 1}, "fields": [)"
      R"({"name": "caf\u00e9", "title": "Caf\u00e9"}, {"name": "old", "name": "Q1", "type": "integer"},)"
      R"( {"type": "number", "name": "q\"2", "categories": [{"value": 1, "label": "one"}]}]})");
  CodebookFile store(path);
  for (int save = 0; save < 3; ++save) {
    const Dataset dataset = save == 0 ? store.Load() : CodebookFile(path).Load();
    ASSERT_EQ(dataset.ColumnCount(), 3u);
    EXPECT_EQ(dataset.FindVarIndex("CAFÉ"), 0);
    EXPECT_EQ(dataset.FindVarIndex("q1"), 1);
    EXPECT_EQ(dataset.FindVarIndex("old"), -1);
    EXPECT_EQ(dataset.FindVarIndex("Q\"2"), 2);
    EXPECT_STREQ(dataset.Variable(0).GetLabel(), "Café");
    EXPECT_EQ(dataset.Variable(1).GetType(), 0);
    EXPECT_EQ(dataset.Variable(2).GetValueLabels().Labels().numeric.at(1.0), "one");
    Dataset changed = dataset;
    std::vector<VariableSet> sets;
    for (int i = 0; i < save; ++i) {
      sets.emplace_back("$s" + std::to_string(i), VariableSet::kMultipleCategorySet);
    }
    changed.ReplaceMultipleResponseSets(sets);
    store.Save(changed);
  }
  EXPECT_EQ(CodebookFile(path).Load().MultipleResponseSets().size(), 2u);
  EXPECT_EQ(CodebookFile(path).TopLevelMembers({"x", "fields", "none"})->at("x"),
            R"({"fields": 1})");
}

TEST(JsonSpansTest, FindsMembersPastEscapesAndNesting) {
  const std::string text = R"({ "a\"b" : "x\\" , "c":[1, {"d": "]}"}, [ ] ] ,"e":-1.5e3})";
  const auto members = json_spans::ObjectMembers(text, {0, text.size()});
  ASSERT_EQ(members.size(), 3u);
  EXPECT_EQ(json_spans::KeyText(text, members[0].key), "a\"b");
  EXPECT_EQ(members[0].value.Of(text), R"("x\\")");
  EXPECT_EQ(json_spans::Minified(text, members[1].value), R"([1,{"d":"]}"},[]])");
  EXPECT_EQ(members[2].value.Of(text), "-1.5e3");
  EXPECT_EQ(json_spans::ArrayElements(text, members[1].value).size(), 3u);
}

TEST(JsonSpansTest, SkipsLongValuesWhereverEscapesAndBracketsFall) {
  // Padding moves escapes, quotes and brackets across the scanner's blocks.
  for (std::size_t pad = 0; pad < 70; ++pad) {
    const std::string item =
        R"({"k\\": "a\"]}[", "n": [[1], {}], ")" + std::string(pad, 'x') + R"(\\": "\\\""})";
    std::string value = "[" + std::string(pad, ' ');
    for (int i = 0; i < 5; ++i) value += item + ", ";
    value += "\"}\"]";
    const std::string text = value + R"(, "after": "]")";
    EXPECT_EQ(json_spans::SkipValue(text, 0), value.size()) << pad;
    EXPECT_EQ(json_spans::ArrayElements(text, {0, value.size()}).size(), 6u) << pad;
  }
}

}  // namespace
}  // namespace hostlib::data
