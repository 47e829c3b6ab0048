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
// A table stands between blank lines; widths are terminal columns.
#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hostlib/output/diagnostic.h"
#include "hostlib/output/render.h"
#include "hostlib/output/table_layout.h"
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

class TextTable {
 public:
  TextTable(const Table& table, const Document& document) {
    const Grid grid = LayOut(table);
    const Footnotes footnotes(grid, document);

    Row header{SplitLines(grid.rows != nullptr ? ComposeText(grid.rows->label) : "")};
    for (std::size_t c = 0; c < grid.ColumnCount(); ++c) {
      header.push_back(SplitLines(ComposeText(grid.columns->categories[c].label)));
    }
    rows_.push_back(std::move(header));
    for (std::size_t r = 0; r < grid.RowCount(); ++r) {
      Row row{SplitLines(ComposeText(grid.rows->categories[r].label))};
      for (const Cell* cell : grid.cells[r]) {
        Lines lines = SplitLines(cell != nullptr && cell->hasText ? ComposeText(cell->text) : "");
        if (cell != nullptr) {
          for (const std::string& mark : footnotes.MarksOf(*cell)) lines.back() += "[" + mark + "]";
        }
        row.push_back(std::move(lines));
      }
      rows_.push_back(std::move(row));
    }
    for (const Footnote& note : footnotes.List()) {
      notes_.push_back("[" + note.mark + "] " + note.text);
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

  static void WriteItem(const Table& table, const Document& document, std::ostream& out) {
    const std::string title = ComposeText(table.title);
    out << title << '\n';
    TextTable(table, document).Write(out);
    const std::string caption = ComposeText(table.caption);
    if (!caption.empty() && caption != title) out << caption << '\n';
  }

  bool wroteAny_ = false;
  bool lastWasTable_ = false;
};

}  // namespace

std::unique_ptr<Renderer> MakeTextRenderer() { return std::make_unique<TextRenderer>(); }

}  // namespace hostlib::output
