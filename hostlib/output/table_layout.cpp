#include "hostlib/output/table_layout.h"

#include <algorithm>
#include <cstddef>

namespace hostlib::output {
namespace {

std::string MarkFor(std::size_t index) {
  std::string mark;
  for (std::size_t n = index + 1; n > 0; n = (n - 1) / 26) {
    mark.insert(mark.begin(), static_cast<char>('a' + (n - 1) % 26));
  }
  return mark;
}

}  // namespace

Grid LayOut(const Table& table) {
  Grid grid;
  int rowDimension = -1;
  int columnDimension = -1;
  for (std::size_t d = 0; d < table.dimensions.size(); ++d) {
    const bool across = table.dimensions[d].place == 1;
    int& slot = across ? columnDimension : rowDimension;
    if (slot < 0) slot = static_cast<int>(d);
  }
  if (rowDimension >= 0) grid.rows = &table.dimensions[static_cast<std::size_t>(rowDimension)];
  if (columnDimension >= 0) {
    grid.columns = &table.dimensions[static_cast<std::size_t>(columnDimension)];
  }
  grid.cells.assign(grid.RowCount(), std::vector<const Cell*>(grid.ColumnCount(), nullptr));
  if (grid.rows == nullptr || grid.columns == nullptr) return grid;

  for (const auto& [key, cell] : table.cells) {
    if (key.size() != table.dimensions.size()) continue;
    const int row = key[static_cast<std::size_t>(rowDimension)];
    const int column = key[static_cast<std::size_t>(columnDimension)];
    if (row < 0 || column < 0 || static_cast<std::size_t>(row) >= grid.RowCount() ||
        static_cast<std::size_t>(column) >= grid.ColumnCount()) {
      continue;
    }
    const Cell*& place =
        grid.cells[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)];
    if (place == nullptr) place = &cell;
  }
  return grid;
}

Footnotes::Footnotes(const Grid& grid, const Document& document) : document_(document) {
  for (const auto& row : grid.cells) {
    for (const Cell* cell : row) {
      if (cell == nullptr) continue;
      for (int handle : cell->notes) {
        if (!document.IsRegistered(handle)) continue;
        std::string text = ComposeText(document.Registered(handle));
        const bool known = std::any_of(list_.begin(), list_.end(),
                                       [&](const Footnote& note) { return note.text == text; });
        if (!known) list_.push_back({MarkFor(list_.size()), std::move(text)});
      }
    }
  }
}

std::vector<std::string> Footnotes::MarksOf(const Cell& cell) const {
  std::vector<std::string> marks;
  for (int handle : cell.notes) {
    if (!document_.IsRegistered(handle)) continue;
    const std::string text = ComposeText(document_.Registered(handle));
    const auto note = std::find_if(list_.begin(), list_.end(),
                                   [&](const Footnote& entry) { return entry.text == text; });
    if (note != list_.end() && std::find(marks.begin(), marks.end(), note->mark) == marks.end()) {
      marks.push_back(note->mark);
    }
  }
  return marks;
}

}  // namespace hostlib::output
