// The procedure frame and the pivot-table handles of host/output.h. Tables
// live in the session's document; the handles name them by item index.
#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "host/output.h"
#include "host/runtime.h"
#include "hostlib/output/document.h"
#include "hostlib/output/output_target.h"

namespace {

constexpr const char* kSourceFile = "hostlib/output/pivot_table.cpp";

hostlib::output::Document& Output() {
  return hostlib::output::CurrentOutputTarget().TargetDocument();
}

hostlib::output::Dimension* FindDimension(std::size_t table, int dimension) {
  hostlib::output::Table* found = Output().FindTable(table);
  if (found == nullptr || dimension < 0 ||
      static_cast<std::size_t>(dimension) >= found->dimensions.size()) {
    return nullptr;
  }
  return &found->dimensions[static_cast<std::size_t>(dimension)];
}

// The cell where `category` of `dimension` meets the current categories of
// the other dimensions; null (after an assertion) when one has none.
hostlib::output::Cell* FindCell(std::size_t table, int dimension, int category) {
  hostlib::output::Table* found = Output().FindTable(table);
  if (found == nullptr || FindDimension(table, dimension) == nullptr) {
    VORN_AssertionFailed("category handle names a live table", kSourceFile, __LINE__);
    return nullptr;
  }
  std::vector<int> key;
  key.reserve(found->dimensions.size());
  for (std::size_t d = 0; d < found->dimensions.size(); ++d) {
    const int index = static_cast<int>(d) == dimension ? category : found->dimensions[d].current;
    if (index < 0) {
      VORN_AssertionFailed("every other dimension has a current category", kSourceFile, __LINE__);
      return nullptr;
    }
    key.push_back(index);
  }
  return &found->cells[key];
}

}  // namespace

BpAnnotation::BpAnnotation(int textHandle, int /*secondHandle*/, bool /*flag*/)
    : textHandle_(textHandle) {}

BpCategory::BpCategory(std::size_t table, int dimension, int category)
    : table_(table), dimension_(dimension), category_(category) {}

// Handles are copied freely; only Release() ends a category.
BpCategory::~BpCategory() = default;

void BpCategory::Cell(const BpCellText& text) {
  if (hostlib::output::Cell* cell = FindCell(table_, dimension_, category_)) {
    cell->text = text.Value();
    cell->hasText = true;
  }
}

void BpCategory::CellNote(const BpAnnotation& note) {
  if (hostlib::output::Cell* cell = FindCell(table_, dimension_, category_)) {
    cell->notes.push_back(note.TextHandle());
  }
}

void BpCategory::AttachData(const std::string& key, const BpData& value) {
  hostlib::output::Dimension* dimension = FindDimension(table_, dimension_);
  if (dimension == nullptr || category_ < 0 ||
      static_cast<std::size_t>(category_) >= dimension->categories.size()) {
    VORN_AssertionFailed("category handle names a live category", kSourceFile, __LINE__);
    return;
  }
  auto& data = dimension->categories[static_cast<std::size_t>(category_)].data;
  const auto same = [&](const auto& entry) { return entry.first == key; };
  if (const auto found = std::find_if(data.begin(), data.end(), same); found != data.end()) {
    found->second = value;
  } else {
    data.emplace_back(key, value);
  }
}

void BpCategory::Release() {
  hostlib::output::Dimension* dimension = FindDimension(table_, dimension_);
  if (dimension == nullptr || category_ < 0 ||
      static_cast<std::size_t>(category_) >= dimension->categories.size()) {
    return;
  }
  dimension->categories[static_cast<std::size_t>(category_)].released = true;
  if (dimension->current == category_) dimension->current = -1;
}

BpGroup::BpGroup(std::size_t table, int dimension) : table_(table), dimension_(dimension) {}

BpCategory BpGroup::Category(const BpCellText& label) {
  hostlib::output::Dimension* dimension = FindDimension(table_, dimension_);
  if (dimension == nullptr) {
    VORN_AssertionFailed("dimension handle names a live table", kSourceFile, __LINE__);
    return BpCategory(table_, dimension_, -1);
  }
  dimension->categories.push_back({label.Value(), false, {}});
  dimension->current = static_cast<int>(dimension->categories.size() - 1);
  return BpCategory(table_, dimension_, dimension->current);
}

void BpDimension::Position(int place, int /*index*/, bool, bool) {
  if (hostlib::output::Dimension* dimension = FindDimension(table_, dimension_)) {
    dimension->place = place;
  }
}

BpPivotTable::BpPivotTable(std::size_t table) : table_(table) {}

BpDimension BpPivotTable::Dimension(const BpCellText& label, int sort) {
  hostlib::output::Table* table = Output().FindTable(table_);
  if (table == nullptr) {
    VORN_AssertionFailed("pivot table handle names a live table", kSourceFile, __LINE__);
    return BpDimension(table_, -1);
  }
  table->dimensions.push_back({label.Value(), sort, 0, {}, -1});
  return BpDimension(table_, static_cast<int>(table->dimensions.size() - 1));
}

BpPivotTable BpHeading::PivotTable(const BpCellText& title, const BpCellText& caption, bool) {
  hostlib::output::OutputTarget& target = hostlib::output::CurrentOutputTarget();
  hostlib::output::Table table;
  table.command = target.CommandNumber();
  table.title = title.Value();
  table.caption = caption.Value();
  return BpPivotTable(target.TargetDocument().Add(std::move(table)));
}

BpProcedure::BpProcedure(const std::string& /*title*/, int /*kind*/) { Output().OpenProcedure(); }

BpProcedure::~BpProcedure() { Output().CloseProcedure(); }
