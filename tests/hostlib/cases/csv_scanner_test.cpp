#include "hostlib/cases/csv_scanner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "hostlib/cases/case_source.h"
#include "tests/hostlib/cases/reference_csv.h"

namespace hostlib::cases {
namespace {

// Feeds the text in blocks of `block` bytes, as a reader does, keeping the
// unfinished record for the next block.
Rows Scan(const std::string& text, std::size_t block, const std::vector<std::size_t>& want,
          std::size_t width, Instructions instructions) {
  CsvScanner scanner(Dialect{}, instructions);
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

TEST(CsvScanner, AgreesWithAReferenceParserOnRandomFiles) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 300; ++round) {
    const std::size_t width = 1 + random() % 12;
    std::string text;
    // Now and then long fields and many rows: quotes open across chunks of
    // 64 bytes and across the scanner's passes of 4 KB.
    const bool large = round % 10 == 0;
    const int rowCount = static_cast<int>(random() % (large ? 400 : 40));
    for (int r = 0; r < rowCount; ++r) {
      for (std::size_t c = 0; c < width; ++c) {
        text += (c ? "," : "") + RandomField(random, large ? 150 : 5);
      }
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
    for (const Instructions instructions :
         {Instructions::kScalar, Instructions::kSse2, Instructions::kAvx2}) {
      for (std::size_t block :
           {std::size_t{1}, std::size_t{7}, std::size_t{64}, std::size_t{4099}, text.size() + 1}) {
        if (large && block < 64) continue;  // a long record scanned again for every byte
        Rows got = Scan(text, block, want, width, instructions);
        for (auto& row : got) row.resize(std::max(row.size(), width));
        ASSERT_EQ(expected, got) << "round " << round << ", block " << block << ", instructions "
                                 << static_cast<int>(instructions) << "\n"
                                 << text;
      }
    }
  }
}

TEST(CsvScanner, ReportsAQuoteLeftOpenAtTheEndWhateverThePaddingHolds) {
  for (const char padding : {'\0', '"'}) {
    CsvScanner scanner(Dialect{});
    const std::string text =
        std::string("a,b\n1,\"2\n") + std::string(CsvScanner::kPadding, padding);
    int records = 0;
    scanner.Scan(text.data(), text.size() - CsvScanner::kPadding, true, [&](const Record&) {
      ++records;
      return true;
    });
    EXPECT_EQ(records, 1);
    EXPECT_TRUE(scanner.Unclosed()) << padding;
  }
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
