// A small HTML5 page. Texts taken from user data are wrapped in
// <span class="user-data">, so that a reader (or a style sheet) can tell them
// from the program's own words.
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hostlib/output/compose.h"
#include "hostlib/output/render.h"
#include "hostlib/output/table_layout.h"

namespace hostlib::output {
namespace {

constexpr std::string_view kStyle = R"(<style>
body { font-family: sans-serif; margin: 1.5em; }
h1 { font-size: 1.3em; }
.error { color: #a00000; }
.warning { color: #805000; }
.assertion { color: #600080; }
.note { font-style: italic; }
table { border-collapse: collapse; margin: 1em 0 0.5em; }
caption { font-weight: bold; text-align: left; padding-bottom: 0.3em; }
th, td { border: 1px solid #888; padding: 0.2em 0.5em; text-align: left; vertical-align: top; }
thead th { background: #eee; }
.members { margin: 0; padding-left: 1.2em; }
.notes { list-style: none; padding-left: 0; margin-top: 0; font-size: smaller; }
sup a { text-decoration: none; }
@media print {
  body { font-family: serif; font-size: 10pt; color: #000; margin: 0; }
  .error, .warning, .assertion { color: #000; font-weight: bold; }
  thead th { background: none; }
  th, td { border-color: #000; }
  table { page-break-inside: avoid; }
  a { color: inherit; }
}
</style>
)";

std::string Escape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      case '\n':
        escaped += "<br>";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string Html(const BpText& text) {
  std::string html;
  for (const TextSegment& segment : ComposeSegments(text)) {
    if (segment.fixed) {
      html += Escape(segment.text);
    } else {
      html += "<span class=\"user-data\">" + Escape(segment.text) + "</span>";
    }
  }
  return html;
}

// The lines of a text, each as HTML: a format's line breaks make the lines,
// a line feed of an item's own text is a <br> inside its line.
std::vector<std::string> HtmlLines(const BpText& text) {
  std::vector<std::string> lines;
  for (const std::vector<TextSegment>& line : ComposeLines(text)) {
    std::string html;
    for (const TextSegment& segment : line) {
      html += segment.fixed ? Escape(segment.text)
                            : "<span class=\"user-data\">" + Escape(segment.text) + "</span>";
    }
    lines.push_back(std::move(html));
  }
  return lines;
}

// A cell of several lines (the members of a set) is a list.
std::string CellHtml(const BpText& text) {
  const std::vector<std::string> lines = HtmlLines(text);
  if (lines.size() == 1) return lines.front();
  std::string html = "<ul class=\"members\">";
  for (const std::string& line : lines) html += "<li>" + line + "</li>";
  return html + "</ul>";
}

// Notes of table `table` are linked by ids unique in the page.
std::string NoteId(std::size_t table, std::string_view mark) {
  return "note-" + std::to_string(table + 1) + "-" + std::string(mark);
}

std::string Marks(const Footnotes& footnotes, const Cell& cell, std::size_t table) {
  std::string html;
  for (const std::string& mark : footnotes.MarksOf(cell)) {
    html += "<sup><a href=\"#" + NoteId(table, mark) + "\">" + Escape(mark) + "</a></sup>";
  }
  return html;
}

void WriteItem(const Message& message, const Document&, std::size_t, std::ostream& out) {
  const MessagePlace& place = message.place;
  out << "<p class=\"" << message.Kind() << "\">";
  if (place.Known()) {
    out << "<code>" << Escape(place.file) << ':' << *place.line << ':' << *place.column
        << ":</code> ";
  }
  out << (message.IsError()  ? "Error"
          : message.IsNote() ? "Note"
                             : "Warning")
      << " (command " << message.command << "): " << Html(message.text) << "</p>\n";
}

void WriteItem(const Assertion& assertion, const Document&, std::size_t, std::ostream& out) {
  out << "<p class=\"assertion\">Assertion failed (command " << assertion.command << "): <code>"
      << Escape(assertion.condition) << "</code> at <code>" << Escape(assertion.file) << ':'
      << assertion.line << "</code></p>\n";
}

void WriteItem(const Table& table, const Document& document, std::size_t index, std::ostream& out) {
  const Grid grid = LayOut(table);
  if (grid.RowCount() == 0) {
    out << "<p class=\"note\">" << Html(table.title) << ": none to show.</p>\n";
    return;
  }
  const Footnotes footnotes(grid, document);
  out << "<table>\n<caption>" << Html(table.title) << "</caption>\n<thead>\n<tr><th scope=\"col\">"
      << (grid.rows != nullptr ? Html(grid.rows->label) : "") << "</th>";
  for (std::size_t c = 0; c < grid.ColumnCount(); ++c) {
    out << "<th scope=\"col\">" << Html(grid.columns->categories[c].label) << "</th>";
  }
  out << "</tr>\n</thead>\n<tbody>\n";
  for (std::size_t r = 0; r < grid.RowCount(); ++r) {
    out << "<tr><th scope=\"row\">" << Html(grid.rows->categories[r].label) << "</th>";
    for (const Cell* cell : grid.cells[r]) {
      out << "<td>";
      if (cell != nullptr) {
        if (cell->hasText) out << CellHtml(cell->text);
        out << Marks(footnotes, *cell, index);
      }
      out << "</td>";
    }
    out << "</tr>\n";
  }
  out << "</tbody>\n</table>\n";
  if (!footnotes.List().empty()) {
    out << "<ul class=\"notes\">\n";
    for (const Footnote& note : footnotes.List()) {
      out << "<li id=\"" << NoteId(index, note.mark) << "\"><sup>" << Escape(note.mark) << "</sup> "
          << Escape(note.text) << "</li>\n";
    }
    out << "</ul>\n";
  }
  const std::string caption = ComposeText(table.caption);
  if (!caption.empty() && caption != ComposeText(table.title)) {
    out << "<p class=\"caption\">" << Html(table.caption) << "</p>\n";
  }
}

class HtmlRenderer final : public Renderer {
 public:
  explicit HtmlRenderer(std::string_view title) : title_(title) {}

  // The page is titled after what it is about (the dataset), when known.
  void Begin(std::ostream& out) override {
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>"
        << (title_.empty() ? "mrset output" : "mrset output: " + Escape(title_)) << "</title>\n"
        << kStyle << "</head>\n<body>\n";
    if (!title_.empty()) out << "<h1>" << Escape(title_) << "</h1>\n";
  }

  void Write(const Document& document, std::size_t first, std::ostream& out) override {
    const auto& items = document.Items();
    // Items are numbered across the run: a written item may be let go.
    for (std::size_t i = first; i < items.size(); ++i, ++written_) {
      std::visit([&](const auto& item) { WriteItem(item, document, written_, out); }, items[i]);
    }
  }

  void End(std::ostream& out) override { out << "</body>\n</html>\n"; }

 private:
  std::string title_;
  std::size_t written_ = 0;
};

}  // namespace

std::unique_ptr<Renderer> MakeHtmlRenderer(std::string_view title) {
  return std::make_unique<HtmlRenderer>(title);
}

}  // namespace hostlib::output
