// What the program runs commands with: the dataset store, the output (its
// format and destination, which dot-commands may change while it runs) and
// the runner. Lines arrive from the prompt, --cmd or a file that .read runs;
// whole texts from syntax files and --execute.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "hostlib/data/dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/syntax/splitter.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/dot_commands.h"
#include "programs/mrset/output_file.h"
#include "programs/mrset/runner.h"

namespace mrset_program {

struct ShellSettings {
  bool saveDataset = true;
  std::chrono::milliseconds lockTimeout{};
  bool bail = false;  // stop at the first command that issues an error
  // Whether standard output is a terminal: when it is not, or the document
  // goes to a file or is no text, each message goes to `errors` as well.
  bool outputIsTerminal = false;
  bool colourDiagnostics = false;  // colour them (`errors` is a terminal)
  // Terminal columns text tables fit in: -1 those of standard output when it
  // is a terminal (else no limit); 0 no limit.
  int width = -1;
};

class Shell {
 public:
  // Output in `format` to `outputPath` (empty: standard output; a file is
  // written whole when the output moves elsewhere or at Finish). Listings
  // go to `terminal`, faults of dot-commands to `errors`.
  Shell(const CommandModules& modules, ShellSettings settings, hostlib::output::Format format,
        std::string outputPath, std::ostream& terminal, std::ostream& errors);
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;
  ~Shell();

  // Begins the output (the output file's temporary copy, which throws
  // std::exception when it cannot be made); commands run only after it.
  void Start();

  // Opens the dataset in `path` and makes it the active one; throws
  // std::exception with a message for the user when it cannot be read.
  void OpenDataset(const std::filesystem::path& path);
  // The store of the dataset opened last; null when none.
  hostlib::data::DatasetStore* Store() const { return store_.get(); }

  // The commands of a whole text; `source` names it in messages.
  void RunText(std::string_view text, const std::string& source);
  // The commands of a stream, each run as soon as its last line is read;
  // false when reading failed.
  bool RunStream(std::istream& in, const std::string& source);

  // One line: a dot-command at the start of a command, else syntax that runs
  // when its command is complete.
  void FeedLine(std::string_view line);
  // Forgets the command being typed.
  void DropCommand();
  bool InCommand() const { return splitter_.InCommand(); }

  // After .quit, or when --bail stopped the run.
  bool Ended() const { return ended_; }

  // Runs the command still open and closes the output. Returns false when
  // the output file could not be written.
  bool Finish();

  // Whether an error message has been issued so far.
  bool HadErrors() const;

 private:
  void RunCommand(const hostlib::syntax::SplitCommand& command, const std::string& source);
  void FeedLineTo(hostlib::syntax::CommandSplitter& splitter, std::string_view line,
                  const std::string& source, bool inReadFile);
  void RunDotCommand(const DotCommand& command, bool inReadFile);
  void ReadFile(const std::string& path);
  // A listing of the open dataset to the terminal; a fault of the file met
  // while reading it, to `errors`.
  void ShowListing(const std::function<std::string(const hostlib::data::Dataset&)>& listing);
  void ChangeMode(std::string_view name);
  void ChangeOutput(const std::string& target);
  void Open(const std::string& path);
  void BeginOutput();
  std::ostream& Out();
  bool CloseOutput();
  std::string Title() const;
  // Messages to `errors` too while the document does not reach the terminal.
  void RouteDiagnostics();
  int TextWidth() const;

  const CommandModules& modules_;
  ShellSettings settings_;
  std::ostream& terminal_;
  std::ostream& errors_;
  std::unique_ptr<hostlib::data::DatasetStore> store_;
  std::filesystem::path datasetPath_;
  hostlib::output::Format format_ = hostlib::output::Format::kText;
  std::string outputPath_;
  std::unique_ptr<hostlib::output::Renderer> renderer_;
  // The output file while one is being written: put in place whole by
  // CloseOutput.
  std::unique_ptr<hostlib::files::AtomicFileWriter> outputFile_;
  std::unique_ptr<OutputFileBuffer> outputBuffer_;
  std::unique_ptr<std::ostream> outputStream_;
  std::unique_ptr<Runner> runner_;
  hostlib::syntax::CommandSplitter splitter_;
  bool ended_ = false;
};

}  // namespace mrset_program
