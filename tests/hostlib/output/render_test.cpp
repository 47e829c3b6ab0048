#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "display_table.h"
#include "host/runtime.h"
#include "hostlib/output/render.h"
#include "hostlib/strings/unicode.h"
#include "test_output.h"

namespace {

using hostlib::output::Format;
using output_test::SetRow;

// The running test's output, which the scenarios below write to.
output_test::TestOutput* output = nullptr;

hostlib::output::Document& Output() { return output->TargetDocument(); }

void Command(int number) { output->BeginCommand(number); }

void Display(int command, const std::vector<SetRow>& sets) {
  Command(command);
  BpProcedure procedure("Multiple Response Set", 2);
  output_test::WriteDisplayTable(procedure, sets);
}

// Each scenario fills the session's document through the calls a run makes.
void MultiLineCellsAndNotes() {
  Display(1,
          {{"$likes", "Liked items", false, "1", true, "Numeric", {"Likes apples", "Likes pears"}},
           {"$first", std::nullopt, true, "", false, "String", {"first", "second", "third"}},
           {"$more", "More", false, "2", true, "Numeric", {"q7(no longer exists)"}}});
}

void EmptyTable() {
  Command(1);
  BpProcedure procedure("Multiple Response Set", 2);
  output_test::Warn("One or more of the sets specified do not exist...", {"$x", "$y"});
  output_test::WriteDisplayTable(procedure, {});
}

void NonAsciiLabels() {
  Display(1,
          {{"$果物", "好きな果物", false, "1", false, "Numeric", {"りんご", "Cafe\u0301 au lait"}},
           {"$é", "Ünïcödé <&>", true, "", false, "String", {"naïve", "日本"}}});
}

void Messages() {
  Command(1);
  output_test::Report("Empty MDGroup found", "");
  Command(2);
  output_test::Report("No MRSET to display", "", kWarningLevel);
  Command(3);
  VORN_AssertionFailed("!subcmd.fNames.empty()", "backend/mrset/mrsetapply", 120);
  Command(4);
  output_test::Report("Unexpected token ^1 in this context", "<\"'&>");
  // A message with its place; the caret skips a tab, a wide and a combining
  // character on its way to column 6.
  Output().Add(hostlib::output::Message{
      5, kErrorLevel, BpString("Variable drink2. does not exist in the dataset.", true).Value(),
      hostlib::output::MessagePlace{"run.mrs", 2, 6, 1, "\t野́x drink2."}});
  Output().Add(hostlib::output::Message{
      5, hostlib::output::kNoteLevel, BpString("drink2 exists", true).Value(),
      hostlib::output::MessagePlace{"run.mrs", 2, 6, 1, "\t野́x drink2."}});
}

struct GoldenCase {
  const char* name;
  void (*build)();
};

const GoldenCase kGoldenCases[] = {
    {"multiline_notes", MultiLineCellsAndNotes},
    {"empty_table", EmptyTable},
    {"non_ascii", NonAsciiLabels},
    {"messages", Messages},
};

struct FormatCase {
  Format format;
  const char* extension;
};

const FormatCase kFormats[] = {
    {Format::kText, "txt"}, {Format::kJson, "json"}, {Format::kHtml, "html"}};

class RenderTest : public testing::Test {
 protected:
  void SetUp() override { output = &output_; }
  void TearDown() override { output = nullptr; }

  output_test::TestOutput output_;
};

// Set MRSET_UPDATE_GOLDEN=1 to rewrite the files after a deliberate change.
void ExpectGolden(const std::string& file, const std::string& actual) {
  const std::string path = std::string(OUTPUT_GOLDEN_DIR) + "/" + file;
  if (std::getenv("MRSET_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << actual;
  }
  std::ifstream in(path, std::ios::binary);
  ASSERT_TRUE(in) << "missing golden file " << path;
  std::stringstream expected;
  expected << in.rdbuf();
  EXPECT_EQ(actual, expected.str()) << "differs from " << path;
}

TEST_F(RenderTest, MatchesGoldenFiles) {
  for (const GoldenCase& scenario : kGoldenCases) {
    output->Clear();
    scenario.build();
    for (const FormatCase& format : kFormats) {
      SCOPED_TRACE(std::string(scenario.name) + "." + format.extension);
      ExpectGolden(std::string(scenario.name) + "." + format.extension,
                   hostlib::output::Render(format.format, Output()));
    }
  }
}

// The interactive program writes after each command what that command added.
TEST_F(RenderTest, WritingInStepsGivesTheSameOutput) {
  for (const FormatCase& format : kFormats) {
    SCOPED_TRACE(format.extension);
    output->Clear();
    std::ostringstream stepwise;
    const auto renderer = hostlib::output::MakeRenderer(format.format);
    renderer->Begin(stepwise);
    std::size_t written = 0;
    for (void (*step)() : {Messages, MultiLineCellsAndNotes, EmptyTable, Messages}) {
      step();
      renderer->Write(Output(), written, stepwise);
      written = Output().Items().size();
    }
    renderer->End(stepwise);
    EXPECT_EQ(stepwise.str(), hostlib::output::Render(format.format, Output()));
  }
}

TEST_F(RenderTest, JsonHasTheDocumentedShape) {
  Command(1);
  output_test::Report("Empty MDGroup found", "");
  Command(2);
  output_test::Report("No MRSET to display", "", kWarningLevel);
  Command(3);
  VORN_AssertionFailed("!subcmd.fNames.empty()", "backend/mrset/mrsetapply", 120);
  Display(
      4, {{"$likes", "Liked items", false, "1", true, "Numeric", {"Likes apples", "Likes pears"}}});

  const auto expected = nlohmann::ordered_json::parse(R"json({"format": 1, "output": [
  {"command": 1, "type": "error", "text": "Empty MDGroup found",
   "file": null, "line": null, "column": null, "commandLine": null},
  {"command": 2, "type": "warning", "text": "No MRSET to display",
   "file": null, "line": null, "column": null, "commandLine": null},
  {"command": 3, "type": "assertion", "text": "!subcmd.fNames.empty()",
   "file": "backend/mrset/mrsetapply", "line": 120},
  {"command": 4, "type": "table", "title": "Multiple Response Sets",
   "columns": ["Label", "Coded As", "Counted Value", "Data Type", "Elementary Variables"],
   "rows": [
     {"name": "$likes",
      "cells": {"Label": "Liked items", "Coded As": "Dichotomies",
                "Counted Value": "1", "Data Type": "Numeric",
                "Elementary Variables": "Likes apples\nLikes pears"},
      "notes": {"Counted Value": ["Using variable value labels"]}}]}
]})json");
  const auto actual =
      nlohmann::ordered_json::parse(hostlib::output::Render(Format::kJson, Output()));
  EXPECT_EQ(actual, expected) << actual.dump(2);
}

// Data attached to a row's category becomes keys of that row: typed, in the
// order attached, a second value for a key replacing the first, and a key
// the row already has left out.
TEST_F(RenderTest, JsonRowsCarryAttachedData) {
  Command(1);
  BpProcedure procedure("p", 2);
  BpPivotTable table = procedure.PivotTable(BpString("T", true), BpString("T", true), false);
  BpDimension columns = table.Dimension(BpString("C", true), 2);
  columns.Position(1, 1, true, false);
  BpDimension rows = table.Dimension(BpString("R", true), 2);
  BpCategory column = columns.Category(BpString("c", true));
  BpCategory row = rows.Category(BpString("r", true));
  column.Cell(BpString("x", true));
  BpData record = BpData::Record();
  record.Set("n", BpData::Number(1.5))
      .Set("whole", BpData::Number(3))
      .Set("none", BpData())
      .Set("yes", BpData::Boolean(true))
      .Set("list", BpData::List().Append(BpData::String("a")).Append(BpData::StringOrNull("")))
      .Set("n", BpData::Number(2.5));
  row.AttachData("set", BpData::String("first"));
  row.AttachData("set", record);
  row.AttachData("name", BpData::String("not shown"));
  row.AttachData("more", BpData::List().Set("ignored", BpData()));
  row.Release();

  const auto actual =
      nlohmann::ordered_json::parse(hostlib::output::Render(Format::kJson, Output()));
  const auto expected = nlohmann::ordered_json::parse(R"json(
    {"name": "r", "cells": {"c": "x"}, "notes": {},
     "set": {"n": 2.5, "whole": 3, "none": null, "yes": true, "list": ["a", null]},
     "more": []})json");
  EXPECT_EQ(actual["output"][0]["rows"][0], expected) << actual.dump(2);
}

TEST_F(RenderTest, TextTableLinesShareOneWidth) {
  NonAsciiLabels();
  std::istringstream text(hostlib::output::Render(Format::kText, Output()));
  std::vector<int> widths;
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && (line[0] == '+' || line[0] == '|')) {
      widths.push_back(hostlib::strings::DisplayWidth(line));
    }
  }
  ASSERT_GT(widths.size(), 4u);
  for (int width : widths) EXPECT_EQ(width, widths.front());
}

TEST_F(RenderTest, EqualNoteTextsShareAMark) {
  Command(1);
  BpProcedure procedure("p", 2);
  BpPivotTable table = procedure.PivotTable(BpString("T", true), BpString("T", true), false);
  BpDimension columns = table.Dimension(BpString("C", true), 2);
  columns.Position(1, 1, true, false);
  BpDimension rows = table.Dimension(BpString("R", true), 2);
  BpCategory first = columns.Category(BpString("c1", true));
  BpCategory second = columns.Category(BpString("c2", true));
  rows.Category(BpString("r", true));
  auto note = [](const char* text) {
    return BpAnnotation(BpCellText::Replicate(BpString(text, true)), -1, false);
  };
  first.Cell(BpString("x", true));
  first.CellNote(note("one"));
  first.CellNote(note("two\nlines"));
  second.CellNote(note("one"));

  EXPECT_EQ(hostlib::output::Render(Format::kText, Output()),
            "T\n"
            "+---+---------+-----+\n"
            "| R | c1      | c2  |\n"
            "+---+---------+-----+\n"
            "| r | x[a][b] | [a] |\n"
            "+---+---------+-----+\n"
            "[a] one\n"
            "[b] two\n"
            "    lines\n");
}

}  // namespace
