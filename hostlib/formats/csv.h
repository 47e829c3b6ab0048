// Comma-separated values (RFC 4180: quotes around a field, "" inside one,
// line breaks inside quotes) read into rows, and written back.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostlib::formats {

struct CsvTable {
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;  // each as long as the header
};

// The first record is the header. Throws DatasetError naming `file`, the line
// and the fault for an unclosed quote, text after a closing quote, or a
// record with more or fewer fields than the header.
CsvTable ParseCsv(std::string_view text, const std::string& file);

// One record, with quotes only where a field needs them; ends in CRLF.
std::string RenderCsvRecord(const std::vector<std::string>& fields);

}  // namespace hostlib::formats
