#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/case_data.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/session/session.h"
#include "tests/hostlib/cases/reference_csv.h"
#include "tests/support/fault_env.h"
#include "tests/support/files.h"

namespace hostlib::cases {
namespace {

struct Reading {
  Rows cases;  // numbers written as whole numbers, missing values as "."
  std::string error;
};

class CaseReaderTest : public ::testing::Test {
 protected:
  void TearDown() override {
    SetActiveCaseSource(std::nullopt);
    SetCaseReading({});
    Session::Instance().Reset();
  }

  // A dataset of these variables (0: numeric, above: string) whose cases are `text`.
  void Open(const std::vector<VORN_Variable>& variables, const std::string& text) {
    testsupport::WriteFile(Path(), text);
    Session::Instance().Reset();
    Session::Instance().OpenDataset(std::make_shared<data::Dataset>(variables));
    CaseSource source;
    source.path = Path();
    SetActiveCaseSource(source);
  }

  std::filesystem::path Path() const { return folder_ / "cases.csv"; }

  static Reading ReadAll(const std::vector<int>& variables, const std::vector<bool>& numeric) {
    VORN_CaseReader reader(variables);
    Reading reading;
    while (reader.NextCase()) {
      std::vector<std::string>& values = reading.cases.emplace_back();
      for (std::size_t slot = 0; slot < variables.size(); ++slot) {
        if (!numeric[slot]) {
          values.emplace_back(reader.Text(slot));
        } else {
          values.push_back(reader.IsMissing(slot)
                               ? "."
                               : std::to_string(static_cast<long long>(reader.Number(slot))));
        }
      }
    }
    if (reader.Failed()) reading.error = reader.ErrorText();
    return reading;
  }

  testsupport::TemporaryFolder folder_{"case-reader"};
};

const std::vector<CaseReading> kEveryWay = {
    {nullptr, true, true}, {nullptr, true, false}, {nullptr, false, true}, {nullptr, false, false}};

// Rows of an id, a number (now and then missing), a string with every kind
// of quoting and a padding column; wider than several blocks of the reader.
std::string RandomCases(std::size_t rows, Rows& expected) {
  std::mt19937 random(7);
  std::string text = "id,n,s,pad\n";
  for (std::size_t row = 0; row < rows; ++row) {
    const std::string n = random() % 5 == 0 ? "" : std::to_string(int(random() % 2001) - 1000);
    text += std::to_string(row) + "," + n + "," + RandomField(random, 40) + "," +
            std::string(random() % 160, 'x') + (random() % 3 ? "\n" : "\r\n");
  }
  Rows parsed = ReferenceParse(text);
  for (std::size_t row = 1; row < parsed.size(); ++row) {
    expected.push_back(
        {parsed[row][2], parsed[row][1].empty() ? "." : parsed[row][1], parsed[row][0]});
  }
  return text;
}

TEST_F(CaseReaderTest, ReadsTheWantedColumnsAsAPlainParserDoesEveryWay) {
  Rows expected;
  const std::string text = RandomCases(30000, expected);
  ASSERT_GT(text.size(), std::size_t{3} << 20);
  Open({VORN_Variable("id", 0), VORN_Variable("n", 0), VORN_Variable("s", 200),
        VORN_Variable("pad", 200)},
       text);
  for (const CaseReading& way : kEveryWay) {
    SetCaseReading(way);
    const Reading reading = ReadAll({2, 1, 0}, {false, true, true});
    EXPECT_EQ("", reading.error);
    EXPECT_TRUE(reading.cases == expected)
        << "vectors " << way.vectors << ", read ahead " << way.readAhead;
  }
}

// Rows of `id,n,pad` far beyond the first block, one of them spoilt.
std::string CasesWith(const std::vector<std::pair<std::size_t, std::string>>& spoilt) {
  std::string text = "id,n,pad\n";
  for (std::size_t row = 2; row < 20000; ++row) {
    std::string line = std::to_string(row) + ",1," + std::string(100, 'x');
    for (const auto& [at, replacement] : spoilt) {
      if (at == row) line = replacement;
    }
    text += line + "\n";
  }
  return text;
}

TEST_F(CaseReaderTest, NamesTheRowAndColumnOfTheFirstFaultEveryWay) {
  const struct {
    std::vector<std::pair<std::size_t, std::string>> spoilt;
    std::string error;
  } kCases[] = {
      {{{15000, "15000,abc,x"}}, ", row 15000, column \"n\": \"abc\" is not a number."},
      {{{15000, "15000,1"}},
       ", row 15000, column \"pad\": the row has 2 fields where the header has 3."},
      {{{14990, "14990,?,x"}, {15000, "15000"}}, ", row 14990, column \"n\": \"?\" is not"},
      {{{14990, "14990,1,x,y"}, {15000, "15000,?,x"}},
       ", row 14990, column \"#4\": the row has 4 fields"},
      {{{19999, "19999,1,\"x"}}, ", row 19999: a quoted field is not closed"},
  };
  for (const auto& c : kCases) {
    Open({VORN_Variable("id", 0), VORN_Variable("n", 0), VORN_Variable("pad", 100)},
         CasesWith(c.spoilt));
    for (const CaseReading& way : kEveryWay) {
      SetCaseReading(way);
      const Reading reading = ReadAll({1}, {true});
      EXPECT_EQ(Path().string() + c.error,
                reading.error.substr(0, Path().string().size() + c.error.size()))
          << "vectors " << way.vectors << ", read ahead " << way.readAhead;
    }
  }
}

// Small texts read as one range on the calling thread, then with threads
// over ranges of a few bytes, so that range starts fall inside quoted line
// ends, CRLFs, blank lines and faulty rows: every way reads the same cases
// and reports the same fault.
TEST_F(CaseReaderTest, ReadsAlikeWhateverTheWorkersAndRanges) {
  std::mt19937 random(11);
  std::string quoted = "n,s\n";
  for (int row = 0; row < 60; ++row) {
    quoted += std::to_string(row) + "," + RandomField(random, 9) + (row % 2 ? "\r\n" : "\n");
  }
  const struct {
    std::string text;
    std::string error;  // after the file's name
  } kCases[] = {
      {quoted, ""},
      {"n,s\n1,\"a\nb\"\n2,\"\n\n\"\n3,\"\"\"\n\"\n4,x\n", ""},
      {"n,s\r\n1,a\r\n\r\n\r\n2,b\r\n\n\n3,c", ""},
      {"\n\nn,s\n\n1,a\n\n", ""},
      {"n,s\n", ""},
      {"n,s", ""},
      {"n,s\n7,z", ""},
      {"", ": the file has no header row."},
      {"n,s\n1,a\n2,\"b\nc\"\nx,d\n4,e\n", ", row 4, column \"n\": \"x\" is not a number."},
      {"n,s\n1,\"a\n\"\n2\n3,c,d\n",
       ", row 3, column \"s\": the row has 1 fields where the header has 2."},
      {"n,s\n1,a\n\n2,b,c\n",
       ", row 3, column \"#3\": the row has 3 fields where the header has 2."},
      {"n,s\n1,a\n2,\"b\n3,c\n",
       ", row 3: a quoted field is not closed before the end of the file."},
      {"n,\"s\n1,a\n", ", row 1: a quoted field is not closed before the end of the file."},
  };
  for (const auto& c : kCases) {
    Open({VORN_Variable("n", 0), VORN_Variable("s", 20)}, c.text);
    SetCaseReading({nullptr, true, false, 0, 0});
    const Reading once = ReadAll({1, 0}, {false, true});
    EXPECT_EQ(c.error.empty() ? "" : Path().string() + c.error, once.error) << c.text;
    if (c.error.empty()) {
      const Rows parsed = ReferenceParse(c.text);
      Rows expected;
      for (std::size_t row = 1; row < parsed.size(); ++row) {
        expected.push_back({parsed[row][1], parsed[row][0].empty() ? "." : parsed[row][0]});
      }
      EXPECT_TRUE(once.cases == expected) << c.text;
    }
    for (const std::size_t workers : {0, 1, 3}) {
      for (const std::size_t range : {1, 2, 3, 5, 8, 64}) {
        SetCaseReading({nullptr, true, false, workers, range});
        const Reading reading = ReadAll({1, 0}, {false, true});
        EXPECT_EQ(once.error, reading.error) << workers << " workers, ranges of " << range;
        EXPECT_TRUE(once.cases == reading.cases)
            << workers << " workers, ranges of " << range << ":\n"
            << c.text;
      }
    }
  }
}

// A pipe cannot be read at offsets: its ranges are read in order, each from
// what the one before left.
TEST_F(CaseReaderTest, ReadsAPipeAsItReadsAFile) {
  Rows expected;
  const std::string text = RandomCases(3000, expected);
  Open({VORN_Variable("id", 0), VORN_Variable("n", 0), VORN_Variable("s", 200),
        VORN_Variable("pad", 200)},
       text);
  const std::filesystem::path pipe = folder_ / "pipe.csv";
  ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
  CaseSource source;
  source.path = pipe;
  SetActiveCaseSource(source);
  for (const std::size_t range : {std::size_t{0}, std::size_t{1000}}) {
    SetCaseReading({nullptr, true, true, 0, range});
    std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << text; });
    const Reading reading = ReadAll({2, 1, 0}, {false, true, true});
    writer.join();
    EXPECT_EQ("", reading.error);
    EXPECT_TRUE(reading.cases == expected) << "ranges of " << range;
  }
}

TEST_F(CaseReaderTest, AFailingOpenOrReadNamesTheFileAndTheError) {
  using Operation = testsupport::FaultEnv::Operation;
  const struct {
    Operation operation;
    int error;
    int nth;
    std::string what;
  } kCases[] = {
      {Operation::kOpen, EACCES, 1, "cannot be opened: "},
      {Operation::kRead, EIO, 1, "cannot be read: "},  // the header
      {Operation::kRead, EIO, 2, "cannot be read: "},  // after the first block
  };
  Open({VORN_Variable("id", 0), VORN_Variable("n", 0), VORN_Variable("pad", 100)}, CasesWith({}));
  for (const auto& c : kCases) {
    for (const bool readAhead : {true, false}) {
      testsupport::FaultEnv env;
      env.Fail(c.operation, c.error, "cases.csv", c.nth);
      // Read ahead by threads over small ranges: the failing read may be any of theirs.
      SetCaseReading({&env, true, readAhead, readAhead ? 2U : 0U, readAhead ? 4096U : 0U});
      const Reading reading = ReadAll({1}, {true});
      EXPECT_TRUE(env.Fired());
      EXPECT_EQ(Path().string() + ": " + c.what + std::strerror(c.error), reading.error);
    }
  }
}

}  // namespace
}  // namespace hostlib::cases
