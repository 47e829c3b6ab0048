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

// Whole numbers as integers, so that a count reads as one.
Json NumberJson(double number) {
  if (std::fabs(number) < 1e15 && number == std::trunc(number)) {
    return static_cast<std::int64_t>(number);
  }
  return number;
}

// Bounded by what a command builds, never by the contents of a file.
Json ToJson(const BpData& data) {
  switch (data.GetKind()) {
    case BpData::Kind::kNull:
      return nullptr;
    case BpData::Kind::kBoolean:
      return data.GetBoolean();
    case BpData::Kind::kNumber:
      return NumberJson(data.GetNumber());
    case BpData::Kind::kString:
      return data.GetString();
    case BpData::Kind::kList: {
      Json list = Json::array();
      for (const BpData& value : data.Values()) list.push_back(ToJson(value));
      return list;
    }
    case BpData::Kind::kRecord: {
      Json record = Json::object();
      for (std::size_t i = 0; i < data.Keys().size(); ++i) {
        record[data.Keys()[i]] = ToJson(data.Values()[i]);
      }
      return record;
    }
  }
  return nullptr;
}

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
        cells[column] = NumberJson(cell->text.number);
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
    const Category& heading = grid.rows->categories[r];
    Json row{{"name", ComposeText(heading.label)},
             {"cells", std::move(cells)},
             {"notes", std::move(notes)}};
    for (const auto& [key, value] : heading.data) {
      if (!row.contains(key)) row[key] = ToJson(value);
    }
    rows.push_back(std::move(row));
  }
  return Json{{"command", table.command},
              {"type", "table"},
              {"title", ComposeText(table.title)},
              {"columns", std::move(columns)},
              {"rows", std::move(rows)}};
}

// The version of the document's shape (docs/output.schema.json): raised when
// a key changes meaning or goes away, not when one is added.
constexpr int kFormatVersion = 1;

class JsonRenderer final : public Renderer {
 public:
  void Begin(std::ostream& out) override {
    out << "{\"format\": " << kFormatVersion << ", \"output\": [";
  }

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
