// The MRFREQ command: what a parsed command asks for, and the counting of
// multiple response sets over the cases.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

// One side of a table: a multiple response set or a single variable.
struct MrfreqItem {
  enum Kind { kDichotomies, kCategories, kVariable };
  Kind kind = kVariable;
  std::string name;            // the set's name as stored, or the variable's name
  std::string label;           // the set's label or the variable's label; may be empty
  std::vector<int> variables;  // dictionary indices of the members (one for a variable)
  std::string countedValue;    // dichotomies
  bool countedValueLabels = false;
  bool text = false;  // the members are string variables
};

struct MrfreqTable {
  MrfreqItem rows;
  bool crossed = false;
  MrfreqItem columns;
};

struct MrfreqRequest {
  std::vector<MrfreqTable> tables;
  int weight = -1;  // dictionary index; -1: unweighted
  bool showCounts = true;
  bool showColumnPercents = true;
  bool showTests = false;
  double alpha = 0.05;
  bool countDuplicates = false;
};

// A category value: a number, or a text for string variables. Numbers sort
// before texts.
struct MrfreqValue {
  bool isText = false;
  double number = 0;
  std::string text;
  friend bool operator<(const MrfreqValue& a, const MrfreqValue& b) {
    if (a.isText != b.isText) return !a.isText;
    return a.isText ? a.text < b.text : a.number < b.number;
  }
  friend bool operator==(const MrfreqValue& a, const MrfreqValue& b) {
    return a.isText == b.isText && (a.isText ? a.text == b.text : a.number == b.number);
  }
};

// The values of one case that the counting reads, by slot.
struct MrfreqCase {
  const double* numbers = nullptr;
  const unsigned char* missing = nullptr;
  const std::string* texts = nullptr;

  bool IsMissing(std::size_t slot) const { return missing[slot] != 0; }
  double Number(std::size_t slot) const { return numbers[slot]; }
  std::string_view Text(std::size_t slot) const { return texts[slot]; }
};

// Turns a case into the categories of one item it falls into. Categories of
// dichotomies are the members; of categories and variables the distinct
// valid values met, numbered as met (Order() gives them in value order).
class MrfreqClassifier {
 public:
  static constexpr std::size_t kMaxCategories = 10000;

  // `slots` are the case slots of the item's variables, in member order.
  MrfreqClassifier(const MrfreqItem& item, std::vector<std::size_t> slots, bool countDuplicates);

  // The categories of the case (repeated only when duplicates count); false
  // when there are more distinct values than kMaxCategories.
  bool Classify(const MrfreqCase& values, std::vector<int>& categories);

  std::size_t CategoryCount() const;
  // Category numbers in the order the table shows them.
  std::vector<int> Order() const;
  const MrfreqValue& Value(int category) const {
    return values_[static_cast<std::size_t>(category)];
  }

 private:
  int CategoryOfNumber(double number);
  int CategoryOfText(std::string_view text);

  MrfreqItem::Kind kind_;
  std::vector<std::size_t> slots_;
  bool countDuplicates_;
  bool text_;
  double countedNumber_ = 0;
  std::string countedText_;
  std::vector<MrfreqValue> values_;
  std::vector<double> numbers_;  // the numeric values met, by category
  std::unordered_map<double, int> numberIndex_;
  std::unordered_map<std::string, int> textIndex_;
};

// Weighted counts of one table.
struct MrfreqCounts {
  // cells[row][column]; a frequency table has one column.
  std::vector<std::vector<double>> cells;
  std::vector<double> rowTotals;      // per row category: over every valid column
  std::vector<double> columnBases;    // per column category: the valid cases in it
  double validCases = 0;              // both sides valid
  double missingCases = 0;            // cases with a usable weight that are not valid
  double responses = 0;               // frequency tables: every response counted
  std::uint64_t unusableWeights = 0;  // cases left out for their weight

  void Add(const std::vector<int>& rows, const std::vector<int>& columns, double weight);
};

// Whether the proportions of two columns differ at `alpha` once corrected for
// `comparisons` comparisons (a two-sided z-test of two proportions).
bool ProportionsDiffer(double countA, double baseA, double countB, double baseB, double alpha,
                       std::size_t comparisons);
