// mrset processes against one dataset, on each store: writers at the same
// time, writers killed while they save, saves that fail, and files that must
// be refused. The dataset must always be the old one or the new one.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr const char* kDataset = R"({"fields": [
  {"name": "a1", "type": "integer"}, {"name": "a2", "type": "integer"},
  {"name": "a3", "type": "integer", "x-kept": true}], "x-top": 1})";

// Runs a program with its output in `output`.
pid_t Spawn(const std::vector<std::string>& args, const fs::path& output) {
  std::vector<char*> argv;
  for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(fd, STDOUT_FILENO);
    ::dup2(fd, STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  return pid;
}

// The exit status, or minus the signal that ended the process.
int Wait(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class StoreProcesses : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::string pattern = (fs::path(::testing::TempDir()) / "mrset-processes-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    WriteFile(dir_ / "source.json", kDataset);
    dataset_ = dir_ / ("data." + GetParam());
    ASSERT_EQ(Wait(Spawn({MRSET_CONVERT, (dir_ / "source.json").string(), dataset_.string()},
                         dir_ / "convert.out")),
              0)
        << ReadFile(dir_ / "convert.out");
  }
  void TearDown() override { fs::remove_all(dir_); }

  pid_t Mrset(const std::string& syntax, const std::string& tag) const {
    WriteFile(dir_ / (tag + ".mrs"), syntax);
    return Spawn({MRSET_PROGRAM, "-d", dataset_.string(), (dir_ / (tag + ".mrs")).string()},
                 dir_ / (tag + ".out"));
  }

  // The set names the dataset holds, read through a conversion (which
  // refuses a torn or damaged dataset).
  std::vector<std::string> SetNames() const {
    const fs::path copy = dir_ / "check.json";
    fs::remove(copy);
    const int status =
        Wait(Spawn({MRSET_CONVERT, dataset_.string(), copy.string()}, dir_ / "check.out"));
    EXPECT_EQ(status, 0) << ReadFile(dir_ / "check.out");
    if (status != 0) return {};
    const Json file = Json::parse(ReadFile(copy));
    EXPECT_EQ(file.value("x-top", 0), 1);
    EXPECT_EQ(file["fields"][2].value("x-kept", false), true);
    std::vector<std::string> names;
    for (const Json& set : file.value("multipleResponseSets", Json::array())) {
      names.push_back(set["name"]);
    }
    return names;
  }

  fs::path dir_;
  fs::path dataset_;
};

std::string Define(const std::string& name) {
  return "MRSET /MCGROUP NAME=" + name + " VARIABLES=a1 a2.\n";
}

TEST_P(StoreProcesses, ConcurrentWritersLoseNoSet) {
  constexpr int kWriters = 6;
  constexpr int kCommands = 4;
  std::vector<pid_t> writers;
  std::set<std::string> expected;
  for (int w = 0; w < kWriters; ++w) {
    std::string syntax;
    for (int c = 0; c < kCommands; ++c) {
      const std::string name = "$W" + std::to_string(w) + "_" + std::to_string(c);
      syntax += Define(name);
      expected.insert(name);
    }
    writers.push_back(Mrset(syntax, "writer" + std::to_string(w)));
  }
  for (std::size_t w = 0; w < writers.size(); ++w) {
    EXPECT_EQ(Wait(writers[w]), 0) << ReadFile(dir_ / ("writer" + std::to_string(w) + ".out"));
  }
  const auto names = SetNames();
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected);
}

// Each round starts a writer of many one-set commands and kills it at a
// random moment: every earlier set stays, and each round's sets are a
// whole prefix of what it meant to write.
TEST_P(StoreProcesses, KilledWritersLeaveTheOldOrTheNewDataset) {
  constexpr int kCommands = 40;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(4);
  std::mt19937 random(12345);
  std::size_t kept = 0;
  for (int round = 0; round < 12 && std::chrono::steady_clock::now() < deadline; ++round) {
    std::string syntax;
    for (int c = 0; c < kCommands; ++c) {
      syntax += Define("$K" + std::to_string(round) + "_" + std::to_string(c));
    }
    const pid_t writer = Mrset(syntax, "killed");
    std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 150));
    ::kill(writer, SIGKILL);
    Wait(writer);

    const auto names = SetNames();
    ASSERT_GE(names.size(), kept) << "round " << round << ": sets were lost";
    std::map<int, std::vector<int>> written;
    for (const std::string& name : names) {
      const auto cut = name.find('_');
      written[std::stoi(name.substr(2, cut - 2))].push_back(std::stoi(name.substr(cut + 1)));
    }
    for (const auto& [which, commands] : written) {
      for (std::size_t c = 0; c < commands.size(); ++c) {
        ASSERT_EQ(commands[c], static_cast<int>(c)) << "round " << which << " is torn";
      }
    }
    kept = names.size();
  }
}

TEST_P(StoreProcesses, FailingSaveIsReportedAndChangesNothing) {
  const std::string before = ReadFile(dataset_);
  // A file size limit makes every write of the save fail; the output goes
  // through a pipe, which the limit does not touch.
  const std::string command = "ulimit -f 0; trap '' XFSZ; exec '" MRSET_PROGRAM "' -d '" +
                              dataset_.string() + "' -e '" + Define("$new") + "' 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) output += static_cast<char>(c);
  const int status = ::pclose(pipe);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1) << output;
  EXPECT_NE(output.find("The dataset was not saved: " + dataset_.string() + ": not saved: "),
            std::string::npos)
      << output;
  EXPECT_EQ(ReadFile(dataset_), before);
  EXPECT_TRUE(SetNames().empty());
}

TEST_P(StoreProcesses, OutputOntoTheDatasetIsRefusedBeforeAnythingRuns) {
  const std::string before = ReadFile(dataset_);
  fs::create_symlink(dataset_, dir_ / "link");
  for (const fs::path& output : {dataset_, dir_ / "link", fs::path(dataset_.string() + ".lock"),
                                 fs::path(dataset_.string() + "-journal"),
                                 dir_ / ("." + dataset_.filename().string() + ".tmp1.1")}) {
    const pid_t run =
        Spawn({MRSET_PROGRAM, "-d", dataset_.string(), "-o", output.string(), "-e", Define("$new")},
              dir_ / "clash.out");
    EXPECT_EQ(Wait(run), 2) << output << ": " << ReadFile(dir_ / "clash.out");
    EXPECT_EQ(ReadFile(dataset_), before) << output;
  }
  EXPECT_TRUE(SetNames().empty());
}

TEST_P(StoreProcesses, LockFileLinksAreNotFollowed) {
  if (GetParam() == "db") GTEST_SKIP() << "a database locks itself";
  fs::create_symlink(dir_ / "victim", dataset_.string() + ".lock");
  EXPECT_EQ(Wait(Mrset(Define("$new"), "linked")), 1) << ReadFile(dir_ / "linked.out");
  EXPECT_NE(ReadFile(dir_ / "linked.out").find("the lock file is a symbolic link"),
            std::string::npos)
      << ReadFile(dir_ / "linked.out");
  EXPECT_FALSE(fs::exists(dir_ / "victim"));
  EXPECT_TRUE(SetNames().empty());
}

// Commands from standard input run as each one ends, not when input ends.
TEST_P(StoreProcesses, CommandsFromStandardInputRunAsTheyEnd) {
  int input[2];
  ASSERT_EQ(::pipe(input), 0);
  const pid_t run = ::fork();
  if (run == 0) {
    ::dup2(input[0], STDIN_FILENO);
    ::close(input[1]);
    const int out = ::open((dir_ / "stdin.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(out, STDOUT_FILENO);
    ::execl(MRSET_PROGRAM, MRSET_PROGRAM, "-d", dataset_.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(input[0]);
  const std::string command = Define("$live");
  ASSERT_EQ(::write(input[1], command.data(), command.size()),
            static_cast<ssize_t>(command.size()));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (SetNames().empty() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(SetNames(), std::vector<std::string>{"$live"});
  ::close(input[1]);
  EXPECT_EQ(Wait(run), 0) << ReadFile(dir_ / "stdin.out");
}

TEST_P(StoreProcesses, DamagedFilesAreRefusedAndLeftAlone) {
  const std::string whole = ReadFile(dataset_);
  for (const std::string& bytes : {whole.substr(0, whole.size() / 2), whole.substr(0, 40),
                                   std::string("\x7f"
                                               "ELF\0\1",
                                               6)}) {
    WriteFile(dataset_, bytes);
    EXPECT_EQ(Wait(Mrset(Define("$new"), "damaged")), 2) << ReadFile(dir_ / "damaged.out");
    const std::string output = ReadFile(dir_ / "damaged.out");
    EXPECT_EQ(output.rfind("mrset: " + dataset_.string() + ": ", 0), 0u) << output;
    EXPECT_EQ(ReadFile(dataset_), bytes);
  }
}

// The prompt's listings read the dictionary on demand: a fault met there is
// a message, and the prompt goes on.
TEST_P(StoreProcesses, ListingsThatMeetAFaultOfTheFileSayItAndGoOn) {
  if (GetParam() != "json") GTEST_SKIP() << "a codebook holds the bad field";
  WriteFile(dataset_, R"({"fields": [{"name": "a1"}, {"name": "a2", "type": 5}]})");
  WriteFile(dir_ / "listings.in", ".vars\n.sets\n.quit\n");
  const pid_t run = ::fork();
  if (run == 0) {
    const int in = ::open((dir_ / "listings.in").c_str(), O_RDONLY);
    const int out = ::open((dir_ / "listings.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(in, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
    ::execl(MRSET_PROGRAM, MRSET_PROGRAM, "--interactive", "-d", dataset_.c_str(),
            static_cast<char*>(nullptr));
    ::_exit(127);
  }
  EXPECT_EQ(Wait(run), 0) << ReadFile(dir_ / "listings.out");
  EXPECT_NE(ReadFile(dir_ / "listings.out")
                .find("mrset: " + dataset_.string() + ": /fields/1/type: must be a string"),
            std::string::npos)
      << ReadFile(dir_ / "listings.out");
  EXPECT_NE(ReadFile(dir_ / "listings.out").find("The dataset has no multiple response sets."),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreProcesses, ::testing::Values("json", "db"),
                         [](const auto& info) {
                           return info.param == "json" ? std::string("codebook")
                                                       : std::string("database");
                         });

}  // namespace
