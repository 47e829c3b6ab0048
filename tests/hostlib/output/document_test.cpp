#include <optional>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "display_table.h"
#include "host/output.h"
#include "host/runtime.h"
#include "hostlib/output/document.h"
#include "test_output.h"

namespace {

using hostlib::output::Assertion;
using hostlib::output::Document;
using hostlib::output::Message;
using hostlib::output::Table;

class DocumentTest : public testing::Test {
 protected:
  void SetUp() override { output_.BeginCommand(3); }

  Document& Output() { return output_.TargetDocument(); }
  const Table& TableAt(std::size_t index) { return std::get<Table>(Output().Items().at(index)); }

  output_test::TestOutput output_;
};

TEST_F(DocumentTest, MessagesAndAssertionsKeepOrderAndCommand) {
  output_test::Report("First ^1", "a");
  output_.BeginCommand(4);
  output_test::Report("Second", "", kWarningLevel);
  VORN_AssertionFailed("pos > 0", "backend/mrset/mrsetparse", 42);
  output_test::Report("Third", "");

  const auto& items = Output().Items();
  ASSERT_EQ(items.size(), 4u);
  const auto& first = std::get<Message>(items[0]);
  EXPECT_EQ(first.command, 3);
  EXPECT_EQ(first.level, kErrorLevel);
  EXPECT_EQ(ComposeText(first.text), "First a");
  EXPECT_EQ(std::get<Message>(items[1]).level, kWarningLevel);
  EXPECT_EQ(std::get<Message>(items[1]).command, 4);
  const auto& assertion = std::get<Assertion>(items[2]);
  EXPECT_EQ(assertion.command, 4);
  EXPECT_EQ(assertion.condition, "pos > 0");
  EXPECT_EQ(assertion.file, "backend/mrset/mrsetparse");
  EXPECT_EQ(assertion.line, 42);
  EXPECT_EQ(Output().ErrorCount(), 2);

  // Written items can be let go: the count of errors and the handles go on.
  const int note = Output().Register(BpText{});
  Output().DropItems();
  EXPECT_TRUE(Output().Items().empty());
  EXPECT_FALSE(Output().IsRegistered(note));
  output_test::Report("Fourth", "");
  EXPECT_EQ(Output().ErrorCount(), 3);
  EXPECT_EQ(Output().Register(BpText{}), note + 1);
  EXPECT_EQ(Output().Add(Table{}), 5u);
  EXPECT_NE(Output().FindTable(5), nullptr);
  EXPECT_EQ(Output().FindTable(1), nullptr);

  Output().Clear();
  EXPECT_TRUE(Output().Items().empty());
  EXPECT_EQ(Output().ErrorCount(), 0);
}

TEST_F(DocumentTest, CellsLieWhereCategoriesMeet) {
  {
    BpProcedure procedure("Multiple Response Set", 2);
    output_test::WriteDisplayTable(procedure,
                                   {{"$a", "Apples", false, "1", true, "Numeric", {"x", "y"}},
                                    {"$b", std::nullopt, true, "", false, "String", {"s"}}});
  }
  ASSERT_EQ(Output().Items().size(), 1u);
  const Table& table = TableAt(0);
  EXPECT_EQ(table.command, 3);
  ASSERT_EQ(table.dimensions.size(), 2u);
  EXPECT_EQ(table.dimensions[0].place, 1);
  EXPECT_EQ(table.dimensions[1].place, 0);
  ASSERT_EQ(table.dimensions[1].categories.size(), 2u);
  EXPECT_TRUE(table.dimensions[1].categories[0].released);

  // Key: {attribute, set}. $b has no label, so 9 cells.
  EXPECT_EQ(table.cells.size(), 9u);
  EXPECT_EQ(table.cells.count({0, 1}), 0u);
  EXPECT_EQ(ComposeText(table.cells.at({0, 0}).text), "Apples");
  EXPECT_EQ(ComposeText(table.cells.at({2, 1}).text), "N/A");
  EXPECT_EQ(ComposeText(table.cells.at({4, 0}).text), "x\ny");

  const auto& counted = table.cells.at({2, 0});
  ASSERT_EQ(counted.notes.size(), 1u);
  EXPECT_EQ(ComposeText(Output().Registered(counted.notes[0])), "Using variable value labels");
  EXPECT_TRUE(table.cells.at({2, 1}).notes.empty());
}

TEST_F(DocumentTest, CellWithoutCurrentCategoryIsAnAssertion) {
  BpProcedure procedure("p", 2);
  BpPivotTable table = procedure.PivotTable(BpString("T", true), BpString("T", true), false);
  BpDimension columns = table.Dimension(BpString("C", true), 2);
  BpDimension rows = table.Dimension(BpString("R", true), 2);
  BpCategory column = columns.Category(BpString("c", true));

  column.Cell(BpString("no row yet", true));
  BpCategory row = rows.Category(BpString("r", true));
  row.Release();
  column.Cell(BpString("row released", true));

  const auto& items = Output().Items();
  ASSERT_EQ(items.size(), 3u);
  EXPECT_TRUE(std::holds_alternative<Assertion>(items[1]));
  EXPECT_TRUE(std::holds_alternative<Assertion>(items[2]));
  EXPECT_TRUE(TableAt(0).cells.empty());
}

TEST_F(DocumentTest, ClosedProcedureEndsCurrentCategories) {
  std::optional<BpCategory> column;
  {
    BpProcedure procedure("p", 2);
    BpPivotTable table = procedure.PivotTable(BpString("T", true), BpString("T", true), false);
    BpDimension columns = table.Dimension(BpString("C", true), 2);
    BpDimension rows = table.Dimension(BpString("R", true), 2);
    column = columns.Category(BpString("c", true));
    rows.Category(BpString("r", true));
    column->Cell(BpString("inside", true));
  }
  column->Cell(BpString("after", true));
  EXPECT_EQ(ComposeText(TableAt(0).cells.at({0, 0}).text), "inside");
  EXPECT_TRUE(std::holds_alternative<Assertion>(Output().Items().back()));

  // A handle that outlived the document is refused, not followed.
  Output().Clear();
  column->Cell(BpString("stale", true));
  ASSERT_EQ(Output().Items().size(), 1u);
  EXPECT_TRUE(std::holds_alternative<Assertion>(Output().Items()[0]));
}

}  // namespace
