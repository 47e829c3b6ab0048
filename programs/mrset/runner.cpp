#include "programs/mrset/runner.h"

#include <exception>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>

#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/data/dataset.h"
#include "hostlib/output/diagnostic.h"
#include "hostlib/session/session.h"
#include "hostlib/strings/unicode.h"

namespace mrset_program {
namespace {

using hostlib::Session;

std::string Where(const hostlib::syntax::SourcePosition& position, const std::string& source) {
  return "Line " + std::to_string(position.line) + ", column " + std::to_string(position.column) +
         " of " + source + ": ";
}

// The source as message places name it, as compilers do: a file as given,
// --execute text as "<command line>", standard input and the prompt as
// "<stdin>". The host's own "Line L, column C of SOURCE" texts keep the
// longer names.
std::string PlaceName(const std::string& source) {
  if (source.starts_with("--execute text")) return "<command line>";
  if (source == "standard input" || source == "the prompt") return "<stdin>";
  return source;
}

}  // namespace

Runner::Runner(const CommandModules& modules, hostlib::data::DatasetStore* store, bool saveDataset,
               std::chrono::milliseconds lockTimeout, hostlib::output::Renderer& renderer,
               std::ostream& out)
    : modules_(modules),
      store_(store),
      saveDataset_(saveDataset),
      lockTimeout_(lockTimeout),
      renderer_(&renderer),
      out_(&out) {
  Session::Instance().KnowCommandWords([this](std::string_view word) {
    return modules_.EntryFor(hostlib::strings::UpperCase(word)) != nullptr;
  });
}

Runner::~Runner() { Session::Instance().KnowCommandWords(nullptr); }

void Runner::Redirect(hostlib::output::Renderer& renderer, std::ostream& out) {
  written_ = Session::Instance().Output().Items().size();
  renderer_ = &renderer;
  out_ = &out;
}

void Runner::RunText(std::string_view text, const std::string& source) {
  hostlib::syntax::CommandSplitter splitter;
  while (!text.empty()) {
    const std::size_t newline = text.find('\n');
    if (auto command = splitter.AddLine(text.substr(0, newline))) RunCommand(*command, source);
    if (newline == std::string_view::npos) break;
    text.remove_prefix(newline + 1);
  }
  if (auto command = splitter.Finish()) RunCommand(*command, source);
}

bool Runner::RunStream(std::istream& in, const std::string& source) {
  hostlib::syntax::CommandSplitter splitter;
  std::string line;
  while (std::getline(in, line)) {
    if (auto command = splitter.AddLine(line)) RunCommand(*command, source);
  }
  if (auto command = splitter.Finish()) RunCommand(*command, source);
  return !in.bad();
}

void Runner::RunCommand(const hostlib::syntax::SplitCommand& split, const std::string& source) {
  if (split.comment) return;
  Session::Instance().BeginCommand(++commandNumber_, split.command, PlaceName(source));
  if (split.error) {
    ReportHostError(Where(split.error->position, source) + split.error->message,
                    split.error->position);
  } else if (split.command->At(0).type != TokenSequenceBase::kString) {
    ReportHostError(Where(split.start, source) + "A command name was expected. Found \"" +
                        split.command->TokenText(0) + "\".",
                    split.start);
  } else if (const auto entry =
                 modules_.EntryFor(hostlib::strings::UpperCase(split.command->TokenText(0)));
             entry == nullptr) {
    ReportHostError(Where(split.start, source) + "\"" + split.command->TokenText(0) +
                        "\" is not a command of this program; it was skipped.",
                    split.start);
  } else {
    RunModule(entry);
  }
  Session::Instance().EndCommand();
  WriteNewOutput();
}

void Runner::RunModule(CommandModule::Entry entry) {
  // A run that never saves works on the dataset as it read it, and leaves
  // no lock file behind.
  std::optional<hostlib::data::CommandScope> scope;
  if (store_ != nullptr && saveDataset_) {
    try {
      scope.emplace(*store_, lockTimeout_);
    } catch (const std::exception& failure) {
      ReportHostError(std::string("The command was not run: ") + failure.what());
      return;
    }
    // Another process changed the dataset since it was read: run on its sets.
    if (auto& reloaded = scope->Reloaded()) {
      Session::Instance().OpenDataset(
          std::make_shared<hostlib::data::Dataset>(std::move(*reloaded)));
    }
  }
  const auto dataset = Session::Instance().ActiveDataset();
  const auto revision = dataset ? dataset->SetsRevision() : 0;
  try {
    entry();
  } catch (const std::exception& failure) {
    // The module saves last, so nothing of a command that threw was saved.
    ReportHostError(std::string("The command was stopped by a failure and changed nothing: ") +
                    failure.what());
    return;
  } catch (...) {
    ReportHostError("The command was stopped by an unknown failure and changed nothing.");
    return;
  }
  if (dataset && dataset->SetsRevision() != revision) SaveDataset(scope);
}

void Runner::SaveDataset(std::optional<hostlib::data::CommandScope>& scope) {
  if (store_ == nullptr || !saveDataset_) return;
  const auto dataset = Session::Instance().ActiveDataset();
  try {
    if (!store_->WouldChange(*dataset)) return;
    store_->Save(*dataset);
    if (scope) scope->Finish();
  } catch (const std::exception& failure) {
    ReportHostError(std::string("The dataset was not saved: ") + failure.what());
    DropUnsavedChanges();
  }
}

// The file holds the dataset as it was before the command: so must memory,
// or the next command that saves would write this one's changes too.
void Runner::DropUnsavedChanges() {
  try {
    Session::Instance().OpenDataset(std::make_shared<hostlib::data::Dataset>(store_->Load()));
  } catch (const std::exception& failure) {
    ReportHostError(std::string("The dataset could not be read again after the failed save: ") +
                    failure.what());
  }
}

void Runner::ReportHostError(const std::string& text,
                             std::optional<hostlib::syntax::SourcePosition> at) {
  Session::Instance().PointAt(at);
  BpError(BpString(text, true), kShowInOutput, kErrorLevel);
  Session::Instance().PointAt(std::nullopt);
}

// What is written is let go: memory holds one command's output at a time.
void Runner::WriteNewOutput() {
  auto& document = Session::Instance().Output();
  renderer_->Write(document, written_, *out_);
  out_->flush();
  if (diagnostics_ != nullptr) {
    hostlib::output::WriteDiagnostics(document, written_, *diagnostics_, colour_);
    diagnostics_->flush();
  }
  document.DropItems();
  written_ = document.Items().size();
}

bool Runner::HadErrors() const { return Session::Instance().Output().ErrorCount() > 0; }

}  // namespace mrset_program
