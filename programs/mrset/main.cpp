// mrset: runs MRSET command syntax against a dataset file.
//
// Exit status: 0 when no error message was issued, 1 when one was, 2 for bad
// options or a dataset or syntax file that cannot be read (nothing is run).
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "hostlib/cases/case_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/data/dataset_store.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/files/files.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/lock_timeout.h"
#include "programs/mrset/prompt.h"
#include "programs/mrset/runner.h"

namespace {

constexpr int kExitClean = 0;
constexpr int kExitErrors = 1;
constexpr int kExitCannotRun = 2;

struct Options {
  std::vector<std::string> files;
  std::vector<std::string> executes;
  std::string data;
  std::string format = "text";
  std::string output;
  bool noSave = false;
  std::string cases;
};

struct SyntaxSource {
  std::string name;
  std::string text;
};

void Fail(const std::string& message) { std::cerr << "mrset: " << message << "\n"; }

bool ReadStream(std::istream& in, std::string& text) {
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = buffer.str();
  return !in.bad();
}

// Reads every source before anything runs, so that an unreadable file stops
// the run before it changes a dataset.
bool ReadSources(const Options& options, std::vector<SyntaxSource>& sources) {
  for (std::size_t i = 0; i < options.executes.size(); ++i) {
    const std::string name =
        options.executes.size() == 1 ? "--execute text" : "--execute text " + std::to_string(i + 1);
    sources.push_back({name, options.executes[i]});
  }
  for (const std::string& file : options.files) {
    SyntaxSource source{file == "-" ? "standard input" : file, ""};
    if (file == "-") {
      if (!ReadStream(std::cin, source.text)) {
        Fail("cannot read standard input");
        return false;
      }
    } else {
      std::error_code ignored;
      if (std::filesystem::is_directory(file, ignored)) {
        Fail("cannot read syntax file " + file + ": " + std::strerror(EISDIR));
        return false;
      }
      std::ifstream in(file, std::ios::binary);
      if (!in || !ReadStream(in, source.text)) {
        Fail("cannot read syntax file " + file + ": " + std::strerror(errno));
        return false;
      }
    }
    sources.push_back(std::move(source));
  }
  return true;
}

// The output is written whole at the end, beside its target: a folder that
// cannot take it stops the run before any command changes a dataset.
bool CanWriteBeside(const std::filesystem::path& path) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  return ::access(folder.c_str(), W_OK) == 0;
}

// What the output file would destroy when it is the dataset or one of the
// files that keep it whole (its lock, journal or temporary files); by
// identity and by resolved name, so links count too. Empty when nothing.
std::string ClashWithDataset(const std::string& output, const std::string& data) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  struct stat outInfo {};
  struct stat dataInfo {};
  if (::stat(output.c_str(), &outInfo) == 0 && ::stat(data.c_str(), &dataInfo) == 0 &&
      outInfo.st_dev == dataInfo.st_dev && outInfo.st_ino == dataInfo.st_ino) {
    return "the dataset";
  }
  const fs::path out = fs::weakly_canonical(output, ignored);
  const fs::path dataset = fs::weakly_canonical(data, ignored);
  if (out == dataset) return "the dataset";
  if (out.parent_path() != dataset.parent_path()) return {};
  const std::string name = dataset.filename().string();
  const std::string outName = out.filename().string();
  if (outName == name + ".lock") return "the dataset's lock file";
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    if (outName == name + suffix) return "the dataset's journal";
  }
  if (outName.rfind("." + name + ".tmp", 0) == 0) return "a temporary file of the dataset";
  return {};
}

// The case data: --cases, else the codebook's "path"; the codebook's dialect
// and missing values hold either way.
std::optional<hostlib::cases::CaseSource> CaseSourceOf(const Options& options) {
  std::optional<hostlib::cases::CaseSource> source;
  if (!options.data.empty()) source = hostlib::cases::CaseSourceOfCodebook(options.data);
  if (!options.cases.empty()) {
    if (!source) source.emplace();
    source->path = options.cases;
  }
  return source;
}

int Run(const Options& options) {
  if (!options.output.empty() && !options.data.empty()) {
    if (const std::string clash = ClashWithDataset(options.output, options.data); !clash.empty()) {
      Fail("the output file " + options.output + " is " + clash + " (" + options.data +
           "); write the output elsewhere");
      return kExitCannotRun;
    }
  }
  std::vector<SyntaxSource> sources;
  if (!ReadSources(options, sources)) return kExitCannotRun;
  if (!options.output.empty() && !CanWriteBeside(options.output)) {
    Fail("cannot write the output to " + options.output + ": " + std::strerror(errno));
    return kExitCannotRun;
  }
  const bool prompt = sources.empty() && ::isatty(STDIN_FILENO) != 0;
  if (sources.empty() && !prompt) {
    SyntaxSource source{"standard input", ""};
    if (!ReadStream(std::cin, source.text)) {
      Fail("cannot read standard input");
      return kExitCannotRun;
    }
    sources.push_back(std::move(source));
  }

  std::unique_ptr<hostlib::data::DatasetStore> store;
  auto& session = hostlib::Session::Instance();
  std::chrono::milliseconds lockTimeout{};
  if (!options.data.empty()) {
    try {
      lockTimeout = mrset_program::LockTimeoutFromEnvironment();
      store = hostlib::data::OpenDatasetStore(options.data);
      session.OpenDataset(std::make_shared<hostlib::data::Dataset>(store->Load()));
    } catch (const std::exception& failure) {
      Fail(failure.what());
      return kExitCannotRun;
    }
  }

  std::optional<mrset_program::CommandModules> modules;
  try {
    modules = mrset_program::CommandModules::LoadBesideProgram();
    hostlib::cases::SetActiveCaseSource(CaseSourceOf(options));
  } catch (const std::exception& failure) {
    Fail(failure.what());
    return kExitCannotRun;
  }

  const auto format = hostlib::output::ParseFormat(options.format);
  auto renderer = hostlib::output::MakeRenderer(*format);
  std::ostringstream captured;
  std::ostream& out = options.output.empty() ? std::cout : captured;

  renderer->Begin(out);
  mrset_program::Runner runner(*modules, store.get(), !options.noSave, lockTimeout, *renderer, out);
  if (prompt) {
    mrset_program::RunPrompt(runner);
  } else {
    for (const SyntaxSource& source : sources) runner.RunText(source.text, source.name);
  }
  renderer->End(out);
  out.flush();

  int status = runner.HadErrors() ? kExitErrors : kExitClean;
  if (!options.output.empty()) {
    try {
      hostlib::files::WriteFileAtomically(options.output, captured.str());
    } catch (const std::exception& failure) {
      Fail(failure.what());
      status = kExitErrors;
    }
  }
  session.CloseDataset();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Runs MRSET and MRFREQ command syntax: defines, lists and deletes the multiple "
      "response sets of a dataset, and counts them over its cases.",
      "mrset"};
  Options options;
  app.add_option("FILE", options.files, "Syntax files, run in order; - is standard input");
  app.add_option("-e,--execute", options.executes, "Run TEXT as syntax (may be repeated)")
      ->option_text("TEXT")
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("-d,--data", options.data, "Open the dataset in PATH")->option_text("PATH");
  app.add_option("-f,--format", options.format, "Output format: text, json or html")
      ->option_text("FMT")
      ->check(CLI::IsMember({"text", "json", "html"}));
  app.add_option("-o,--output", options.output, "Write the output to PATH")->option_text("PATH");
  app.add_option("--cases", options.cases, "Read the cases from the CSV file in PATH")
      ->option_text("PATH");
  app.add_flag("--no-save", options.noSave, "Never write the dataset file");
  app.set_version_flag("--version", "mrset 0.1.0");
  app.footer(
      "Without FILE or --execute, standard input is read (with a prompt on a terminal).\n"
      "MRSET_LOCK_TIMEOUT: how many seconds a command waits for the dataset's lock (10).\n"
      "Exit status: 0 no error, 1 an error message was issued, 2 nothing could be run.");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? kExitClean : kExitCannotRun;
  }
  return Run(options);
}
