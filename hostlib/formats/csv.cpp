#include "hostlib/formats/csv.h"

#include <algorithm>

#include "hostlib/data/dataset.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::formats {
namespace {

[[noreturn]] void Fail(const std::string& file, std::size_t line, const std::string& fault) {
  throw data::DatasetError(file + ": line " + std::to_string(line) + ": " + fault);
}

// Every name and label read from the file goes on into UTF-8 files.
void CheckUtf8(std::string_view text, const std::string& file) {
  const std::size_t valid = strings::ValidUtf8Length(text);
  if (valid == text.size()) return;
  const auto line =
      1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(valid), '\n');
  Fail(file, static_cast<std::size_t>(line),
       "the text is not UTF-8 (save the export as UTF-8 and convert it again)");
}

}  // namespace

CsvTable ParseCsv(std::string_view text, const std::string& file) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  CheckUtf8(text, file);
  CsvTable table;
  std::vector<std::string> record;
  std::string field;
  std::size_t line = 1;
  std::size_t recordLine = 1;
  bool quoted = false;      // inside quotes
  bool wasQuoted = false;   // the field had quotes, now closed
  bool recordEmpty = true;  // nothing of the record read yet
  const auto endRecord = [&] {
    record.push_back(std::move(field));
    field.clear();
    wasQuoted = false;
    if (recordEmpty && record.size() == 1 && record.front().empty()) {
      record.clear();  // a blank line
    } else if (table.header.empty() && table.rows.empty()) {
      table.header = std::move(record);
    } else if (record.size() != table.header.size()) {
      Fail(file, recordLine,
           "has " + std::to_string(record.size()) + " fields; the header has " +
               std::to_string(table.header.size()));
    } else {
      table.rows.push_back(std::move(record));
    }
    record.clear();
    recordEmpty = true;
  };
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '\n') ++line;
    if (quoted) {
      if (c != '"') {
        field += c;
      } else if (at + 1 < text.size() && text[at + 1] == '"') {
        field += '"';
        ++at;
      } else {
        quoted = false;
        wasQuoted = true;
      }
      continue;
    }
    if (c == ',') {
      record.push_back(std::move(field));
      field.clear();
      wasQuoted = false;
      recordEmpty = false;
    } else if (c == '\n' || c == '\r') {
      if (c == '\r' && at + 1 < text.size() && text[at + 1] == '\n') continue;
      endRecord();
      recordLine = line;
    } else if (c == '"' && field.empty() && !wasQuoted) {
      quoted = true;
      recordEmpty = false;
    } else if (wasQuoted) {
      Fail(file, line, "text after the closing quote of a field");
    } else {
      field += c;
      recordEmpty = false;
    }
  }
  if (quoted) Fail(file, recordLine, "a quoted field is not closed");
  if (!field.empty() || !record.empty() || wasQuoted) endRecord();
  if (table.header.empty()) throw data::DatasetError(file + ": no header line");
  return table;
}

std::string RenderCsvRecord(const std::vector<std::string>& fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out += ',';
    const std::string& field = fields[i];
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
      out += field;
      continue;
    }
    out += '"';
    for (const char c : field) {
      out += c;
      if (c == '"') out += '"';
    }
    out += '"';
  }
  return out + "\r\n";
}

}  // namespace hostlib::formats
