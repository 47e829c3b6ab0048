#include "programs/mrset/shell.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "hostlib/data/dataset.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/files/files.h"
#include "hostlib/session/session.h"
#include "programs/mrset/output_clash.h"

namespace mrset_program {
namespace {

using hostlib::Session;

constexpr const char* kPromptSource = "the prompt";

}  // namespace

Shell::Shell(const CommandModules& modules, ShellSettings settings, hostlib::output::Format format,
             std::string outputPath, std::ostream& terminal, std::ostream& errors)
    : modules_(modules),
      settings_(settings),
      terminal_(terminal),
      errors_(errors),
      format_(format),
      outputPath_(std::move(outputPath)) {}

void Shell::Start() {
  BeginOutput();
  runner_ = std::make_unique<Runner>(modules_, store_.get(), settings_.saveDataset,
                                     settings_.lockTimeout, *renderer_, Out());
  RouteDiagnostics();
}

void Shell::RouteDiagnostics() {
  if (!runner_) return;
  const bool documentElsewhere = !outputPath_.empty() ||
                                 format_ != hostlib::output::Format::kText ||
                                 !settings_.outputIsTerminal;
  runner_->SendDiagnostics(documentElsewhere ? &errors_ : nullptr, settings_.colourDiagnostics);
}

std::ostream& Shell::Out() { return outputStream_ ? *outputStream_ : std::cout; }

Shell::~Shell() = default;

void Shell::OpenDataset(const std::filesystem::path& path) {
  auto store = hostlib::data::OpenDatasetStore(path);
  auto dataset = std::make_shared<hostlib::data::Dataset>(store->Load());
  Session::Instance().OpenDataset(std::move(dataset));
  store_ = std::move(store);
  datasetPath_ = path;
  if (runner_) runner_->UseStore(store_.get());
}

void Shell::RunText(std::string_view text, const std::string& source) {
  hostlib::syntax::CommandSplitter splitter;
  while (!text.empty() && !ended_) {
    const std::size_t newline = text.find('\n');
    if (auto command = splitter.AddLine(text.substr(0, newline))) RunCommand(*command, source);
    if (newline == std::string_view::npos) break;
    text.remove_prefix(newline + 1);
  }
  if (auto command = splitter.Finish(); command && !ended_) RunCommand(*command, source);
}

bool Shell::RunStream(std::istream& in, const std::string& source) {
  hostlib::syntax::CommandSplitter splitter;
  std::string line;
  while (!ended_ && std::getline(in, line)) {
    if (auto command = splitter.AddLine(line)) RunCommand(*command, source);
  }
  if (auto command = splitter.Finish(); command && !ended_) RunCommand(*command, source);
  return !in.bad();
}

void Shell::RunCommand(const hostlib::syntax::SplitCommand& command, const std::string& source) {
  const int errorsBefore = Session::Instance().Output().ErrorCount();
  runner_->RunCommand(command, source);
  if (settings_.bail && Session::Instance().Output().ErrorCount() > errorsBefore) ended_ = true;
}

void Shell::FeedLine(std::string_view line) { FeedLineTo(splitter_, line, kPromptSource, false); }

void Shell::FeedLineTo(hostlib::syntax::CommandSplitter& splitter, std::string_view line,
                       const std::string& source, bool inReadFile) {
  if (ended_) return;
  if (!splitter.InCommand()) {
    if (const auto dot = ParseDotCommand(line)) {
      RunDotCommand(*dot, inReadFile);
      return;
    }
  }
  if (auto command = splitter.AddLine(line)) RunCommand(*command, source);
}

void Shell::DropCommand() { splitter_ = hostlib::syntax::CommandSplitter(splitter_.NextLine()); }

bool Shell::Finish() {
  if (auto command = splitter_.Finish(); command && !ended_) {
    RunCommand(*command, kPromptSource);
  }
  return CloseOutput();
}

bool Shell::HadErrors() const { return Session::Instance().Output().ErrorCount() > 0; }

void Shell::RunDotCommand(const DotCommand& command, bool inReadFile) {
  const std::string& name = command.name;
  if (name == "help") {
    terminal_ << DotHelp();
  } else if (name == "vars") {
    ShowListing([&](const auto& dataset) { return ListVariables(dataset, command.argument); });
  } else if (name == "sets") {
    ShowListing([](const auto& dataset) { return ListSets(dataset); });
  } else if (name == "read" && inReadFile) {
    errors_ << "mrset: .read cannot be used in a file that .read runs\n";
  } else if (name == "read") {
    ReadFile(command.argument);
  } else if (name == "mode") {
    ChangeMode(command.argument);
  } else if (name == "output") {
    ChangeOutput(command.argument);
  } else if (name == "open") {
    Open(command.argument);
  } else if (name == "quit" || name == "exit") {
    ended_ = true;
  } else {
    errors_ << "mrset: unknown command ." << name << " (.help lists the commands)\n";
  }
  terminal_.flush();
}

void Shell::ShowListing(const std::function<std::string(const hostlib::data::Dataset&)>& listing) {
  const auto dataset = Session::Instance().ActiveDataset();
  if (!dataset) {
    errors_ << "mrset: no dataset is open (.open PATH opens one)\n";
    return;
  }
  // Read on demand, a variable or set may meet a fault of the file here.
  try {
    terminal_ << listing(*dataset);
  } catch (const hostlib::data::DatasetError& error) {
    errors_ << "mrset: " << error.what() << '\n';
  }
}

void Shell::ReadFile(const std::string& path) {
  if (path.empty()) {
    errors_ << "mrset: .read needs a file name\n";
    return;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    errors_ << "mrset: cannot read " << path << "\n";
    return;
  }
  hostlib::syntax::CommandSplitter splitter;
  std::string line;
  while (!ended_ && std::getline(in, line)) FeedLineTo(splitter, line, path, true);
  if (in.bad()) errors_ << "mrset: cannot read all of " << path << "\n";
  if (auto command = splitter.Finish(); command && !ended_) RunCommand(*command, path);
}

void Shell::ChangeMode(std::string_view name) {
  const auto format = hostlib::output::ParseFormat(name);
  if (!format) {
    errors_ << "mrset: .mode takes text, json or html\n";
    return;
  }
  if (*format == format_) return;
  CloseOutput();
  format_ = *format;
  BeginOutput();
}

void Shell::ChangeOutput(const std::string& target) {
  if (target.empty()) {
    errors_ << "mrset: .output takes a file name or stdout\n";
    return;
  }
  const std::string path = target == "stdout" ? "" : target;
  if (!path.empty() && !datasetPath_.empty()) {
    if (const std::string clash = ClashWithDataset(path, datasetPath_.string()); !clash.empty()) {
      errors_ << "mrset: the output file " << path << " is " << clash << "; the output stays\n";
      return;
    }
  }
  CloseOutput();
  outputPath_ = path;
  BeginOutput();
}

void Shell::Open(const std::string& path) {
  if (path.empty()) {
    errors_ << "mrset: .open needs the path of a dataset\n";
    return;
  }
  try {
    OpenDataset(path);
    terminal_ << "Opened " << path << ".\n";
  } catch (const std::exception& failure) {
    errors_ << "mrset: " << failure.what() << "\n";
  }
}

int Shell::TextWidth() const {
  if (settings_.width >= 0) return settings_.width;
  if (!outputPath_.empty() || ::isatty(STDOUT_FILENO) == 0) return 0;
  winsize size{};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void Shell::BeginOutput() {
  renderer_ = hostlib::output::MakeRenderer(format_, Title(), TextWidth());
  outputStream_.reset();
  outputBuffer_.reset();
  outputFile_.reset();
  if (!outputPath_.empty()) {
    try {
      outputFile_ = std::make_unique<hostlib::files::AtomicFileWriter>(outputPath_);
      outputBuffer_ = std::make_unique<OutputFileBuffer>(*outputFile_);
      outputStream_ = std::make_unique<std::ostream>(outputBuffer_.get());
    } catch (const std::exception& failure) {
      errors_ << "mrset: " << failure.what() << "; the output goes to standard output\n";
      outputPath_.clear();
    }
  }
  renderer_->Begin(Out());
  if (runner_) runner_->Redirect(*renderer_, Out());
  RouteDiagnostics();
}

bool Shell::CloseOutput() {
  renderer_->End(Out());
  Out().flush();
  if (!outputFile_) return true;
  try {
    if (!outputBuffer_->Failure().empty()) throw std::runtime_error(outputBuffer_->Failure());
    outputFile_->Commit();
    return true;
  } catch (const std::exception& failure) {
    errors_ << "mrset: " << failure.what() << "\n";
    return false;
  }
}

std::string Shell::Title() const {
  return datasetPath_.empty() ? std::string() : datasetPath_.filename().string();
}

}  // namespace mrset_program
