// mrset: runs MRSET command syntax against a dataset file.
//
// Exit status: 0 when no error message was issued, 1 when one was, 2 for bad
// options or a dataset or syntax file that cannot be read (nothing is run).
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
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
#include "programs/mrset/large_page_heap.h"
#include "programs/mrset/lock_timeout.h"
#include "programs/mrset/output_clash.h"
#include "programs/mrset/prompt.h"
#include "programs/mrset/shell.h"

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
  bool bail = false;
  std::vector<std::string> cmds;
  bool batch = false;
  bool interactive = false;
  std::string cases;
  int width = -1;
};

// Where commands come from: a text given with --execute, a syntax file
// (opened before anything runs) or standard input, each read as it runs.
struct SyntaxSource {
  std::string name;
  std::string text;
  std::unique_ptr<std::istream> file;
  bool standardInput = false;
};

void Fail(const std::string& message) { std::cerr << "mrset: " << message << "\n"; }

// Colour on standard error only for a terminal, and never under NO_COLOR.
bool ColourOnStandardError() {
  const char* noColour = std::getenv("NO_COLOR");
  return ::isatty(STDERR_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
}

// Without -d every MRSET command ends silently: say why, once.
void NoteNoDataset(bool colour) {
  std::cerr << "mrset: " << (colour ? "\x1b[1;36mnote:\x1b[0m" : "note:")
            << " no dataset is open (-d PATH opens one); MRSET commands do nothing without "
               "one\n";
}

// Opens every source before anything runs, so that a file that cannot be
// read stops the run before it changes a dataset.
bool OpenSources(const Options& options, std::vector<SyntaxSource>& sources) {
  for (std::size_t i = 0; i < options.executes.size(); ++i) {
    const std::string name =
        options.executes.size() == 1 ? "--execute text" : "--execute text " + std::to_string(i + 1);
    sources.push_back({name, options.executes[i], nullptr, false});
  }
  for (const std::string& file : options.files) {
    if (file == "-") {
      sources.push_back({"standard input", "", nullptr, true});
      continue;
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) {
      Fail("cannot read syntax file " + file + ": " + std::strerror(EISDIR));
      return false;
    }
    auto in = std::make_unique<std::ifstream>(file, std::ios::binary);
    if (!*in) {
      Fail("cannot read syntax file " + file + ": " + std::strerror(errno));
      return false;
    }
    sources.push_back({file, "", std::move(in), false});
  }
  return true;
}

void RunSource(mrset_program::Shell& shell, SyntaxSource& source) {
  bool read = true;
  if (source.file) {
    read = shell.RunStream(*source.file, source.name);
  } else if (source.standardInput) {
    read = shell.RunStream(std::cin, source.name);
  } else {
    shell.RunText(source.text, source.name);
  }
  if (!read) Fail("cannot read " + source.name);
}

// The output is put in place whole at the end, from beside its target: a
// folder that cannot take it stops the run before any command changes a
// dataset.
bool CanWriteBeside(const std::filesystem::path& path) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  return ::access(folder.c_str(), W_OK) == 0;
}

// The case data: --cases, else the codebook's "path"; the codebook's dialect
// and missing values hold either way. The open dataset's store says what its
// file holds beside the dataset.
std::optional<hostlib::cases::CaseSource> CaseSourceOf(const Options& options,
                                                       hostlib::data::DatasetStore* store) {
  std::optional<hostlib::cases::CaseSource> source;
  if (store != nullptr) {
    source = hostlib::cases::CaseSourceOfMembers(
        options.data, store->TopLevelMembers(hostlib::cases::CaseSourceKeys()));
  }
  if (!options.cases.empty()) {
    if (!source) source.emplace();
    source->path = options.cases;
  }
  return source;
}

int Run(const Options& options) {
  if (!options.output.empty() && !options.data.empty()) {
    if (const std::string clash = mrset_program::ClashWithDataset(options.output, options.data);
        !clash.empty()) {
      Fail("the output file " + options.output + " is " + clash + " (" + options.data +
           "); write the output elsewhere");
      return kExitCannotRun;
    }
  }
  std::vector<SyntaxSource> sources;
  if (!OpenSources(options, sources)) return kExitCannotRun;
  if (!options.output.empty() && !CanWriteBeside(options.output)) {
    Fail("cannot write the output to " + options.output + ": " + std::strerror(errno));
    return kExitCannotRun;
  }
  const bool terminal = ::isatty(STDIN_FILENO) != 0;
  const bool prompt = options.interactive || (!options.batch && sources.empty() && terminal);
  if (sources.empty() && !prompt) sources.push_back({"standard input", "", nullptr, true});

  mrset_program::ShellSettings settings{
      !options.noSave,         {},           options.bail, ::isatty(STDOUT_FILENO) != 0,
      ColourOnStandardError(), options.width};
  try {
    if (!options.data.empty()) settings.lockTimeout = mrset_program::LockTimeoutFromEnvironment();
  } catch (const std::exception& failure) {
    Fail(failure.what());
    return kExitCannotRun;
  }

  std::optional<mrset_program::CommandModules> modules;
  try {
    modules = mrset_program::CommandModules::LoadBesideProgram();
  } catch (const std::exception& failure) {
    Fail(failure.what());
    return kExitCannotRun;
  }

  if (options.data.empty()) NoteNoDataset(settings.colourDiagnostics);
  auto& session = hostlib::Session::Instance();
  int status = kExitClean;
  {
    mrset_program::Shell shell(*modules, settings, *hostlib::output::ParseFormat(options.format),
                               options.output, std::cout, std::cerr);
    if (!options.data.empty()) {
      try {
        shell.OpenDataset(options.data);
      } catch (const std::exception& failure) {
        Fail(failure.what());
        return kExitCannotRun;
      }
    }
    try {
      hostlib::cases::SetActiveCaseSource(CaseSourceOf(options, shell.Store()));
    } catch (const std::exception& failure) {
      Fail(failure.what());
      return kExitCannotRun;
    }
    shell.Start();
    for (const std::string& cmd : options.cmds) {
      std::istringstream lines(cmd);
      for (std::string line; !shell.Ended() && std::getline(lines, line);) shell.FeedLine(line);
    }
    for (SyntaxSource& source : sources) {
      if (!shell.Ended()) RunSource(shell, source);
    }
    if (prompt && !shell.Ended()) mrset_program::RunPrompt(shell, terminal);
    const bool written = shell.Finish();
    status = shell.HadErrors() || !written ? kExitErrors : kExitClean;
  }
  session.CloseDataset();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  mrset_program::UseLargePageHeap();
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
  app.add_option("--width", options.width,
                 "Fit text tables in N columns, wrapping long cells (0: never wrap; default: "
                 "the terminal's width on a terminal)")
      ->option_text("N")
      ->check(CLI::Range(0, 100000));
  app.add_option("-o,--output", options.output, "Write the output to PATH")->option_text("PATH");
  app.add_option("--cases", options.cases, "Read the cases from the CSV file in PATH")
      ->option_text("PATH");
  app.add_flag("--no-save", options.noSave, "Never write the dataset file");
  app.add_flag("--bail", options.bail, "Stop at the first command that issues an error");
  app.add_option("--cmd", options.cmds, "Run TEXT (syntax or a dot-command) first, then go on")
      ->option_text("TEXT")
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  auto* batch = app.add_flag("--batch", options.batch, "No prompt, even on a terminal");
  app.add_flag("--interactive", options.interactive, "The prompt, even when input is no terminal")
      ->excludes(batch);
  app.set_version_flag("--version", "mrset 0.1.0");
  app.footer(
      "Without FILE or --execute, standard input is read (with a prompt on a terminal;\n"
      "enter .help there for the prompt's own commands).\n"
      "MRSET_HISTORY: the prompt's history file (~/.mrset_history).\n"
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
