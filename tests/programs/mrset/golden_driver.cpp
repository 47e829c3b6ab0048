// Runs the mrset program on each case file of cases/ and compares what it
// writes, its exit status and the dataset it leaves with the case's
// expectations.
//
// A case file is a run of sections, each opened by a line "==== KIND REST":
//   ==== dataset FILE      copy data/FILE to a fresh folder; runs get -d on it
//   ==== copy FILE         copy data/FILE beside it (case data, say)
//   ==== run ARGS          run mrset with ARGS on the syntax that follows
//   ==== output            what the run writes to standard output (JSON
//                          compared as JSON)
//   ==== stderr            what it writes to standard error (unchecked when
//                          absent)
//   ==== exit N            the run's exit status (0 when absent)
// (the source line of a module assertion is written "#": see MaskAssertionLines)
//   ==== sets              the dataset's multipleResponseSets after the run
//   ==== file              the whole dataset file after the run (as JSON)
// Lines before the first section and lines starting with "#" in the dataset
// section are comments. Set MRSET_UPDATE_GOLDEN=1 to rewrite the expected
// output of failing cases (review the diff before committing it).
//
// Every case runs on both stores: as written, on the codebook file, and on a
// dataset database converted from it, where the program must say and do the
// same (the database's name read as the file's), and "sets" and "file" are
// checked on the database converted back (key order within objects aside:
// a database writes each set's keys in the order a save does).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/files.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

struct RunSpec {
  std::string args;
  std::string syntax;
  std::optional<std::string> output;
  std::optional<std::string> errors;
  int exitStatus = 0;
  std::optional<std::string> sets;
  std::optional<std::string> file;
};

struct Case {
  std::string dataset;
  std::vector<std::string> copies;
  std::vector<RunSpec> runs;
};

Case ParseCase(const std::string& text) {
  Case parsed;
  std::istringstream in(text);
  std::string line;
  std::string* body = nullptr;
  std::string scratch;
  while (std::getline(in, line)) {
    if (line.rfind("==== ", 0) != 0) {
      if (body != nullptr) *body += line + "\n";
      continue;
    }
    std::istringstream header(line.substr(5));
    std::string kind;
    header >> kind;
    std::string rest;
    std::getline(header, rest);
    if (!rest.empty() && rest.front() == ' ') rest.erase(0, 1);
    if (kind == "copy") {
      parsed.copies.push_back(rest);
      body = &scratch;
    } else if (kind == "dataset") {
      parsed.dataset = rest;
      body = &scratch;
    } else if (kind == "run") {
      parsed.runs.push_back(RunSpec{rest, "", {}, {}, 0, {}, {}});
      body = &parsed.runs.back().syntax;
    } else if (kind == "output") {
      body = &parsed.runs.back().output.emplace();
    } else if (kind == "stderr") {
      body = &parsed.runs.back().errors.emplace();
    } else if (kind == "exit") {
      parsed.runs.back().exitStatus = std::stoi(rest);
      body = &scratch;
    } else if (kind == "sets") {
      body = &parsed.runs.back().sets.emplace();
    } else if (kind == "file") {
      body = &parsed.runs.back().file.emplace();
    } else {
      throw std::runtime_error("unknown section: " + line);
    }
  }
  return parsed;
}

struct Result {
  std::string output;
  std::string errors;  // standard error, when the command line sent it to a file
  int exitStatus = -1;
};

Result RunProgram(const std::string& commandLine) {
  Result result;
  FILE* pipe = popen(commandLine.c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> buffer{};
  std::size_t n = 0;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
    result.output.append(buffer.data(), n);
  }
  const int status = pclose(pipe);
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

bool LooksLikeJson(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  return first != std::string::npos && (text[first] == '{' || text[first] == '[');
}

// JSON is compared as JSON (key order included); anything else as text.
void ExpectSameOutput(const std::string& expected, const std::string& actual,
                      const std::string& what) {
  if (LooksLikeJson(expected) && Json::accept(actual)) {
    EXPECT_EQ(Json::parse(expected).dump(2), Json::parse(actual).dump(2)) << what;
  } else {
    EXPECT_EQ(expected, actual) << what;
  }
}

// Where in the module's source an assertion stands is no part of the
// contract: the line is shown as "#" on both sides of the comparison.
std::string MaskAssertionLines(const std::string& output) {
  // A message's place has a column after its line; an assertion's has none.
  static const std::regex json(R"re(("file":"[^"]*","line":)[0-9]+(?![0-9]|,"column"))re");
  static const std::regex text(R"re((Assertion failed[^\n]* at (?:<code>)?[^ \n<]+):[0-9]+)re");
  return std::regex_replace(std::regex_replace(output, json, "$1\"#\""), text, "$1:#");
}

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

fs::path CasesDir() { return fs::path(MRSET_E2E_DIR) / "cases"; }

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(CasesDir())) {
    if (entry.path().extension() == ".test") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

enum class Store { kCodebook, kDatabase };

void PrintTo(Store store, std::ostream* out) {
  *out << (store == Store::kDatabase ? "database" : "codebook");
}

class GoldenCase : public testing::TestWithParam<std::tuple<std::string, Store>> {};

TEST_P(GoldenCase, MatchesExpectations) {
  const auto& [name, store] = GetParam();
  const bool database = store == Store::kDatabase;
  const fs::path casePath = CasesDir() / (name + ".test");
  const std::string caseText = ReadFile(casePath);
  const Case parsed = ParseCase(caseText);
  ASSERT_FALSE(parsed.runs.empty()) << casePath;
  if (database && parsed.dataset.empty()) GTEST_SKIP() << "no dataset: nothing to store";

  const fs::path work =
      fs::temp_directory_path() /
      ("mrset-e2e-" + name + (database ? "-db-" : "-") + std::to_string(::getpid()));
  fs::remove_all(work);
  fs::create_directories(work);
  fs::path dataset;
  std::string shownName;  // the dataset as the expected output names it
  if (!parsed.dataset.empty()) {
    dataset = work / fs::path(parsed.dataset).filename();
    shownName = dataset.filename().string();
    fs::copy_file(fs::path(MRSET_E2E_DIR) / "data" / parsed.dataset, dataset);
    for (const std::string& copy : parsed.copies) {
      fs::copy_file(fs::path(MRSET_E2E_DIR) / "data" / copy, work / fs::path(copy).filename());
    }
    if (database) {
      const fs::path converted = fs::path(dataset).replace_extension(".db");
      const Result made = RunProgram(Quote(MRSET_CONVERT) + " " + Quote(dataset.string()) + " " +
                                     Quote(converted.string()) + " 2>&1");
      if (made.exitStatus != 0) {
        fs::remove_all(work);
        GTEST_SKIP() << "the case's dataset is no codebook a database can be made from: "
                     << made.output;
      }
      dataset = converted;
    }
  }
  const auto asShown = [&](std::string output) {
    if (!database) return output;
    const std::string used = dataset.filename().string();
    for (auto at = output.find(used); at != std::string::npos;
         at = output.find(used, at + shownName.size())) {
      output.replace(at, used.size(), shownName);
    }
    return output;
  };
  const auto datasetAsCodebook = [&]() {
    if (!database) return Json::parse(ReadFile(dataset));
    const fs::path back = work / "back.json";
    fs::remove(back);
    const Result made = RunProgram(Quote(MRSET_CONVERT) + " " + Quote(dataset.string()) + " " +
                                   Quote(back.string()) + " 2>&1");
    EXPECT_EQ(made.exitStatus, 0) << made.output;
    return Json::parse(ReadFile(back));
  };
  // A database writes a set's keys in save order: compare objects as maps.
  const auto expectSame = [&](const std::string& expected, const Json& actual,
                              const std::string& what) {
    if (database) {
      EXPECT_EQ(nlohmann::json::parse(expected), nlohmann::json::parse(actual.dump())) << what;
    } else {
      EXPECT_EQ(Json::parse(expected).dump(2), actual.dump(2)) << what;
    }
  };

  std::string updated = caseText;
  bool rewrite = false;
  for (std::size_t i = 0; i < parsed.runs.size(); ++i) {
    const RunSpec& run = parsed.runs[i];
    const std::string what =
        casePath.string() + ", run " + std::to_string(i + 1) + (database ? " (database)" : "");
    const fs::path syntax = work / ("run" + std::to_string(i + 1) + ".mrs");
    WriteFile(syntax, run.syntax);
    std::string commandLine = "cd " + Quote(work.string()) + " && " + Quote(MRSET_PROGRAM);
    if (!dataset.empty()) commandLine += " -d " + Quote(dataset.filename().string());
    const fs::path errors = work / "stderr.txt";
    commandLine +=
        " " + run.args + " " + Quote(syntax.filename().string()) + " 2>" + Quote(errors.string());
    Result result = RunProgram(commandLine);
    result.output = MaskAssertionLines(asShown(result.output));
    result.errors = asShown(ReadFile(errors));

    EXPECT_EQ(run.exitStatus, result.exitStatus) << what << "\n" << result.output;
    if (run.output) {
      ExpectSameOutput(*run.output, result.output, what);
      if (!database && std::getenv("MRSET_UPDATE_GOLDEN") != nullptr &&
          *run.output != result.output &&
          !(LooksLikeJson(*run.output) && Json::accept(result.output) &&
            Json::parse(*run.output) == Json::parse(result.output))) {
        const auto at = updated.find(*run.output);
        if (at != std::string::npos) {
          updated.replace(at, run.output->size(), result.output);
          rewrite = true;
        }
      }
    }
    if (run.errors) {
      EXPECT_EQ(*run.errors, result.errors) << what << ": standard error";
      if (!database && std::getenv("MRSET_UPDATE_GOLDEN") != nullptr &&
          *run.errors != result.errors && !run.errors->empty()) {
        if (const auto at = updated.find(*run.errors); at != std::string::npos) {
          updated.replace(at, run.errors->size(), result.errors);
          rewrite = true;
        }
      }
    }
    if (run.sets || run.file) {
      ASSERT_FALSE(dataset.empty()) << what << ": a case that checks the dataset needs one";
      const Json file = datasetAsCodebook();
      if (run.sets) {
        const Json sets =
            file.contains("multipleResponseSets") ? file["multipleResponseSets"] : Json::array();
        expectSame(*run.sets, sets, what + ": sets");
      }
      if (run.file) expectSame(*run.file, file, what + ": file");
    }
  }
  if (rewrite) WriteFile(casePath, updated);
  fs::remove_all(work);
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenCase,
                         testing::Combine(testing::ValuesIn(CaseNames()),
                                          testing::Values(Store::kCodebook, Store::kDatabase)),
                         [](const testing::TestParamInfo<std::tuple<std::string, Store>>& info) {
                           std::string name = std::get<0>(info.param);
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name + (std::get<1>(info.param) == Store::kDatabase
                                              ? "_database"
                                              : "_codebook");
                         });

}  // namespace
