// Plain text for a terminal or a log:
//
//   run.mrs:4:21: warning: One or more of the sets specified do not exist... $x
//   MRSET /DISPLAY NAME=[$x].
//                       ^
//   Error (command 3): TEXT            (a message that stands nowhere)
//   Assertion failed (command 4): CONDITION at FILE:LINE
//
//   TITLE
//   +------+-------+
//   | Name | Label |
//   +------+-------+
//   | $a   | A[a]  |
//   +------+-------+
//   [a] NOTE
//
// A table stands between blank lines; widths are terminal columns. Given a
// width, long cells wrap so that the table fits in it where it can.
#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hostlib/output/compose.h"
#include "hostlib/output/diagnostic.h"
#include "hostlib/output/render.h"
#include "hostlib/output/table_layout.h"
#include "hostlib/output/wrap.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::output {
namespace {

using Lines = std::vector<std::string>;

// The lines of a text; other control characters become blanks so that they
// cannot move the columns.
Lines SplitLines(std::string_view text) {
  Lines lines(1);
  for (char c : text) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      const auto byte = static_cast<unsigned char>(c);
      lines.back() += (byte < 0x20 || byte == 0x7f) ? ' ' : c;
    }
  }
  return lines;
}

int Width(const Lines& lines) {
  int width = 0;
  for (const std::string& line : lines) width = std::max(width, strings::DisplayWidth(line));
  return width;
}

// A cell's text before it is laid out: its entries (the lines of a list,
// each possibly holding line feeds of its own), footnote marks after the last.
using Entries = std::vector<std::string>;

Entries EntriesOf(const BpText& text) {
  Entries entries;
  for (const auto& line : ComposeLines(text)) {
    std::string entry;
    for (const TextSegment& segment : line) entry += segment.text;
    entries.push_back(std::move(entry));
  }
  return entries;
}

// The lines of a cell within `width` columns (0: no limit). In a list, an
// entry's own further lines and its wrapped pieces are indented, so that
// they cannot be read as entries of their own.
Lines LayOutCell(const Entries& entries, int width) {
  const bool list = entries.size() > 1;
  const std::string indent = list ? "  " : "";
  const int indentWidth = static_cast<int>(indent.size());
  const int laterWidth = width > indentWidth ? width - indentWidth : width;
  Lines lines;
  for (const std::string& entry : entries) {
    const Lines own = SplitLines(entry);
    for (std::size_t i = 0; i < own.size(); ++i) {
      // An entry's first line starts at the left, all else is indented.
      const Lines pieces =
          i == 0 ? WrapLine(own[i], width, indentWidth) : WrapLine(own[i], laterWidth);
      for (std::size_t k = 0; k < pieces.size(); ++k) {
        lines.push_back((i == 0 && k == 0 ? "" : indent) + pieces[k]);
      }
    }
  }
  return lines;
}

// Narrower columns make no sense: words would break into crumbs.
constexpr int kNarrowestColumn = 6;

// The widest word of a cell, as laid out: in a list, words after an entry's
// first may stand on indented lines.
int WidestWord(const Entries& entries) {
  const int indent = entries.size() > 1 ? 2 : 0;
  int widest = 0;
  for (const std::string& entry : entries) {
    for (const std::string& line : SplitLines(entry)) {
      std::string_view rest = line;
      while (!rest.empty()) {
        const std::size_t blank = std::min(rest.find(' '), rest.size());
        widest = std::max(widest, strings::DisplayWidth(rest.substr(0, blank)) + indent);
        rest.remove_prefix(std::min(blank + 1, rest.size()));
      }
    }
  }
  return widest;
}

class TextTable {
 public:
  // `width`: the terminal columns the table should fit in; 0: no limit.
  TextTable(const Table& table, const Document& document, int width) {
    const Grid grid = LayOut(table);
    const Footnotes footnotes(grid, document);

    std::vector<std::vector<Entries>> cells;
    std::vector<Entries> header{EntriesOf(grid.rows != nullptr ? grid.rows->label : BpText{})};
    for (std::size_t c = 0; c < grid.ColumnCount(); ++c) {
      header.push_back(EntriesOf(grid.columns->categories[c].label));
    }
    cells.push_back(std::move(header));
    for (std::size_t r = 0; r < grid.RowCount(); ++r) {
      std::vector<Entries> row{EntriesOf(grid.rows->categories[r].label)};
      for (const Cell* cell : grid.cells[r]) {
        Entries entries = cell != nullptr && cell->hasText ? EntriesOf(cell->text) : Entries{""};
        if (cell != nullptr) {
          for (const std::string& mark : footnotes.MarksOf(*cell)) {
            entries.back() += "[" + mark + "]";
          }
        }
        row.push_back(std::move(entries));
      }
      cells.push_back(std::move(row));
    }
    for (const Footnote& note : footnotes.List()) {
      notes_.push_back("[" + note.mark + "] " + note.text);
    }

    const std::vector<int> limits = ColumnLimits(cells, width);
    for (const auto& row : cells) {
      Row laidOut;
      for (std::size_t c = 0; c < row.size(); ++c) laidOut.push_back(LayOutCell(row[c], limits[c]));
      rows_.push_back(std::move(laidOut));
    }
    widths_.assign(rows_.front().size(), 0);
    for (const Row& row : rows_) {
      for (std::size_t c = 0; c < row.size(); ++c) widths_[c] = std::max(widths_[c], Width(row[c]));
    }
  }

  void Write(std::ostream& out) const {
    WriteRule(out);
    for (const Row& row : rows_) {
      WriteRow(row, out);
      WriteRule(out);
    }
    for (const std::string& note : notes_) {
      const Lines lines = SplitLines(note);
      const std::size_t indent = note.find(' ') + 1;
      for (std::size_t i = 0; i < lines.size(); ++i) {
        out << (i == 0 ? "" : std::string(indent, ' ')) << lines[i] << '\n';
      }
    }
  }

 private:
  using Row = std::vector<Lines>;

  // Per column, the width its cells are wrapped to (0: no limit): the whole
  // table, rules included, within `width` where it can be.
  static std::vector<int> ColumnLimits(const std::vector<std::vector<Entries>>& cells, int width) {
    const std::size_t columns = cells.front().size();
    if (width <= 0) return std::vector<int>(columns, 0);
    std::vector<int> natural(columns, 0);
    for (std::size_t c = 0; c < columns; ++c) natural[c] = ColumnWidth(cells, c, 0);
    const int rules = 3 * static_cast<int>(columns) + 1;  // "| " and " |" around each cell
    const int budget = width - rules;
    const std::vector<int> floors = ColumnFloors(cells, natural, budget);
    std::vector<int> limits = FitColumns(natural, budget, floors);
    // Wrapped at blanks, a cut column may come out narrower than its limit:
    // it keeps what it took, and the columns still cut share what it left.
    std::vector<bool> settled(columns, false);
    for (std::size_t round = 0; round < columns; ++round) {
      bool changed = false;
      for (std::size_t c = 0; c < columns; ++c) {
        if (settled[c] || natural[c] <= limits[c]) continue;
        const int taken = ColumnWidth(cells, c, limits[c]);
        if (taken < limits[c]) {
          settled[c] = true;
          limits[c] = taken;
          changed = true;
        }
      }
      if (!changed) break;
      std::vector<std::size_t> open;
      std::vector<int> openNatural;
      std::vector<int> openFloors;
      int rest = budget;
      for (std::size_t c = 0; c < columns; ++c) {
        if (settled[c]) {
          rest -= limits[c];
        } else {
          open.push_back(c);
          openNatural.push_back(natural[c]);
          openFloors.push_back(floors[c]);
        }
      }
      const std::vector<int> shared = FitColumns(openNatural, rest, openFloors);
      for (std::size_t i = 0; i < open.size(); ++i) limits[open[i]] = shared[i];
    }
    return limits;
  }

  // Per column, the width below which it is not cut: its widest word, so
  // that words stay whole; when those cannot all fit, the widest words are
  // cut first, none below kNarrowestColumn.
  static std::vector<int> ColumnFloors(const std::vector<std::vector<Entries>>& cells,
                                       const std::vector<int>& natural, int budget) {
    std::vector<int> words(natural.size(), 0);
    std::vector<int> narrowest(natural.size(), 0);
    for (std::size_t c = 0; c < natural.size(); ++c) {
      for (const auto& row : cells) words[c] = std::max(words[c], WidestWord(row[c]));
      words[c] = std::min(words[c], natural[c]);
      narrowest[c] = std::min(kNarrowestColumn, natural[c]);
    }
    return FitColumns(words, budget, narrowest);
  }

  static int ColumnWidth(const std::vector<std::vector<Entries>>& cells, std::size_t column,
                         int limit) {
    int width = 0;
    for (const auto& row : cells) width = std::max(width, Width(LayOutCell(row[column], limit)));
    return width;
  }

  void WriteRule(std::ostream& out) const {
    out << '+';
    for (int width : widths_) out << std::string(static_cast<std::size_t>(width) + 2, '-') << '+';
    out << '\n';
  }

  void WriteRow(const Row& row, std::ostream& out) const {
    std::size_t height = 0;
    for (const Lines& lines : row) height = std::max(height, lines.size());
    for (std::size_t line = 0; line < height; ++line) {
      out << '|';
      for (std::size_t c = 0; c < row.size(); ++c) {
        const std::string& text = line < row[c].size() ? row[c][line] : std::string();
        const int pad = widths_[c] - strings::DisplayWidth(text);
        out << ' ' << text << std::string(static_cast<std::size_t>(pad), ' ') << " |";
      }
      out << '\n';
    }
  }

  std::vector<Row> rows_;
  std::vector<int> widths_;
  Lines notes_;
};

class TextRenderer final : public Renderer {
 public:
  explicit TextRenderer(int width) : width_(width) {}
  void Begin(std::ostream&) override {}
  void End(std::ostream&) override {}

  void Write(const Document& document, std::size_t first, std::ostream& out) override {
    const auto& items = document.Items();
    for (std::size_t i = first; i < items.size(); ++i) {
      const bool isTable = std::holds_alternative<Table>(items[i]);
      if (wroteAny_ && (isTable || lastWasTable_)) out << '\n';
      std::visit([&](const auto& item) { WriteItem(item, document, out); }, items[i]);
      wroteAny_ = true;
      lastWasTable_ = isTable;
    }
  }

 private:
  static void WriteItem(const Message& message, const Document&, std::ostream& out) {
    if (message.place.Known()) {
      // A note stands beside the message it helps with: one line is enough.
      out << DiagnosticLine(message) << '\n' << (message.IsNote() ? "" : CaretLines(message.place));
      return;
    }
    out << (message.IsError()  ? "Error"
            : message.IsNote() ? "Note"
                               : "Warning")
        << " (command " << message.command << "): " << ComposeText(message.text) << '\n';
  }

  static void WriteItem(const Assertion& assertion, const Document&, std::ostream& out) {
    out << "Assertion failed (command " << assertion.command << "): " << assertion.condition
        << " at " << assertion.file << ':' << assertion.line << '\n';
  }

  void WriteItem(const Table& table, const Document& document, std::ostream& out) const {
    const std::string title = ComposeText(table.title);
    out << title << '\n';
    TextTable(table, document, width_).Write(out);
    const std::string caption = ComposeText(table.caption);
    if (!caption.empty() && caption != title) out << caption << '\n';
  }

  int width_ = 0;
  bool wroteAny_ = false;
  bool lastWasTable_ = false;
};

}  // namespace

std::unique_ptr<Renderer> MakeTextRenderer(int width) {
  return std::make_unique<TextRenderer>(width);
}

}  // namespace hostlib::output
