#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "backend/mrfreq/mrfreq.h"

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

// One case of numeric values; NaN is missing.
struct NumericCase {
  std::vector<double> numbers;
  std::vector<unsigned char> missing;
  explicit NumericCase(std::vector<double> values) : numbers(std::move(values)) {
    for (double value : numbers) missing.push_back(std::isnan(value) ? 1 : 0);
  }
  MrfreqCase View() const { return MrfreqCase{numbers.data(), missing.data(), nullptr}; }
};

MrfreqItem Item(MrfreqItem::Kind kind, std::size_t members, std::string counted = {}) {
  MrfreqItem item;
  item.kind = kind;
  item.variables.assign(members, 0);
  item.countedValue = std::move(counted);
  return item;
}

std::vector<int> Classify(MrfreqClassifier& classifier, std::vector<double> values) {
  const NumericCase one(std::move(values));
  std::vector<int> categories;
  EXPECT_TRUE(classifier.Classify(one.View(), categories));
  return categories;
}

TEST(MrfreqClassifier, DichotomiesCountTheMembersHoldingTheCountedValue) {
  MrfreqClassifier classifier(Item(MrfreqItem::kDichotomies, 3, "2"), {0, 1, 2}, false);
  EXPECT_EQ(Classify(classifier, {2, 1, 2}), (std::vector<int>{0, 2}));
  EXPECT_EQ(Classify(classifier, {kMissing, 2, 0}), (std::vector<int>{1}));
  EXPECT_TRUE(Classify(classifier, {1, 1, kMissing}).empty());
  EXPECT_EQ(classifier.CategoryCount(), 3u);
}

TEST(MrfreqClassifier, CategoriesCountARepeatedValueOnceUnlessDuplicatesCount) {
  const struct {
    bool duplicates;
    std::vector<double> values;
    std::vector<double> expected;  // the categories' values, as met
  } cases[] = {
      {false, {5, 5, 3}, {5, 3}},
      {true, {5, 5, 3}, {5, 5, 3}},
      {false, {kMissing, 7, kMissing}, {7}},
      {true, {kMissing, kMissing, kMissing}, {}},
  };
  for (const auto& test : cases) {
    MrfreqClassifier classifier(Item(MrfreqItem::kCategories, 3), {0, 1, 2}, test.duplicates);
    std::vector<double> got;
    for (int category : Classify(classifier, test.values)) {
      got.push_back(classifier.Value(category).number);
    }
    EXPECT_EQ(got, test.expected);
  }
}

TEST(MrfreqClassifier, OrdersCategoriesByValue) {
  MrfreqClassifier classifier(Item(MrfreqItem::kCategories, 2), {0, 1}, false);
  Classify(classifier, {9, 2});
  Classify(classifier, {-1, 2});
  std::vector<double> ordered;
  for (int category : classifier.Order()) ordered.push_back(classifier.Value(category).number);
  EXPECT_EQ(ordered, (std::vector<double>{-1, 2, 9}));
}

TEST(MrfreqClassifier, RefusesMoreDistinctValuesThanTheLimit) {
  MrfreqClassifier classifier(Item(MrfreqItem::kVariable, 1), {0}, false);
  std::vector<int> categories;
  bool accepted = true;
  for (std::size_t i = 0; i <= MrfreqClassifier::kMaxCategories && accepted; ++i) {
    const NumericCase one({static_cast<double>(i)});
    accepted = classifier.Classify(one.View(), categories);
  }
  EXPECT_FALSE(accepted);
}

TEST(MrfreqCounts, CellsBasesAndMissingCasesAreWeighted) {
  MrfreqCounts counts;
  counts.Add({0, 1}, {0}, 2.0);
  counts.Add({1}, {0, 1}, 0.5);
  counts.Add({}, {1}, 3.0);
  counts.Add({0}, {}, 1.0);
  EXPECT_DOUBLE_EQ(counts.validCases, 2.5);
  EXPECT_DOUBLE_EQ(counts.missingCases, 4.0);
  EXPECT_DOUBLE_EQ(counts.responses, 4.5);
  EXPECT_EQ(counts.cells, (std::vector<std::vector<double>>{{2.0}, {2.5, 0.5}}));
  EXPECT_EQ(counts.columnBases, (std::vector<double>{2.5, 0.5}));
  EXPECT_EQ(counts.rowTotals, (std::vector<double>{2.0, 2.5}));
}

TEST(ProportionsDiffer, TwoSidedZTestWithTheCorrectionForComparisons) {
  const struct {
    double a, baseA, b, baseB, alpha;
    std::size_t comparisons;
    bool differ;
  } cases[] = {
      // p 0.6 against 0.4 of 100 each: z = 2.83, two-sided p = 0.0047.
      {60, 100, 40, 100, 0.05, 1, true},   {60, 100, 40, 100, 0.05, 10, true},  // 0.047 < 0.05
      {60, 100, 40, 100, 0.05, 15, false},                                      // 0.070
      {50, 100, 50, 100, 0.05, 1, false},  {0, 10, 0, 10, 0.05, 1, false},      // no variance
      {1, 0, 1, 10, 0.05, 1, false},                                            // an empty column
  };
  for (const auto& test : cases) {
    EXPECT_EQ(
        ProportionsDiffer(test.a, test.baseA, test.b, test.baseB, test.alpha, test.comparisons),
        test.differ)
        << test.a << "/" << test.baseA << " against " << test.b << "/" << test.baseB << " x"
        << test.comparisons;
  }
}

}  // namespace
