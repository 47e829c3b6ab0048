#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
  std::string output;
  int exit = -1;
};

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

Result RunShell(const std::string& commandLine) {
  Result result;
  FILE* pipe = popen((commandLine + " 2>&1").c_str(), "r");
  char buffer[4096];
  std::size_t count = 0;
  while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, count);
  const int status = pclose(pipe);
  result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

Json Sets(const fs::path& codebook) {
  return Json::parse(ReadFile(codebook)).value("multipleResponseSets", Json::array());
}

class ConvertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("mrset-convert-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    for (const auto& entry : fs::directory_iterator(FIXTURES)) {
      fs::copy_file(entry.path(), dir_ / entry.path().filename());
    }
  }
  void TearDown() override { fs::remove_all(dir_); }

  Result Convert(const std::string& arguments) {
    return RunShell("cd " + Quote(dir_.string()) + " && " + Quote(MRSET_CONVERT) + " " + arguments);
  }
  Result Mrset(const std::string& arguments) {
    return RunShell("cd " + Quote(dir_.string()) + " && " + Quote(MRSET_PROGRAM) + " " + arguments);
  }
  fs::path dir_;
};

TEST_F(ConvertTest, DdiExportThenImportGivesTheSameSetsAndDictionary) {
  ASSERT_EQ(Convert("survey.json out.xml").exit, 0);
  const Result back = Convert("out.xml back.json");
  ASSERT_EQ(back.exit, 0) << back.output;
  EXPECT_EQ(Sets(dir_ / "back.json"), Sets(dir_ / "survey.json"));
  const Json fields = Json::parse(ReadFile(dir_ / "back.json"))["fields"];
  EXPECT_EQ(fields[2].value("categories", Json()), Json()) << "the counted value adds no label";
  EXPECT_EQ(fields[5]["constraints"]["maxLength"], 3);
  EXPECT_EQ(fields[5]["title"], "Said it's \"fine\"");
  const std::string xml = ReadFile(dir_ / "out.xml");
  EXPECT_LT(xml.find("<varGrp"), xml.find("<var "));
}

TEST_F(ConvertTest, SyntaxRunOnTheDictionaryWithoutSetsGivesTheSameSets) {
  ASSERT_EQ(Convert("survey.json sets.mrs").exit, 0);
  Json bare = Json::parse(ReadFile(dir_ / "survey.json"));
  bare.erase("multipleResponseSets");
  WriteFile(dir_ / "bare.json", bare.dump(1));
  const Result run = Mrset("-d bare.json sets.mrs");
  ASSERT_EQ(run.exit, 0) << run.output << ReadFile(dir_ / "sets.mrs");
  EXPECT_EQ(Sets(dir_ / "bare.json"), Sets(dir_ / "survey.json"));
}

TEST_F(ConvertTest, PlatformCsvYieldsCommandsThatDefineBothQuestions) {
  const Result made = Convert("platform.csv survey-out.json --sets found.mrs");
  ASSERT_EQ(made.exit, 0) << made.output;
  EXPECT_EQ(Sets(dir_ / "survey-out.json"), Json::array()) << "nothing defined unasked";
  const Json codebook = Json::parse(ReadFile(dir_ / "survey-out.json"));
  EXPECT_EQ(codebook["path"], "platform.csv");
  EXPECT_EQ(codebook["fields"][2]["type"], "string");
  EXPECT_EQ(codebook["fields"][11]["constraints"]["maxLength"], 12);
  EXPECT_EQ(codebook["fields"][6]["name"], "q7_apple");
  const Result run = Mrset("-d survey-out.json found.mrs");
  ASSERT_EQ(run.exit, 0) << run.output << ReadFile(dir_ / "found.mrs");
  const Json sets = Sets(dir_ / "survey-out.json");
  ASSERT_EQ(sets.size(), 3u) << sets.dump(1);
  EXPECT_EQ(sets[0]["name"], "$q5");
  EXPECT_EQ(sets[0]["countedValue"], "1");
  EXPECT_EQ(sets[0]["variables"], Json({"q5_1", "q5_2", "q5_3"}));
  EXPECT_EQ(sets[1]["name"], "$q7");
  EXPECT_EQ(sets[1]["variables"], Json({"q7_apple", "q7_pear", "q7_plum"}));
  EXPECT_EQ(sets[2]["type"], "categories");
  // The export's own header ("q7/apple") still gives the cases of q7_apple.
  const Result counted = Mrset("-d survey-out.json -f json -e 'MRFREQ /TABLES=$q7.'");
  ASSERT_EQ(counted.exit, 0) << counted.output;
  EXPECT_NE(counted.output.find(R"({"name":"apple","cells":{"N":2,)"), std::string::npos)
      << counted.output;
}

TEST_F(ConvertTest, TripleSBitstringAndSpreadBecomeSetsAndTheDataACsv) {
  const Result made = Convert("study.sss study.json");
  ASSERT_EQ(made.exit, 0) << made.output;
  const Json codebook = Json::parse(ReadFile(dir_ / "study.json"));
  EXPECT_EQ(codebook["path"], "study.csv");
  const Json sets = codebook["multipleResponseSets"];
  ASSERT_EQ(sets.size(), 2u);
  EXPECT_EQ(sets[0]["type"], "dichotomies");
  EXPECT_EQ(sets[0]["label"], "Media used");
  EXPECT_EQ(sets[0]["variables"], Json({"media_1", "media_2", "media_3"}));
  EXPECT_EQ(sets[1]["type"], "categories");
  EXPECT_EQ(sets[1]["variables"], Json({"brands_1", "brands_2"}));
  EXPECT_EQ(codebook["fields"][1]["title"], "Press");
  EXPECT_EQ(codebook["fields"][5]["title"], "Brands bought (2)");
  EXPECT_EQ(codebook["fields"][7]["constraints"]["maxLength"], 6);
  EXPECT_EQ(codebook["fields"][7]["title"], "Town");
  EXPECT_EQ(ReadFile(dir_ / "study.csv"),
            "gender,media_1,media_2,media_3,brands_1,brands_2,age,town,member\r\n"
            "1,1,0,1,1,12,34,Leeds,1\r\n"
            "2,0,1,0,12,,19,York,0\r\n");  // zeros fill an unused subfield
}

// Files written by other tools from the published descriptions: what each
// set is made of, and the values where the dictionary places them.
TEST_F(ConvertTest, TripleSFromOtherToolsGivesTheirSetsAndData) {
  ASSERT_EQ(Convert("brand.sss brand.json").exit, 0);
  const Json brand = Json::parse(ReadFile(dir_ / "brand.json"));
  const Json sets = brand["multipleResponseSets"];
  ASSERT_EQ(sets.size(), 2u);
  EXPECT_EQ(sets[0]["label"], "Which of these newspapers do you read?");
  EXPECT_EQ(sets[0]["variables"], Json({"Q2_1", "Q2_2", "Q2_3", "Q2_5"}));
  EXPECT_EQ(sets[1]["variables"], Json({"Q3_1", "Q3_2", "Q3_3"}));
  EXPECT_EQ(brand["fields"][12]["title"], "R\u00e9gion");
  // The mark of code 5 is the bitstring's fifth character, not its fourth.
  EXPECT_EQ(ReadFile(dir_ / "brand.csv"),
            "RESPID,Q1,Q2_1,Q2_2,Q2_3,Q2_5,Q3_1,Q3_2,Q3_3,Q4,Q5,WEIGHT,REGION\r\n"
            "0001,1,1,1,0,0,01,02,10,Citro\u00ebn,1,1.2500,5\r\n"
            "0002,2,0,0,0,1,10,,,(none),0,0.8750,12\r\n"
            "0003,9,,,,,,,,Zed,1,1.0000,3\r\n");
  const Result made = Convert("devices.xml devices.json");
  ASSERT_EQ(made.exit, 0) << made.output;
  const Json devices = Json::parse(ReadFile(dir_ / "devices.json"));
  EXPECT_EQ(devices["multipleResponseSets"][0]["label"], "Devices owned");
  EXPECT_EQ(devices["fields"][8]["type"], "string");
  EXPECT_EQ(devices["fields"][8]["categories"][1], Json({{"value", "B"}, {"label", "Contract"}}));
  EXPECT_EQ(ReadFile(dir_ / "devices.csv"),
            "caseid,devices_1,devices_2,devices_3,devices_4,apps_1,apps_2,sat,plan\r\n"
            "A-01,1,0,1,0,3,1,5,B\r\nA-02,0,0,0,1,2,,1,A\r\nB-07,1,1,1,1,,,,\r\n");
  // A data file named outside the folder is not followed.
  std::string outside = ReadFile(dir_ / "brand.sss");
  outside.replace(outside.find("brand-data.asc"), 14, "../brand-data.asc");
  WriteFile(dir_ / "away.sss", outside);
  ASSERT_EQ(Convert("away.sss away.json").exit, 0);
  EXPECT_FALSE(fs::exists(dir_ / "away.csv"));
  // Data in another encoding than the XML declares (none: UTF-8) are refused.
  WriteFile(dir_ / "study.asc", "1101011234Leeds 1\n2010120019Z\xFCrich0\n");
  const Result refused = Convert("study.sss study.json");
  EXPECT_EQ(refused.exit, 1);
  EXPECT_NE(refused.output.find("study.asc: line 2: the data are not UTF-8"), std::string::npos)
      << refused.output;
  EXPECT_FALSE(fs::exists(dir_ / "study.json"));
  EXPECT_FALSE(fs::exists(dir_ / "study.csv"));
}

TEST_F(ConvertTest, DdiFromOtherToolsGivesTheirGroupsAndSurvivesARoundTrip) {
  const Result made = Convert("media.xml media.json");
  ASSERT_EQ(made.exit, 0) << made.output;
  const Json codebook = Json::parse(ReadFile(dir_ / "media.json"));
  const Json sets = codebook["multipleResponseSets"];
  ASSERT_EQ(sets.size(), 4u) << sets.dump(1);
  // The group inside a section, by its var IDs, labelled at its own level;
  // the missing category 9 does not make its checked boxes categories.
  EXPECT_EQ(sets[0]["name"], "$MR_Q5");
  EXPECT_EQ(sets[0]["label"], "Which of these do you use for news?");
  EXPECT_EQ(sets[0]["type"], "dichotomies");
  EXPECT_EQ(sets[0]["variables"], Json({"q5a", "q5b", "q5c"}));
  EXPECT_EQ(sets[1]["countedValue"], "Y") << "string members coded Y Yes, N No";
  EXPECT_EQ(sets[2]["type"], "categories");
  EXPECT_EQ(sets[3]["type"], "dichotomies") << "members coded 1 Yes, 2 No";
  EXPECT_EQ(sets[3]["countedValue"], "1");
  EXPECT_EQ(codebook["fields"][1]["title"], "Television");
  EXPECT_EQ(codebook["fields"][6]["constraints"]["maxLength"], 20);
  EXPECT_EQ(codebook["fields"][8]["constraints"]["maxLength"], 4) << "codes of letters";
  EXPECT_EQ(Convert("media.json media.mrs").exit, 0) << "no label holds a line break";
  ASSERT_EQ(Convert("media.json again.xml").exit, 0);
  ASSERT_EQ(Convert("again.xml again.json").exit, 0);
  EXPECT_EQ(Sets(dir_ / "again.json"), sets);
}

TEST_F(ConvertTest, DataPackageSchemaInItsOwnFileKeepsTheSetsThere) {
  const std::string package = ReadFile(dir_ / "households.json");
  const Result run = Mrset(
      "-d households.json -e 'MRSET /MDGROUP NAME=$fuel VARIABLES=fuel_wood fuel_gas fuel_elec "
      "VALUE=1.'");
  ASSERT_EQ(run.exit, 0) << run.output;
  EXPECT_EQ(ReadFile(dir_ / "households.json"), package);
  EXPECT_EQ(Sets(dir_ / "households.schema.json")[0]["name"], "$fuel");
  const Result shown = Mrset("-d households.json -e 'MRSET /DISPLAY NAME=ALL.'");
  EXPECT_NE(shown.output.find("Cooking fuel: wood"), std::string::npos) << shown.output;
  // Table Schema 2: list fields and categories as bare values.
  const Result wave = Mrset("-d wave2.json -e 'MRSET /MCGROUP NAME=$c VARIABLES=q5_1 q5_2.'");
  ASSERT_EQ(wave.exit, 0) << wave.output;
  EXPECT_EQ(Json::parse(ReadFile(
                dir_ / "wave2.json"))["resources"][0]["schema"]["multipleResponseSets"][0]["name"],
            "$c");
}

TEST_F(ConvertTest, ExportsOfOtherToolsYieldCommandsThatDefineEveryQuestion) {
  const struct {
    const char* csv;
    Json names;
  } cases[] = {
      {"panel.csv", Json({"$Q5", "$Q6"})},
      {"form.csv", Json({"$fruit", "$transport"})},
  };
  for (const auto& c : cases) {
    const std::string stem = fs::path(c.csv).stem().string();
    const Result made = Convert(std::string(c.csv) + " " + stem + ".json --sets " + stem + ".mrs");
    ASSERT_EQ(made.exit, 0) << made.output;
    const Result run = Mrset("-d " + stem + ".json " + stem + ".mrs");
    ASSERT_EQ(run.exit, 0) << run.output << ReadFile(dir_ / (stem + ".mrs"));
    Json names = Json::array();
    for (const Json& set : Sets(dir_ / (stem + ".json"))) names.push_back(set["name"]);
    EXPECT_EQ(names, c.names) << c.csv;
  }
}

TEST_F(ConvertTest, DdiImportTakesGroupsAndTellsDichotomiesFromCodes) {
  const Result made = Convert("archive.xml archive.json");
  ASSERT_EQ(made.exit, 0) << made.output;
  const Json codebook = Json::parse(ReadFile(dir_ / "archive.json"));
  const Json sets = codebook["multipleResponseSets"];
  ASSERT_EQ(sets.size(), 2u);
  EXPECT_EQ(sets[0]["name"], "$news");
  EXPECT_EQ(sets[0]["type"], "dichotomies");
  EXPECT_EQ(sets[0]["countedValue"], "1");
  EXPECT_EQ(sets[1]["name"], "$VG2");
  EXPECT_EQ(sets[1]["type"], "categories");
  EXPECT_EQ(sets[1]["variables"], Json({"issue1", "issue2"}));
  EXPECT_EQ(codebook["fields"][4]["constraints"]["maxLength"], 12);
}

TEST_F(ConvertTest, DataPackageResourceGetsTheSetsAndKeepsEveryOtherByte) {
  const std::string before = ReadFile(dir_ / "datapackage.json");
  const Result run = Mrset(
      "-d datapackage.json#responses -e 'MRSET /MCGROUP NAME=$a LABEL=\"A\" VARIABLES=a1 a2.'");
  ASSERT_EQ(run.exit, 0) << run.output;
  const std::string after = ReadFile(dir_ / "datapackage.json");
  const Json package = Json::parse(after);
  EXPECT_EQ(package["resources"][1]["schema"]["multipleResponseSets"][0]["name"], "$a");
  const std::string kept = "\"primaryKey\":   \"a1\"";
  const std::size_t cut = after.find(kept) + kept.size();
  EXPECT_EQ(after.substr(0, cut), before.substr(0, before.find(kept) + kept.size()));
  EXPECT_EQ(after.substr(after.find("\n      }\n    },\n    {\n      \"name\": \"other\"")),
            before.substr(before.find("\n      }\n    },\n    {\n      \"name\": \"other\"")));
  // Several tabular resources and no name: refused, saying which there are.
  const Result unnamed = Mrset("-d datapackage.json -e 'MRSET /DISPLAY NAME=ALL.'");
  EXPECT_EQ(unnamed.exit, 2);
  EXPECT_NE(unnamed.output.find("several tabular resources (responses, other)"), std::string::npos)
      << unnamed.output;
  const Result unknown = Mrset("-d datapackage.json#nope -e 'MRSET /DISPLAY NAME=ALL.'");
  EXPECT_NE(unknown.output.find("datapackage.json: /resources: no resource is named \"nope\""),
            std::string::npos)
      << unknown.output;
  const Result deleted = Mrset("-d datapackage.json#responses -e 'MRSET /DELETE NAME=ALL.'");
  ASSERT_EQ(deleted.exit, 0) << deleted.output;
  ASSERT_EQ(Convert("datapackage.json#responses schema.json").exit, 0);
  EXPECT_EQ(Json::parse(ReadFile(dir_ / "schema.json"))["primaryKey"], "a1");
}

TEST_F(ConvertTest, BadFilesAreRefusedWithPlaceAndFaultAndNothingIsWritten) {
  const struct {
    const char* name;
    const char* contents;
    const char* message;
  } cases[] = {
      {"broken.xml", "<codeBook>\n<dataDscr>\n</codeBook>",
       "broken.xml: line 3: not well-formed XML"},
      {"other.xml", "<html/>", "root is <html>"},
      {"novar.xml",
       "<codeBook><dataDscr>\n<varGrp type=\"multipleResp\" name=\"$g\" "
       "var=\"x\"/>\n</dataDscr></codeBook>",
       "novar.xml: line 2: the group $g refers to x, which is no <var>"},
      {"badcode.xml",
       "<codeBook><dataDscr>\n<var name=\"a\"><catgry><catValu>x</catValu></catgry>"
       "<varFormat type=\"numeric\"/></var></dataDscr></codeBook>",
       "badcode.xml: line 2: the category value \"x\" of a is not a number"},
      {"twice.xml",
       "<codeBook><dataDscr><var name=\"a\"/>\n<var name=\"A\"/></dataDscr></codeBook>",
       "twice.xml: line 2:"},
      {"type.sss",
       "<sss><survey><record ident=\"A\">\n<variable ident=\"1\" type=\"odd\"><name>x</name>"
       "<position start=\"1\"/></variable></record></survey></sss>",
       "type.sss: line 2: unknown variable type \"odd\""},
      {"pos.sss",
       "<sss><survey><record ident=\"A\"><variable ident=\"1\" type=\"single\"><name>x</name>\n"
       "<position start=\"0\"/></variable></record></survey></sss>",
       "pos.sss: line 2: the start of <position> must be a whole number from 1 up"},
      {"ragged.csv", "a,b\n1,2\n3\n", "ragged.csv: line 3: has 1 fields; the header has 2"},
      {"quote.csv", "a,b\n1,\"2\n", "quote.csv: line 2: a quoted field is not closed"},
      {"latin.csv", "a,b\n1,2\n3,caf\xE9\n", "latin.csv: line 3: the text is not UTF-8"},
      {"latin.xml", "<codeBook>\n<dataDscr><var name=\"caf\xE9\"/></dataDscr></codeBook>",
       "latin.xml: line 2: the text is not UTF-8"},
      {"ebcdic.sss", "<?xml version=\"1.0\" encoding=\"EBCDIC-US\"?><sss/>",
       "ebcdic.sss: line 1: the encoding \"ebcdic-us\" is not supported"},
      {"empty.xml",
       "<codeBook><dataDscr>\n<varGrp type=\"multipleResp\" ID=\"g\" var=\" \"/>"
       "</dataDscr></codeBook>",
       "empty.xml: line 2: the group $g lists no variables"},
      {"url.json", R"({"resources": [{"name": "r", "schema": "https://example.org/s.json"}]})",
       "url.json: /resources/0/schema: the schema at https://example.org/s.json is not fetched"},
      {"up.json", R"({"resources": [{"name": "r", "schema": "../s.json"}]})",
       "up.json: /resources/0/schema: must be a path within the package's folder"},
      {"noschema.json", R"({"resources": [{"name": "r", "schema": "gone.json"}]})",
       "noschema.json: /resources/0/schema: "},
  };
  for (const auto& c : cases) {
    WriteFile(dir_ / c.name, c.contents);
    const Result result = Convert(std::string(c.name) + " out.json --sets out.mrs");
    EXPECT_EQ(result.exit, 1) << c.name;
    EXPECT_NE(result.output.find(c.message), std::string::npos) << c.name << ": " << result.output;
    EXPECT_FALSE(fs::exists(dir_ / "out.json")) << c.name;
    EXPECT_FALSE(fs::exists(dir_ / "out.mrs")) << c.name;
  }
}

// Labels in the encoding the file declares reach the codebook as UTF-8.
TEST_F(ConvertTest, DeclaredSingleByteEncodingsBecomeUtf8) {
  for (const char* encoding : {"ISO-8859-1", "windows-1252"}) {
    WriteFile(dir_ / "archive.xml",
              std::string("<?xml version=\"1.0\" encoding=\"") + encoding +
                  "\"?>\n<codeBook><dataDscr><var name=\"a\"><labl>Caf\xE9 \x80</labl></var>"
                  "</dataDscr></codeBook>");
    fs::remove(dir_ / "out.json");
    ASSERT_EQ(Convert("archive.xml out.json").exit, 0) << encoding;
    const std::string label =
        Json::parse(ReadFile(dir_ / "out.json"))["fields"][0].value("title", "");
    EXPECT_EQ(label,
              std::string(encoding) == "ISO-8859-1" ? "Caf\u00e9 \u0080" : "Caf\u00e9 \u20ac")
        << encoding;
  }
}

// UTF-16 with a byte order mark (as some tools on one system write XML),
// read in either byte order; a broken one refused with its line.
TEST_F(ConvertTest, Utf16XmlIsReadAndItsLinesCounted) {
  const std::string latin1 =
      "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n<codeBook><dataDscr><var name=\"a\">"
      "<labl>Caf\xE9</labl></var></dataDscr></codeBook>";
  for (const bool bigEndian : {false, true}) {
    std::string utf16 = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : latin1) {
      utf16 += bigEndian ? std::string(1, '\0') + c : std::string(1, c) + '\0';
    }
    WriteFile(dir_ / "wide.xml", utf16);
    fs::remove(dir_ / "out.json");
    const Result made = Convert("wide.xml out.json");
    ASSERT_EQ(made.exit, 0) << made.output;
    EXPECT_EQ(Json::parse(ReadFile(dir_ / "out.json"))["fields"][0]["title"], "Caf\u00e9");
    utf16.insert(utf16.size() - 8, bigEndian ? "\xDC\x00" : "\x00\xDC", 2);  // a lone surrogate
    WriteFile(dir_ / "wide.xml", utf16);
    fs::remove(dir_ / "out.json");
    const Result refused = Convert("wide.xml out.json");
    EXPECT_NE(refused.output.find("wide.xml: line 2: the text is not UTF-16"), std::string::npos)
        << refused.output;
    EXPECT_FALSE(fs::exists(dir_ / "out.json"));
  }
}

TEST_F(ConvertTest, ToOverridesTheNameAndAnUnknownFormatIsUsage) {
  EXPECT_EQ(Convert("survey.json sets.txt --to syntax").exit, 0);
  EXPECT_NE(ReadFile(dir_ / "sets.txt").find("MRSET /MDGROUP NAME=$likes"), std::string::npos);
  EXPECT_EQ(Convert("survey.json x.txt").exit, 2);
  EXPECT_EQ(Convert("survey.json x.txt --to pdf").exit, 2);
}

}  // namespace
