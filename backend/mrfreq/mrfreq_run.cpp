#include "backend/mrfreq/mrfreq_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "backend/mrfreq/mrfreq_syntax.h"
#include "host/case_data.h"
#include "host/data_source.h"
#include "host/output.h"

namespace {

// The dictionary indices the command reads, each once, and their slots.
struct Columns {
  std::vector<int> variables;
  std::size_t SlotOf(int variable) {
    const auto found = std::find(variables.begin(), variables.end(), variable);
    if (found != variables.end()) return static_cast<std::size_t>(found - variables.begin());
    variables.push_back(variable);
    return variables.size() - 1;
  }
  std::vector<std::size_t> SlotsOf(const MrfreqItem& item) {
    std::vector<std::size_t> slots;
    for (int variable : item.variables) slots.push_back(SlotOf(variable));
    return slots;
  }
};

struct TableState {
  const MrfreqTable* table;
  std::size_t rows;     // classifier numbers
  std::size_t columns;  // kNoColumns for a frequency table
  MrfreqCounts counts;
};

constexpr std::size_t kNoColumns = static_cast<std::size_t>(-1);

// The classifiers of a command, one per distinct item (and duplicates rule),
// so that a set in several tables is classified once per case.
struct Classifiers {
  std::vector<std::unique_ptr<MrfreqClassifier>> list;
  std::vector<std::string> keys;
  std::vector<std::vector<int>> results;  // per classifier: the current case's categories

  std::size_t For(const MrfreqItem& item, Columns& columns, bool countDuplicates) {
    const std::string key = std::to_string(item.kind) + (countDuplicates ? "+" : "-") + item.name;
    const auto found = std::find(keys.begin(), keys.end(), key);
    if (found != keys.end()) return static_cast<std::size_t>(found - keys.begin());
    list.push_back(
        std::make_unique<MrfreqClassifier>(item, columns.SlotsOf(item), countDuplicates));
    keys.push_back(key);
    results.emplace_back();
    return list.size() - 1;
  }
};

std::string ValueText(const MrfreqValue& value) {
  if (value.isText) return value.text;
  char text[64];
  std::snprintf(text, sizeof text, "%.15g", value.number);
  return text;
}

const char* ValueLabel(const VORN_Variable& variable, const MrfreqValue& value) {
  VORN_ValueLabelMap labels(variable.GetValueLabels());
  labels.Reset();
  return value.isText ? labels.GetLabel(value.text) : labels.GetLabel(value.number);
}

// A category's label: a dichotomy member as the set table labels it, a value
// by the first value label the item's variables give it.
std::string CategoryLabel(const MrfreqItem& item, const MrfreqClassifier& classifier, int category,
                          const VORN_DataSource& dataSource) {
  if (item.kind == MrfreqItem::kDichotomies) {
    const VORN_Variable& member =
        dataSource.GetVariable(item.variables[static_cast<std::size_t>(category)]);
    if (item.countedValueLabels) {
      MrfreqValue counted{item.text, 0, item.countedValue};
      if (!item.text) counted.number = std::strtod(item.countedValue.c_str(), nullptr);
      const char* label = ValueLabel(member, counted);
      return label != nullptr ? label : member.GetName();
    }
    return member.GetLabel() != nullptr ? member.GetLabel() : member.GetName();
  }
  const MrfreqValue& value = classifier.Value(category);
  for (int variable : item.variables) {
    if (const char* label = ValueLabel(dataSource.GetVariable(variable), value)) return label;
  }
  return ValueText(value);
}

std::string ItemTitle(const MrfreqItem& item) {
  return item.label.empty() ? item.name : item.label;
}

BpComposite TableTitle(const MrfreqTable& table) {
  BpComposite title(table.crossed ? "^1 by ^2" : "^1", true);
  title.Add(BpString(ItemTitle(table.rows), false));
  if (table.crossed) title.Add(BpString(ItemTitle(table.columns), false));
  title.Finish();
  return title;
}

double Percent(double part, double whole) { return whole > 0 ? 100.0 * part / whole : 0.0; }

class TableWriter {
 public:
  TableWriter(const MrfreqRequest& request, const VORN_DataSource& dataSource,
              const Classifiers& classifiers, BpProcedure& procedure, int countDecimals)
      : request_(request),
        classifiers_(classifiers),
        dataSource_(dataSource),
        procedure_(procedure),
        countDecimals_(countDecimals) {}

  void CaseSummary(const std::vector<TableState>& states, std::uint64_t unusableWeights) {
    const BpString title("Case Summary", true);
    BpPivotTable table = procedure_.PivotTable(title, title, false);
    BpDimension statistics = table.Dimension(BpString("Cases", true), 2);
    statistics.Position(1, 1, true, false);
    std::vector<BpCategory> columns;
    for (const char* name :
         {"Valid N", "Valid Percent", "Missing N", "Missing Percent", "Total N", "Total Percent"}) {
      columns.push_back(statistics.Category(BpString(name, true)));
    }
    BpDimension rows = table.Dimension(BpString("Table", true), 2);
    BpComposite weightText("Cases left out for a missing, zero or negative weight: ^1", true);
    weightText.Add(BpString(std::to_string(unusableWeights), true));
    weightText.Finish();
    const BpAnnotation weightNote(BpCellText::Replicate(weightText), -1, false);
    for (const TableState& state : states) {
      BpCategory row = rows.Category(TableTitle(*state.table));
      const MrfreqCounts& counts = state.counts;
      const double total = counts.validCases + counts.missingCases;
      columns[0].Cell(Count(counts.validCases));
      columns[1].Cell(Percentage(Percent(counts.validCases, total)));
      columns[2].Cell(Count(counts.missingCases));
      columns[3].Cell(Percentage(Percent(counts.missingCases, total)));
      columns[4].Cell(Count(total));
      columns[5].Cell(Percentage(total > 0 ? 100.0 : 0.0));
      if (unusableWeights > 0) columns[4].CellNote(weightNote);
      row.Release();
    }
  }

  void Frequencies(const TableState& state) {
    BpPivotTable table =
        procedure_.PivotTable(TableTitle(*state.table), TableTitle(*state.table), false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), 2);
    statistics.Position(1, 1, true, false);
    BpCategory count = statistics.Category(BpString("N", true));
    BpCategory ofResponses = statistics.Category(BpString("Percent of Responses", true));
    BpCategory ofCases = statistics.Category(BpString("Percent of Cases", true));
    BpDimension rows = table.Dimension(BpString("Category", true), 2);
    const MrfreqCounts& counts = state.counts;
    for (const int category : RowsOf(state).Order()) {
      const double n = CellOf(counts, category, 0);
      BpCategory row = rows.Category(
          BpString(CategoryLabel(state.table->rows, RowsOf(state), category, dataSource_), false));
      count.Cell(Count(n));
      ofResponses.Cell(Percentage(Percent(n, counts.responses)));
      ofCases.Cell(Percentage(Percent(n, counts.validCases)));
      row.Release();
    }
    BpCategory total = rows.Category(BpString("Total", true));
    count.Cell(Count(counts.responses));
    ofResponses.Cell(Percentage(counts.responses > 0 ? 100.0 : 0.0));
    ofCases.Cell(Percentage(Percent(counts.responses, counts.validCases)));
    total.Release();
  }

  void Crosstab(const TableState& state) {
    BpPivotTable table =
        procedure_.PivotTable(TableTitle(*state.table), TableTitle(*state.table), false);
    BpDimension columnDimension = table.Dimension(BpString("Columns", true), 2);
    columnDimension.Position(1, 1, true, false);
    const MrfreqCounts& counts = state.counts;
    const std::vector<int> order = ColumnsOf(state).Order();
    const bool tests = request_.showTests && order.size() > 1;

    struct Column {
      int category;  // -1: the total
      std::string letter;
      std::vector<BpCategory> cells;  // count, column %, test (as shown)
    };
    std::vector<Column> columns;
    for (std::size_t i = 0; i <= order.size(); ++i) {
      Column column{i < order.size() ? order[i] : -1, {}, {}};
      std::string label =
          column.category < 0
              ? std::string("Total")
              : CategoryLabel(state.table->columns, ColumnsOf(state), column.category, dataSource_);
      if (tests && column.category >= 0) {
        column.letter = Letter(i);
        label += " (" + column.letter + ")";
      }
      if (request_.showCounts) {
        column.cells.push_back(columnDimension.Category(BpString(label + ": Count", false)));
      }
      if (request_.showColumnPercents) {
        column.cells.push_back(columnDimension.Category(BpString(label + ": Column %", false)));
      }
      if (tests && column.category >= 0) {
        column.cells.push_back(columnDimension.Category(BpString(label + ": Significance", false)));
      }
      columns.push_back(std::move(column));
    }

    BpDimension rows = table.Dimension(BpString("Category", true), 2);
    const std::size_t comparisons = order.size() * (order.size() - 1) / 2;
    for (const int category : RowsOf(state).Order()) {
      BpCategory row = rows.Category(
          BpString(CategoryLabel(state.table->rows, RowsOf(state), category, dataSource_), false));
      for (Column& column : columns) {
        const double n = column.category < 0 ? Entry(counts.rowTotals, category)
                                             : CellOf(counts, category, column.category);
        const double base =
            column.category < 0 ? counts.validCases : Entry(counts.columnBases, column.category);
        std::size_t at = 0;
        if (request_.showCounts) column.cells[at++].Cell(Count(n));
        if (request_.showColumnPercents) {
          if (base > 0) column.cells[at].Cell(Percentage(Percent(n, base)));
          ++at;
        }
        if (tests && column.category >= 0) {
          std::string letters;
          for (const Column& other : columns) {
            if (other.category < 0 || other.category == column.category) continue;
            const double otherN = CellOf(counts, category, other.category);
            const double otherBase = Entry(counts.columnBases, other.category);
            if (base > 0 && otherBase > 0 && n / base > otherN / otherBase &&
                ProportionsDiffer(n, base, otherN, otherBase, request_.alpha, comparisons)) {
              letters += other.letter;
            }
          }
          column.cells[at].Cell(BpString(letters, true));
        }
      }
      row.Release();
    }
    BpCategory total = rows.Category(BpString("Total", true));
    for (Column& column : columns) {
      const double base =
          column.category < 0 ? counts.validCases : Entry(counts.columnBases, column.category);
      std::size_t at = 0;
      if (request_.showCounts) column.cells[at++].Cell(Count(base));
      if (request_.showColumnPercents && base > 0) column.cells[at].Cell(Percentage(100.0));
    }
    total.Release();
  }

 private:
  const MrfreqClassifier& RowsOf(const TableState& state) const {
    return *classifiers_.list[state.rows];
  }
  const MrfreqClassifier& ColumnsOf(const TableState& state) const {
    return *classifiers_.list[state.columns];
  }
  static double Entry(const std::vector<double>& values, int index) {
    const auto at = static_cast<std::size_t>(index);
    return at < values.size() ? values[at] : 0.0;
  }
  static double CellOf(const MrfreqCounts& counts, int row, int column) {
    const auto r = static_cast<std::size_t>(row);
    return r < counts.cells.size() ? Entry(counts.cells[r], column) : 0.0;
  }
  static std::string Letter(std::size_t index) {
    std::string letters;
    for (std::size_t n = index + 1; n > 0; n = (n - 1) / 26) {
      letters.insert(letters.begin(), static_cast<char>('A' + (n - 1) % 26));
    }
    return letters;
  }
  BpNumber Count(double value) const { return BpNumber(value, countDecimals_); }
  static BpNumber Percentage(double value) { return BpNumber(value, 1); }

  const MrfreqRequest& request_;
  const Classifiers& classifiers_;
  const VORN_DataSource& dataSource_;
  BpProcedure& procedure_;
  int countDecimals_;
};

}  // namespace

void RunMrfreq(const MrfreqRequest& request, const VORN_DataSource& dataSource,
               BpProcedure& procedure) {
  Columns columns;
  Classifiers classifiers;
  std::vector<TableState> states;
  states.reserve(request.tables.size());
  for (const MrfreqTable& table : request.tables) {
    const std::size_t rows = classifiers.For(table.rows, columns, request.countDuplicates);
    const std::size_t crossing =
        table.crossed ? classifiers.For(table.columns, columns, false) : kNoColumns;
    states.push_back(TableState{&table, rows, crossing, {}});
  }
  const bool weighted = request.weight >= 0;
  const std::size_t weightSlot = weighted ? columns.SlotOf(request.weight) : 0;

  VORN_CaseReader reader(columns.variables);
  std::uint64_t unusableWeights = 0;
  bool fractionalWeights = false;
  const std::vector<int> single{0};
  while (reader.NextCase()) {
    const MrfreqCase values{reader.Numbers(), reader.MissingFlags(), reader.Texts()};
    double weight = 1.0;
    if (weighted) {
      weight = values.IsMissing(weightSlot) ? 0.0 : values.Number(weightSlot);
      if (!(weight > 0)) {
        ++unusableWeights;
        continue;
      }
      fractionalWeights = fractionalWeights || weight != std::floor(weight);
    }
    for (std::size_t i = 0; i < classifiers.list.size(); ++i) {
      if (!classifiers.list[i]->Classify(values, classifiers.results[i])) {
        ReportMrfreqError(
            "MRFREQ: ^1 holds more than 10000 distinct values; only sets and variables of "
            "categories can be counted.",
            classifiers.keys[i].substr(2));
        return;
      }
    }
    for (TableState& state : states) {
      state.counts.Add(classifiers.results[state.rows],
                       state.columns == kNoColumns ? single : classifiers.results[state.columns],
                       weight);
    }
  }
  if (reader.Failed()) {
    ReportMrfreqError("MRFREQ cannot read the cases: ^1", reader.ErrorText());
    return;
  }
  TableWriter writer(request, dataSource, classifiers, procedure, fractionalWeights ? 2 : 0);
  writer.CaseSummary(states, unusableWeights);
  for (const TableState& state : states) {
    if (state.table->crossed) {
      writer.Crosstab(state);
    } else {
      writer.Frequencies(state);
    }
  }
}
