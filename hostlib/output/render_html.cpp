// A small HTML5 page. Texts taken from user data are wrapped in
// <span class="user-data">, so that a reader (or a style sheet) can tell them
// from the program's own words.
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>

#include "hostlib/output/compose.h"
#include "hostlib/output/render.h"
#include "hostlib/output/table_layout.h"

namespace hostlib::output {
namespace {

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>Output</title>
<style>
body { font-family: sans-serif; }
.error { color: #a00000; }
.warning { color: #805000; }
.assertion { color: #600080; }
table { border-collapse: collapse; margin: 1em 0 0.5em; }
caption { font-weight: bold; text-align: left; padding-bottom: 0.3em; }
th, td { border: 1px solid #888; padding: 0.2em 0.5em; text-align: left; vertical-align: top; }
.notes { list-style: none; padding-left: 0; margin-top: 0; font-size: smaller; }
</style>
</head>
<body>
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

std::string Marks(const Footnotes& footnotes, const Cell& cell) {
  std::string html;
  for (const std::string& mark : footnotes.MarksOf(cell)) html += "<sup>" + mark + "</sup>";
  return html;
}

void WriteItem(const Message& message, const Document&, std::ostream& out) {
  const char* kind = message.IsError() ? "error" : "warning";
  out << "<p class=\"" << kind << "\">" << (message.IsError() ? "Error" : "Warning") << " (command "
      << message.command << "): " << Html(message.text) << "</p>\n";
}

void WriteItem(const Assertion& assertion, const Document&, std::ostream& out) {
  out << "<p class=\"assertion\">Assertion failed (command " << assertion.command << "): <code>"
      << Escape(assertion.condition) << "</code> at <code>" << Escape(assertion.file) << ':'
      << assertion.line << "</code></p>\n";
}

void WriteItem(const Table& table, const Document& document, std::ostream& out) {
  const Grid grid = LayOut(table);
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
        if (cell->hasText) out << Html(cell->text);
        out << Marks(footnotes, *cell);
      }
      out << "</td>";
    }
    out << "</tr>\n";
  }
  out << "</tbody>\n</table>\n";
  if (!footnotes.List().empty()) {
    out << "<ul class=\"notes\">\n";
    for (const Footnote& note : footnotes.List()) {
      out << "<li><sup>" << note.mark << "</sup> " << Escape(note.text) << "</li>\n";
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
  void Begin(std::ostream& out) override { out << kHead; }

  void Write(const Document& document, std::size_t first, std::ostream& out) override {
    const auto& items = document.Items();
    for (std::size_t i = first; i < items.size(); ++i) {
      std::visit([&](const auto& item) { WriteItem(item, document, out); }, items[i]);
    }
  }

  void End(std::ostream& out) override { out << "</body>\n</html>\n"; }
};

}  // namespace

std::unique_ptr<Renderer> MakeHtmlRenderer() { return std::make_unique<HtmlRenderer>(); }

}  // namespace hostlib::output
