#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "hostlib/data/datapackage/datapackage_store.h"

namespace hostlib::data {
namespace {

using Json = nlohmann::ordered_json;

VariableSet Likes() {
  VariableSet set("$likes", VariableSet::kMultipleCategorySet);
  set.AddVariableName("a");
  set.AddVariableName("b");
  return set;
}

TEST(SpliceSetsTest, ChangesOnlyTheSetsOfTheChosenResource) {
  const struct {
    const char* name;
    std::string text;
    std::vector<VariableSet> sets;
    std::string expected;
  } cases[] = {
      {"one line, inserted",
       R"({"resources":[{"name":"x","schema":{"fields":[]}},{"schema":{"fields":[] }}]})",
       {Likes()},
       R"({"resources":[{"name":"x","schema":{"fields":[]}},{"schema":{"fields":[],"multipleResponseSets": [{"name":"$likes","type":"categories","variables":["a","b"]}] }}]})"},
      {"an empty schema",
       R"({"resources":[{}, {"schema":{}}]})",
       {Likes()},
       R"({"resources":[{}, {"schema":{"multipleResponseSets": [{"name":"$likes","type":"categories","variables":["a","b"]}]}}]})"},
      {"replaced, none left",
       "{\"resources\": [{}, {\"schema\": {\"multipleResponseSets\": [1, {\"a\": \"]}\"}] "
       ",\"x\":1}}]}",
       {},
       "{\"resources\": [{}, {\"schema\": {\"multipleResponseSets\": [] ,\"x\":1}}]}"},
      {"lines ending in CR LF",
       "{\"resources\": [{},\r\n {\"schema\": {\"fields\": []\r\n}}]}",
       {Likes()},
       "{\"resources\": [{},\r\n {\"schema\": {\"fields\": [],\r\n \"multipleResponseSets\": "
       "[\r\n   {\r\n     \"name\": \"$likes\",\r\n     \"type\": \"categories\",\r\n     "
       "\"variables\": [\r\n       \"a\",\r\n       \"b\"\r\n     ]\r\n   }\r\n ]\r\n}}]}"},
      {"absent and none to write",
       R"({"resources":[{},{"schema":{"fields":[]}}]})",
       {},
       R"({"resources":[{},{"schema":{"fields":[]}}]})"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SpliceSets(c.text, 1, c.sets), c.expected) << c.name;
  }
}

TEST(SpliceSetsTest, IndentsInsertedSetsLikeTheFields) {
  const std::string text =
      "{\n  \"resources\": [\n    {\n      \"schema\": {\n        \"fields\": []\n      }\n    "
      "}\n  ]\n}\n";
  const std::string spliced = SpliceSets(text, 0, {Likes()});
  EXPECT_EQ(Json::parse(spliced)["resources"][0]["schema"]["multipleResponseSets"][0]["name"],
            "$likes");
  EXPECT_NE(spliced.find("\"fields\": [],\n        \"multipleResponseSets\": [\n          {"),
            std::string::npos)
      << spliced;
}

}  // namespace
}  // namespace hostlib::data
