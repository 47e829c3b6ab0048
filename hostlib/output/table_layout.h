// What every renderer needs of a table: its grid of rows and columns, and
// footnote marks for the notes of its cells.
#pragma once

#include <string>
#include <vector>

#include "hostlib/output/document.h"

namespace hostlib::output {

// The first dimension placed across the columns gives the columns, the first
// other one the rows. A table with more dimensions shows, at each place, the
// first cell set there.
struct Grid {
  const Dimension* rows = nullptr;              // null: the table has no row dimension
  const Dimension* columns = nullptr;           // null: no column dimension
  std::vector<std::vector<const Cell*>> cells;  // [row][column]; null: never set

  std::size_t RowCount() const { return rows != nullptr ? rows->categories.size() : 0; }
  std::size_t ColumnCount() const { return columns != nullptr ? columns->categories.size() : 0; }
};

Grid LayOut(const Table& table);

struct Footnote {
  std::string mark;  // "a", "b", ..., "z", "aa", ...
  std::string text;  // composed
};

// One mark per distinct note text, lettered in the order the notes first
// appear (row by row, left to right). Handles that name no registered text
// are left out.
class Footnotes {
 public:
  Footnotes(const Grid& grid, const Document& document);

  // The marks of a cell's notes, each once, in the order they were attached.
  std::vector<std::string> MarksOf(const Cell& cell) const;
  const std::vector<Footnote>& List() const { return list_; }

 private:
  const Document& document_;
  std::vector<Footnote> list_;
};

}  // namespace hostlib::output
