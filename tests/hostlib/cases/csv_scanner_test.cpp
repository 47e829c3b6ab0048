#include "hostlib/cases/csv_scanner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "hostlib/cases/case_source.h"

namespace hostlib::cases {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// A plain character-by-character reading of the same rules, to hold the
// scanner against.
Rows ReferenceParse(const std::string& text) {
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

// Feeds the text in blocks of `block` bytes, as a reader does, keeping the
// unfinished record for the next block.
Rows Scan(const std::string& text, std::size_t block, const std::vector<std::size_t>& want,
          std::size_t width) {
  CsvScanner scanner(Dialect{});
  scanner.Want(want);
  Rows rows;
  std::string buffer;
  std::size_t fed = 0;
  while (true) {
    const std::size_t take = std::min(block, text.size() - fed);
    buffer.append(text, fed, take);
    fed += take;
    const bool final = fed == text.size();
    std::string padded = buffer + std::string(CsvScanner::kPadding, '\0');
    const std::size_t used =
        scanner.Scan(padded.data(), buffer.size(), final, [&](const Record& record) {
          std::vector<std::string> row(std::max(width, record.fieldCount));
          for (std::size_t column : want) {
            if (column < record.fieldCount) row[column] = std::string((*record.fields)[column]);
          }
          if (want.empty()) row.assign(record.fields->begin(), record.fields->end());
          row.resize(record.fieldCount);
          rows.push_back(row);
          return true;
        });
    buffer.erase(0, used);
    if (final) break;
  }
  return rows;
}

std::string RandomField(std::mt19937& random) {
  static const std::string kAlphabet = "ab1 ,\"\n\r";
  std::string field;
  const int length = static_cast<int>(random() % 6);
  for (int i = 0; i < length; ++i) field += kAlphabet[random() % kAlphabet.size()];
  const bool needsQuotes = field.find_first_of(",\"\n\r") != std::string::npos;
  if (!needsQuotes && random() % 4 != 0) return field;
  std::string quoted = "\"";
  for (char c : field) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

TEST(CsvScanner, AgreesWithAReferenceParserOnRandomFiles) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 300; ++round) {
    const std::size_t width = 1 + random() % 12;
    std::string text;
    const int rowCount = static_cast<int>(random() % 40);
    for (int r = 0; r < rowCount; ++r) {
      for (std::size_t c = 0; c < width; ++c) text += (c ? "," : "") + RandomField(random);
      if (r + 1 < rowCount || random() % 2) text += random() % 3 ? "\n" : "\r\n";
    }
    Rows expected = ReferenceParse(text);
    for (auto& row : expected) {
      if (row.size() < width) row.resize(width);
    }
    std::vector<std::size_t> want;
    for (std::size_t c = 0; c < width; ++c) {
      if (random() % 3 == 0) want.push_back(c);
    }
    if (want.empty() && random() % 2) want.push_back(width - 1);  // else every field
    for (auto& row : expected) {
      for (std::size_t c = 0; c < row.size(); ++c) {
        if (!want.empty() && std::find(want.begin(), want.end(), c) == want.end()) row[c].clear();
      }
    }
    for (std::size_t block : {std::size_t{1}, std::size_t{7}, std::size_t{64}, text.size() + 1}) {
      Rows got = Scan(text, block, want, width);
      for (auto& row : got) row.resize(std::max(row.size(), width));
      ASSERT_EQ(expected, got) << "round " << round << ", block " << block << "\n" << text;
    }
  }
}

TEST(CsvScanner, ReportsAQuoteLeftOpenAtTheEnd) {
  CsvScanner scanner(Dialect{});
  const std::string text = std::string("a,b\n1,\"2\n") + std::string(CsvScanner::kPadding, '\0');
  int records = 0;
  scanner.Scan(text.data(), text.size() - CsvScanner::kPadding, true, [&](const Record&) {
    ++records;
    return true;
  });
  EXPECT_EQ(records, 1);
  EXPECT_TRUE(scanner.Unclosed());
}

TEST(CaseSource, ReadsPathDialectAndMissingValuesOfACodebook) {
  const auto folder = std::filesystem::temp_directory_path() / "case-source-test";
  std::filesystem::create_directories(folder);
  const auto write = [&](const std::string& text) {
    std::ofstream(folder / "book.json") << text;
    return folder / "book.json";
  };
  auto source = CaseSourceOfCodebook(write(
      R"({"path": "data/c.csv", "dialect": {"delimiter": ";", "quoteChar": "'"},
          "missingValues": ["", "NA"], "fields": []})"));
  ASSERT_TRUE(source);
  EXPECT_EQ(source->path, folder / "data/c.csv");
  EXPECT_EQ(source->dialect.delimiter, ';');
  EXPECT_EQ(source->dialect.quote, '\'');
  EXPECT_EQ(source->missingValues, (std::vector<std::string>{"", "NA"}));

  EXPECT_FALSE(CaseSourceOfCodebook(write(R"({"fields": []})")));
  for (const char* bad : {R"({"path": 3})", R"({"path": "c.csv", "dialect": {"delimiter": ";;"}})",
                          R"({"path": "c.csv", "missingValues": [1]})",
                          R"({"path": "c.csv", "dialect": {"header": false}})"}) {
    EXPECT_THROW(CaseSourceOfCodebook(write(bad)), std::runtime_error) << bad;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace hostlib::cases
