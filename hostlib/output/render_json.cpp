// {"output": [ITEM, ...]} with one item per line.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

#include "hostlib/output/render.h"
#include "hostlib/output/table_layout.h"

namespace hostlib::output {
namespace {

using Json = nlohmann::ordered_json;

Json OrNull(const std::optional<int>& value) { return value ? Json(*value) : Json(nullptr); }

Json ToJson(const Message& message, const Document&) {
  const MessagePlace& place = message.place;
  return Json{{"command", message.command},
              {"type", message.Kind()},
              {"text", ComposeText(message.text)},
              {"file", place.file.empty() ? Json(nullptr) : Json(place.file)},
              {"line", OrNull(place.line)},
              {"column", OrNull(place.column)},
              {"commandLine", OrNull(place.commandLine)}};
}

Json ToJson(const Assertion& assertion, const Document&) {
  return Json{{"command", assertion.command},
              {"type", "assertion"},
              {"text", assertion.condition},
              {"file", assertion.file},
              {"line", assertion.line}};
}

Json ToJson(const Table& table, const Document& document) {
  const Grid grid = LayOut(table);
  Json columns = Json::array();
  for (std::size_t c = 0; c < grid.ColumnCount(); ++c) {
    columns.push_back(ComposeText(grid.columns->categories[c].label));
  }
  Json rows = Json::array();
  for (std::size_t r = 0; r < grid.RowCount(); ++r) {
    Json cells = Json::object();
    Json notes = Json::object();
    for (std::size_t c = 0; c < grid.ColumnCount(); ++c) {
      const Cell* cell = grid.cells[r][c];
      if (cell == nullptr) continue;
      const std::string column = columns[c].get<std::string>();
      if (cell->hasText && cell->text.numeric) {
        // Whole numbers as integers, so that a count reads as one.
        const double number = cell->text.number;
        if (std::fabs(number) < 1e15 && number == std::trunc(number)) {
          cells[column] = static_cast<std::int64_t>(number);
        } else {
          cells[column] = number;
        }
      } else if (cell->hasText) {
        cells[column] = ComposeText(cell->text);
      }
      Json texts = Json::array();
      for (int handle : cell->notes) {
        if (document.IsRegistered(handle))
          texts.push_back(ComposeText(document.Registered(handle)));
      }
      if (!texts.empty()) notes[column] = std::move(texts);
    }
    rows.push_back(Json{{"name", ComposeText(grid.rows->categories[r].label)},
                        {"cells", std::move(cells)},
                        {"notes", std::move(notes)}});
  }
  return Json{{"command", table.command},
              {"type", "table"},
              {"title", ComposeText(table.title)},
              {"columns", std::move(columns)},
              {"rows", std::move(rows)}};
}

class JsonRenderer final : public Renderer {
 public:
  void Begin(std::ostream& out) override { out << "{\"output\": ["; }

  void Write(const Document& document, std::size_t first, std::ostream& out) override {
    const auto& items = document.Items();
    for (std::size_t i = first; i < items.size(); ++i) {
      const Json json =
          std::visit([&](const auto& item) { return ToJson(item, document); }, items[i]);
      // Bytes that are not UTF-8 become U+FFFD rather than ending the output.
      out << (written_ == 0 ? "\n  " : ",\n  ")
          << json.dump(-1, ' ', false, Json::error_handler_t::replace);
      ++written_;
    }
  }

  void End(std::ostream& out) override { out << (written_ == 0 ? "" : "\n") << "]}\n"; }

 private:
  std::size_t written_ = 0;
};

}  // namespace

std::unique_ptr<Renderer> MakeJsonRenderer() { return std::make_unique<JsonRenderer>(); }

}  // namespace hostlib::output
