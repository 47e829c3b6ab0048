// A plain character-by-character reading of the CSV rules, to hold the
// scanner and the case reader against, and random CSV text to feed them.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace hostlib::cases {

using Rows = std::vector<std::vector<std::string>>;

inline Rows ReferenceParse(const std::string& text) {
  Rows rows;
  std::vector<std::string> row;
  std::string field;
  bool quoted = false;
  bool wasQuoted = false;
  const auto endField = [&] {
    row.push_back(field);
    field.clear();
    wasQuoted = false;
  };
  const auto endRow = [&] {
    const bool blank = row.empty() && field.empty() && !wasQuoted;
    endField();
    if (!blank) rows.push_back(row);
    row.clear();
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        field += '"';
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        field += c;
      }
    } else if (c == '"' && field.empty() && !wasQuoted) {
      quoted = wasQuoted = true;
    } else if (c == ',') {
      endField();
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      // the line end follows
    } else if (c == '\n') {
      endRow();
    } else {
      field += c;
    }
  }
  if (!field.empty() || !row.empty() || wasQuoted) endRow();
  return rows;
}

// A field of up to `longest` characters among letters, digits, blanks,
// delimiters, quotes and line ends, quoted where it must be (and now and then
// where it need not be).
inline std::string RandomField(std::mt19937& random, std::size_t longest = 5) {
  static const std::string kAlphabet = "ab1 ,\"\n\r";
  std::string field;
  const std::size_t length = random() % (longest + 1);
  for (std::size_t i = 0; i < length; ++i) field += kAlphabet[random() % kAlphabet.size()];
  const bool needsQuotes = field.find_first_of(",\"\n\r") != std::string::npos;
  if (!needsQuotes && random() % 4 != 0) return field;
  std::string quoted = "\"";
  for (char c : field) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace hostlib::cases
