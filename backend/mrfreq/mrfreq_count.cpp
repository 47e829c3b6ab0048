#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "backend/mrfreq/mrfreq.h"

namespace {

constexpr std::size_t kLinearSearchLimit = 16;

double CountedNumber(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return end != text.c_str() ? value : std::nan("");
}

}  // namespace

MrfreqClassifier::MrfreqClassifier(const MrfreqItem& item, std::vector<std::size_t> slots,
                                   bool countDuplicates)
    : kind_(item.kind),
      slots_(std::move(slots)),
      countDuplicates_(countDuplicates),
      text_(item.text),
      countedNumber_(CountedNumber(item.countedValue)),
      countedText_(item.countedValue) {
  if (kind_ == MrfreqItem::kDichotomies) values_.resize(slots_.size());
}

bool MrfreqClassifier::Classify(const MrfreqCase& values, std::vector<int>& categories) {
  if (kind_ == MrfreqItem::kDichotomies) {
    // Whether a member holds the counted value is a coin toss in survey data:
    // every member is written and only the counted ones are kept, no branch.
    // (Every place is written, so what the last case left there may stay.)
    categories.resize(slots_.size());
    int* kept = categories.data();
    std::size_t count = 0;
    for (std::size_t member = 0; member < slots_.size(); ++member) {
      const std::size_t slot = slots_[member];
      const bool counted = text_
                               ? !values.IsMissing(slot) && values.Text(slot) == countedText_
                               : values.Number(slot) == countedNumber_;  // a missing number is NaN
      kept[count] = static_cast<int>(member);
      count += counted ? 1 : 0;
    }
    categories.resize(count);
    return true;
  }
  categories.clear();
  for (const std::size_t slot : slots_) {
    if (values.IsMissing(slot)) continue;
    const int category =
        text_ ? CategoryOfText(values.Text(slot)) : CategoryOfNumber(values.Number(slot));
    if (category < 0) return false;
    if (countDuplicates_ ||
        std::find(categories.begin(), categories.end(), category) == categories.end()) {
      categories.push_back(category);
    }
  }
  return true;
}

int MrfreqClassifier::CategoryOfNumber(double number) {
  if (numbers_.size() <= kLinearSearchLimit) {
    // Which of a few values a case holds is a coin toss: every one is
    // compared, without a branch on which matched.
    int found = -1;
    for (std::size_t i = numbers_.size(); i-- > 0;) {
      found = numbers_[i] == number ? static_cast<int>(i) : found;
    }
    if (found >= 0) return found;
  } else if (const auto found = numberIndex_.find(number); found != numberIndex_.end()) {
    return found->second;
  }
  if (numbers_.size() >= kMaxCategories) return -1;
  const int category = static_cast<int>(values_.size());
  numbers_.push_back(number);
  numberIndex_.emplace(number, category);
  values_.push_back(MrfreqValue{false, number, {}});
  return category;
}

int MrfreqClassifier::CategoryOfText(std::string_view text) {
  const std::string key(text);
  if (const auto found = textIndex_.find(key); found != textIndex_.end()) return found->second;
  if (values_.size() >= kMaxCategories) return -1;
  const int category = static_cast<int>(values_.size());
  textIndex_.emplace(key, category);
  values_.push_back(MrfreqValue{true, 0, key});
  return category;
}

std::size_t MrfreqClassifier::CategoryCount() const { return values_.size(); }

std::vector<int> MrfreqClassifier::Order() const {
  std::vector<int> order(values_.size());
  std::iota(order.begin(), order.end(), 0);
  if (kind_ != MrfreqItem::kDichotomies) {
    std::sort(order.begin(), order.end(), [&](int a, int b) { return Value(a) < Value(b); });
  }
  return order;
}

void MrfreqCounts::Add(const std::vector<int>& rows, const std::vector<int>& columns,
                       double weight) {
  if (rows.empty() || columns.empty()) {
    missingCases += weight;
    return;
  }
  validCases += weight;
  responses += static_cast<double>(rows.size()) * weight;
  // The lists grow once per case, to the largest category it holds; a cell
  // made and left at zero reads as one never made.
  const auto width =
      static_cast<std::size_t>(*std::max_element(columns.begin(), columns.end())) + 1;
  if (columnBases.size() < width) columnBases.resize(width, 0.0);
  for (const int column : columns) columnBases[static_cast<std::size_t>(column)] += weight;
  const auto height = static_cast<std::size_t>(*std::max_element(rows.begin(), rows.end())) + 1;
  if (cells.size() < height) {
    cells.resize(height);
    rowTotals.resize(height, 0.0);
  }
  if (columns.size() == 1) {
    // A frequency table, or a crosstab by a variable: one cell per row.
    const auto c = static_cast<std::size_t>(columns.front());
    for (const int row : rows) {
      const auto r = static_cast<std::size_t>(row);
      rowTotals[r] += weight;
      std::vector<double>& line = cells[r];
      if (line.size() < width) line.resize(width, 0.0);
      line[c] += weight;
    }
    return;
  }
  for (const int row : rows) {
    const auto r = static_cast<std::size_t>(row);
    rowTotals[r] += weight;
    std::vector<double>& line = cells[r];
    if (line.size() < width) line.resize(width, 0.0);
    for (const int column : columns) line[static_cast<std::size_t>(column)] += weight;
  }
}

bool ProportionsDiffer(double countA, double baseA, double countB, double baseB, double alpha,
                       std::size_t comparisons) {
  if (baseA <= 0 || baseB <= 0 || comparisons == 0) return false;
  const double pooled = (countA + countB) / (baseA + baseB);
  const double variance = pooled * (1 - pooled) * (1 / baseA + 1 / baseB);
  if (!(variance > 0)) return false;
  const double z = (countA / baseA - countB / baseB) / std::sqrt(variance);
  const double pValue = std::erfc(std::fabs(z) / std::sqrt(2.0));
  return pValue * static_cast<double>(comparisons) < alpha;
}
