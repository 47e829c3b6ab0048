#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/data_source.h"
#include "hostlib/data/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/data/dictionary_source.h"
#include "hostlib/session/session.h"

namespace hostlib::data {
namespace {

Dataset Sample() {
  VORN_ValueLabels yesNo;
  yesNo.numeric = {{1.0, "Yes"}, {0.0, "No"}};
  VORN_ValueLabels fruit;
  fruit.text = {{"apple", "Apple"}, {"pear ", "Pear with a blank"}};
  return Dataset({VORN_Variable("like1", 0, "Likes apples", yesNo), VORN_Variable("Größe", 0),
                  VORN_Variable("ΟΔΟΣ", 0), VORN_Variable("first", 8, "", fruit)});
}

TEST(DatasetTest, FindsNamesWithoutRegardToCase) {
  const Dataset dataset = Sample();
  const std::vector<std::pair<std::string, int>> cases = {
      {"like1", 0}, {"LIKE1", 0}, {"Like1", 0},   {"größe", 1},
      {"GRÖßE", 1}, {"οδοσ", 2},  {"οδος", 2},  // final sigma folds like sigma
      {"First", 3}, {"like", -1}, {"like1 ", -1}, {"", -1}};
  for (const auto& [name, index] : cases) {
    EXPECT_EQ(dataset.FindVarIndex(name), index) << name;
  }
}

TEST(DatasetTest, RefusesANameTwiceInAnyCase) {
  Dataset dataset = Sample();
  EXPECT_THROW(dataset.AddVariable(VORN_Variable("LIKE1", 0)), DatasetError);
  EXPECT_THROW(dataset.AddVariable(VORN_Variable("οδος", 0)), DatasetError);
  EXPECT_EQ(dataset.ColumnCount(), 4u);
  dataset.AddVariable(VORN_Variable("like2", 0));
  EXPECT_EQ(dataset.FindVarIndex("LIKE2"), 4);
  EXPECT_THROW(Dataset({VORN_Variable("a", 0), VORN_Variable("A", 1)}), DatasetError);
}

// A dictionary that counts what it is asked.
class CountingSource final : public DictionarySource {
 public:
  unsigned int Count() const override { return 3; }
  int FindFolded(std::string_view folded) const override {
    return folded.size() == 2 && folded[0] == 'v' ? folded[1] - '0' : -1;
  }
  VORN_Variable Read(int index) const override {
    ++reads;
    return VORN_Variable("V" + std::to_string(index), index);
  }
  mutable int reads = 0;
};

TEST(DatasetTest, ReadsAVariableFromItsSourceOnceAndKeepsItInPlace) {
  const auto source = std::make_shared<CountingSource>();
  Dataset dataset(source);
  EXPECT_EQ(dataset.ColumnCount(), 3u);
  EXPECT_EQ(dataset.FindVarIndex("V2"), 2);
  EXPECT_EQ(source->reads, 0);
  const VORN_Variable& second = dataset.Variable(1);
  EXPECT_EQ(&dataset.Variable(1), &second);
  EXPECT_EQ(source->reads, 1);
  EXPECT_THROW(dataset.Variable(3), std::out_of_range);
  EXPECT_EQ(dataset.Variables().size(), 3u);
  EXPECT_EQ(&dataset.Variable(1), &second) << "a reference moved";
  EXPECT_STREQ(dataset.Variable(2).GetName(), "V2");
  // A variable added takes the dictionary into memory, refusing repeats.
  EXPECT_THROW(dataset.AddVariable(VORN_Variable("v0", 0)), DatasetError);
  dataset.AddVariable(VORN_Variable("w", 0));
  EXPECT_EQ(dataset.FindVarIndex("W"), 3);
  EXPECT_EQ(dataset.FindVarIndex("v1"), 1);
}

TEST(DatasetTest, VariableWithoutLabelHasNullLabel) {
  const Dataset dataset = Sample();
  EXPECT_STREQ(dataset.Variable(0).GetLabel(), "Likes apples");
  EXPECT_EQ(dataset.Variable(3).GetLabel(), nullptr);
  EXPECT_EQ(dataset.Variable(3).GetType(), 8);
  EXPECT_THROW(VORN_Variable("bad", -1), std::invalid_argument);
}

TEST(ValueLabelMapTest, MatchesNumbersExactlyAndTextsByteForByte) {
  const Dataset dataset = Sample();
  VORN_ValueLabelMap numbers(dataset.Variable(0).GetValueLabels());
  numbers.Reset();
  EXPECT_STREQ(numbers.GetLabel(1.0), "Yes");
  EXPECT_STREQ(numbers.GetLabel(-0.0), "No");
  EXPECT_EQ(numbers.GetLabel(1.0000000001), nullptr);
  EXPECT_EQ(numbers.GetLabel(std::numeric_limits<double>::quiet_NaN()), nullptr);
  EXPECT_EQ(numbers.GetLabel(std::string("1")), nullptr);

  VORN_ValueLabelMap texts(dataset.Variable(3).GetValueLabels());
  texts.Reset();
  EXPECT_STREQ(texts.GetLabel(std::string("apple")), "Apple");
  EXPECT_EQ(texts.GetLabel(std::string("Apple")), nullptr);
  EXPECT_EQ(texts.GetLabel(std::string("apple ")), nullptr);
  EXPECT_STREQ(texts.GetLabel(std::string("pear ")), "Pear with a blank");
  EXPECT_EQ(texts.GetLabel(std::string("pear")), nullptr);

  VORN_ValueLabelMap none{VORN_VLImplPointer()};
  none.Reset();
  EXPECT_EQ(none.GetLabel(1.0), nullptr);
}

VariableSet MakeSet() {
  VariableSet set("$größe", VariableSet::kMultipleDichotomySet);
  set.SetLabel("Sizes");
  set.SetValue("1");
  set.LabelSetByVariable(true);
  set.UseVariableCategoryLabels(true);
  set.AddVariableName("like1");
  set.AddVariableName("ΟΔΟς");
  set.SetStoreExtras(R"({"x":1})");
  return set;
}

TEST(VariableSetTest, UpperCasesNamesOnlyWhenAsked) {
  const VariableSet set = MakeSet();
  EXPECT_EQ(set.GetName(kAsStored), "$größe");
  EXPECT_EQ(set.GetName(kUpperCase), "$GRÖßE");  // ß has no simple upper case
  EXPECT_EQ(set.GetVariableNames(kAsStored), (std::vector<std::string>{"like1", "ΟΔΟς"}));
  EXPECT_EQ(set.GetVariableNames(kUpperCase), (std::vector<std::string>{"LIKE1", "ΟΔΟΣ"}));
  EXPECT_THROW(set.GetName(static_cast<ChangeCase>(0)), std::invalid_argument);
}

// Counts its loads; set `index` is MakeSet() under the name asked for.
class CountingSetSource final : public VariableSetSource {
 public:
  VariableSet Load(std::size_t, const std::string&) const override {
    ++loads;
    return MakeSet();
  }
  mutable int loads = 0;
};

TEST(VariableSetTest, CopiesShareUntilOneChangesAndStoredOnesAreReadWhenAsked) {
  const auto source = std::make_shared<CountingSetSource>();
  const VariableSet stored("$größe", source, 0);
  VariableSet copy = stored;
  EXPECT_EQ(copy, stored);  // copies of one stored set: equal unread
  EXPECT_EQ(stored.GetName(kUpperCase), "$GRÖßE");
  EXPECT_TRUE(stored.IsStoredUnchanged());
  EXPECT_EQ(source->loads, 0);

  copy.SetLabel("Other");
  EXPECT_EQ(source->loads, 1);
  EXPECT_FALSE(copy.IsStoredUnchanged());
  EXPECT_EQ(copy.GetLabel(), "Other");
  EXPECT_EQ(stored.GetLabel(), "Sizes");  // read on its own, unchanged by the copy
  EXPECT_NE(copy, stored);
  copy.SetLabel("Sizes");
  EXPECT_EQ(copy, stored);  // compared by contents once changed
  EXPECT_EQ(source->loads, 2);

  VariableSet renamed("$other", source, 0);
  EXPECT_THROW(renamed.GetLabel(), std::logic_error);  // a source giving another set
}

TEST(VariableSetsTest, SaveReplacesTheWholeListInOrder) {
  auto dataset = std::make_shared<Dataset>(Sample());
  VORN_DataSource source(HostStateOver(dataset));
  EXPECT_TRUE(VariableSets(source, kMultipleResponseSets).empty());

  const std::vector<VariableSet> sets = {VariableSet("$b", VariableSet::kMultipleCategorySet),
                                         MakeSet(),
                                         VariableSet("", VariableSet::kMultipleCategorySet)};
  SaveVariableSets(sets, source, kMultipleResponseSets);
  EXPECT_EQ(VariableSets(source, kMultipleResponseSets), sets);
  EXPECT_EQ(dataset->SetsRevision(), 1u);

  SaveVariableSets({}, source, kMultipleResponseSets);
  EXPECT_TRUE(VariableSets(source, kMultipleResponseSets).empty());
  EXPECT_EQ(dataset->SetsRevision(), 2u);
}

TEST(VariableSetsTest, RefusesOtherFamiliesAndKinds) {
  auto dataset = std::make_shared<Dataset>(Sample());
  VORN_DataSource source(HostStateOver(dataset));
  EXPECT_THROW(VariableSets(source, static_cast<VarSetsType>(2)), std::invalid_argument);
  EXPECT_THROW(SaveVariableSets({}, source, static_cast<VarSetsType>(0)), std::invalid_argument);
  EXPECT_THROW(
      SaveVariableSets({VariableSet("$v", VariableSet::kVarSet)}, source, kMultipleResponseSets),
      std::invalid_argument);
  EXPECT_EQ(dataset->SetsRevision(), 0u);
}

TEST(DataSourceTest, ProcedureSourceViewsTheActiveDataset) {
  Session& session = Session::Instance();
  session.Reset();
  {
    const ProcedureDataSource none;
    EXPECT_EQ(none.ColumnCount(), 0u);
    EXPECT_EQ(none.FindVarIndex("like1", 0), -1);
  }
  auto dataset = std::make_shared<Dataset>(Sample());
  session.OpenDataset(dataset);
  const ProcedureDataSource procedure;
  EXPECT_EQ(procedure.ColumnCount(), 4u);
  EXPECT_EQ(procedure.FindVarIndex("FIRST", 0), 3);
  EXPECT_EQ(procedure.FindVarIndex(nullptr, 0), -1);
  EXPECT_STREQ(procedure.GetVariable(1).GetName(), "Größe");
  ASSERT_EQ(procedure.GetParentSource(), session.RootSource());

  // The module saves through the parent, which it receives as const.
  auto& parent = const_cast<VORN_DataSource&>(*procedure.GetParentSource());
  SaveVariableSets({MakeSet()}, parent, kMultipleResponseSets);
  EXPECT_EQ(dataset->MultipleResponseSets().size(), 1u);
  session.Reset();
}

}  // namespace
}  // namespace hostlib::data
