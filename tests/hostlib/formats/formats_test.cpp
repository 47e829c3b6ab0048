#include <gtest/gtest.h>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/formats/csv.h"
#include "hostlib/formats/csv_inference.h"
#include "hostlib/formats/syntax_out.h"
#include "hostlib/formats/triple_s.h"

namespace hostlib::formats {
namespace {

TEST(CsvTest, ReadsQuotesLineBreaksAndBlankLines) {
  const CsvTable table = ParseCsv(
      "\xEF\xBB\xBF"
      "a,b\r\n\"x,\"\"y\"\"\",\"two\nlines\"\r\n\r\n,\n",
      "t.csv");
  EXPECT_EQ(table.header, (std::vector<std::string>{"a", "b"}));
  ASSERT_EQ(table.rows.size(), 2u);
  EXPECT_EQ(table.rows[0], (std::vector<std::string>{"x,\"y\"", "two\nlines"}));
  EXPECT_EQ(table.rows[1], (std::vector<std::string>{"", ""}));
  EXPECT_EQ(RenderCsvRecord(table.rows[0]), "\"x,\"\"y\"\"\",\"two\nlines\"\r\n");
}

TEST(CsvTest, RefusesWhatIsNotCsv) {
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {"a,b\n\"x\"y,1\n", "t.csv: line 2: text after the closing quote of a field"},
      {"a\n1,2\n", "t.csv: line 2: has 2 fields; the header has 1"},
      {"", "t.csv: no header line"},
  };
  for (const auto& c : cases) {
    try {
      ParseCsv(c.text, "t.csv");
      ADD_FAILURE() << c.text;
    } catch (const data::DatasetError& error) {
      EXPECT_STREQ(error.what(), c.message);
    }
  }
}

TEST(CsvInferenceTest, ProposesOnlyRunsThatAreQuestions) {
  const CsvTable table = ParseCsv(
      "q1_1,q1_3,q2/a b,q2/c,q3_1,q3_2,9 lives,x_1,x_2,q4/Apple,q4/Pear\n"
      "1,0,X,,a,b,1,1,apple,Apple,\n"
      "0,1,,X,c,,2,0,pear,,Pear\n",
      "t.csv");
  const InferredDictionary inferred = InferDictionary(table, "t.csv");
  const auto& dataset = inferred.contents.dataset;
  EXPECT_EQ(dataset.Variable(2).GetName(), std::string("q2_a_b"));
  EXPECT_EQ(dataset.Variable(6).GetName(), std::string("v9_lives"));
  EXPECT_EQ(dataset.Variable(4).GetType(), 1);
  // q1 has a gap; x mixes types; q4's columns hold their options' texts.
  ASSERT_EQ(inferred.proposedSets.size(), 3u);
  EXPECT_EQ(inferred.proposedSets[0].GetValue(), "X");
  EXPECT_EQ(inferred.proposedSets[1].GetType(), VariableSet::kMultipleCategorySet);
  EXPECT_EQ(inferred.proposedSets[2].GetType(), VariableSet::kMultipleCategorySet);
  EXPECT_EQ(dataset.Variable(9).GetType(), dataset.Variable(10).GetType());
  const std::string proposal = RenderProposal(inferred, "t.csv");
  // A form's ticks as True/False; marks where one option was never ticked;
  // ticks written as numbers with decimals.
  const InferredDictionary forms = InferDictionary(
      ParseCsv("f/a,f/b,g_1,g_2,h_1,h_2\nTrue,False,X,,1.0,0.0\nFalse,False,X,,0.0,1.0\n", "t.csv"),
      "t.csv");
  ASSERT_EQ(forms.proposedSets.size(), 3u) << RenderProposal(forms, "t.csv");
  EXPECT_EQ(forms.proposedSets[0].GetValue(), "True");
  EXPECT_EQ(forms.proposedSets[1].GetValue(), "X");
  EXPECT_EQ(forms.proposedSets[2].GetType(), VariableSet::kMultipleDichotomySet);
  EXPECT_EQ(forms.proposedSets[2].GetValue(), "1");
  // Whole numbers too large for an integer are categories as they are.
  const InferredDictionary large =
      InferDictionary(ParseCsv("n\n2e34\n2e34\n-1\n", "t.csv"), "t.csv");
  EXPECT_EQ(large.contents.descriptor->json["fields"][0]["categories"],
            nlohmann::ordered_json::parse("[-1, 2e34]"));
  EXPECT_NE(proposal.find("VARIABLES=q2_a_b q2_c\n  VALUE='X'"), std::string::npos) << proposal;
  EXPECT_NE(
      proposal.find("* Not proposed: x_1..: the columns hold no common mark or codes of one type."),
      std::string::npos)
      << proposal;
}

TEST(SyntaxOutTest, RefusesSetsThatCommandsCannotSpell) {
  data::Dataset dataset({VORN_Variable("a", 0), VORN_Variable("TO", 0), VORN_Variable("b", 0)});
  VariableSet lineBreak("$s", VariableSet::kMultipleCategorySet);
  lineBreak.SetLabel("two\nlines");
  VariableSet keyword("$t", VariableSet::kMultipleCategorySet);
  keyword.AddVariableName("a");
  keyword.AddVariableName("TO");
  for (const VariableSet& set : {lineBreak, keyword}) {
    EXPECT_THROW(RenderSetCommands(dataset, {set}), data::DatasetError) << set.GetName(kAsStored);
  }
  EXPECT_EQ(QuoteForSyntax("it's"), "'it''s'");
}

TEST(TripleSTest, ReadsCsvDataByFieldAfterTheSkippedLines) {
  const TripleSSurvey survey = ReadTripleS(
      R"(<sss version="3.0"><survey><record ident="A" format="csv" skip="1">
      <variable ident="1" type="multiple"><name>m</name><position start="1" finish="2"/>
        <values><value code="1">A</value><value code="2">B</value></values></variable>
      <variable ident="2" type="character"><name>t</name><position start="3"/><size>4</size></variable>
      </record></survey></sss>)",
      "s.sss");
  ASSERT_EQ(survey.dataset.MultipleResponseSets().size(), 1u);
  EXPECT_EQ(ConvertTripleSData(survey, "m1,m2,t\n1,0,ab\n0,1,\"c,d\"\n", "s.csv"),
            "m_1,m_2,t\r\n1,0,ab\r\n0,1,\"c,d\"\r\n");
}

// Data as files from other tools lay them out, each read through its
// dictionary into the CSV the codebook names.
TEST(TripleSTest, PlacesEachValueWhereTheDictionarySays) {
  const struct {
    const char* name;
    const char* record;  // <record ...> and its variables
    const char* data;
    const char* csv;
  } cases[] = {
      {"bitstring marks at their codes, listed out of order with a gap",
       R"(<record ident="A"><variable ident="1" type="multiple"><name>m</name>
         <position start="1" finish="4"/><values><value code="4">D</value>
         <value code="1">A</value><value code="2">B</value></values></variable>)",
       "0101\n1000\n", "m_4,m_1,m_2\r\n1,0,1\r\n0,1,0\r\n"},
      {"a bitstring whose position claims the widest record",
       R"(<record ident="A"><variable ident="1" type="multiple"><name>m</name>
         <position start="1" finish="18446744073709551615"/><values><value code="1">A</value>
         <value code="2">B</value></values></variable>)",
       "10\n", "m_1,m_2\r\n1,0\r\n"},
      {"fixed data after skipped header lines", R"(<record ident="A" skip="2">
         <variable ident="1" type="single"><name>s</name><position start="1" finish="2"/></variable>)",
       "s\n--\n12\n 3\n", "s\r\n12\r\n3\r\n"},
      {"a CSV bitstring in one field", R"(<record ident="A" format="csv">
         <variable ident="1" type="multiple"><name>m</name><position start="2"/>
         <values><value code="1">A</value><value code="2">B</value></values></variable>)",
       "x,10\ny,01\n", "m_1,m_2\r\n1,0\r\n0,1\r\n"},
      {"a single with literal codes", R"(<record ident="A">
         <variable ident="1" type="single" format="literal"><name>s</name>
         <position start="1" finish="1"/><values><value code="A">Yes</value></values></variable>)",
       "A\nB\n", "s\r\nA\r\nB\r\n"},
  };
  for (const auto& c : cases) {
    try {
      const TripleSSurvey survey = ReadTripleS(
          std::string("<sss version=\"2.0\"><survey>") + c.record + "</record></survey></sss>",
          "s.sss");
      EXPECT_EQ(ConvertTripleSData(survey, c.data, "s.asc"), c.csv) << c.name;
    } catch (const data::DatasetError& error) {
      ADD_FAILURE() << c.name << ": " << error.what();
    }
  }
}

TEST(TripleSTest, GivesStringsTheWidthTheirDataNeed) {
  const struct {
    const char* format;
    const char* variable;
    int width;
  } cases[] = {
      {"fixed", R"(type="character"><position start="3" finish="7"/>)", 5},
      {"csv", R"(type="character"><position start="3"/>)", 255},
      {"csv", R"(type="character"><position start="3"/><size>12</size>)", 12},
      {"csv", R"(type="single" format="literal"><position start="1"/>
        <values><value code="AB">x</value><value code="C">y</value></values>)",
       2},
      {"fixed", R"(type="single"><position start="1" finish="3"/>
        <values><value code="A">x</value></values>)",
       3},
  };
  for (const auto& c : cases) {
    const TripleSSurvey survey = ReadTripleS(
        std::string(R"(<sss version="2.0"><survey><record ident="A" format=")") + c.format +
            R"("><variable ident="1" )" + c.variable + "</variable></record></survey></sss>",
        "s.sss");
    EXPECT_EQ(survey.dataset.Variable(0).GetType(), c.width) << c.format << c.variable;
  }
}

TEST(TripleSTest, ReadsEveryRecordOfAHierarchy) {
  const TripleSSurvey survey = ReadTripleS(
      R"(<sss version="3.0"><survey>
      <record ident="H" format="csv"><variable ident="1" type="character"><name>hh</name>
        <position start="1"/></variable></record>
      <record ident="P"><variable ident="2" type="multiple"><name>m</name>
        <position start="1" finish="1"/><values><value code="1">A</value></values></variable>
      </record><hierarchy><parent ident="H"/><child ident="P"/></hierarchy></survey></sss>)",
      "s.sss");
  ASSERT_EQ(survey.dataset.ColumnCount(), 2u);
  EXPECT_EQ(survey.dataset.Variable(0).GetType(), 255) << "a CSV record's string";
  EXPECT_EQ(survey.dataset.MultipleResponseSets().size(), 1u);
  EXPECT_TRUE(survey.severalRecords);
}

TEST(TripleSTest, ShowsTheTextsOfTheFirstDeclaredLanguage) {
  const TripleSSurvey survey = ReadTripleS(
      R"(<sss version="3.0" languages="en fr"><survey><record ident="A">
      <variable ident="1" type="single"><name>s</name><position start="1"/>
        <label><text xml:lang="fr">Sexe</text><text xml:lang="en">Sex</text></label>
        <values><value code="1"><text xml:lang="fr">Homme</text><text xml:lang="en">Man</text>
        </value></values></variable></record></survey></sss>)",
      "s.sss");
  const VORN_Variable& variable = survey.dataset.Variable(0);
  EXPECT_STREQ(variable.GetLabel(), "Sex");
  EXPECT_EQ(variable.GetValueLabels().Labels().numeric.at(1), "Man");
}

}  // namespace
}  // namespace hostlib::formats
