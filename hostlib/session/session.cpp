#include "hostlib/session/session.h"

#include <cstdint>
#include <utility>

#include "host/common_areas.h"
#include "host/data_source.h"
#include "hostlib/data/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/diagnostics/notes.h"
#include "hostlib/syntax/command.h"
#include "hostlib/syntax/token_sequence.h"

namespace hostlib {
namespace {

void SetActiveDatasetWord(bool active) {
  auto* words = static_cast<std::intptr_t*>(pvGetCmnDic());
  words[kActiveDatasetWord] = active ? 1 : 0;
}

}  // namespace

Session& Session::Instance() {
  static Session session;
  return session;
}

Session::Session() {
  data::InstallActiveDatasetSource(this);
  syntax::InstallCommandSource(this);
  output::InstallOutputTarget(this);
  output::InstallMessageContext(this);
}

Session::~Session() {
  data::InstallActiveDatasetSource(nullptr);
  syntax::InstallCommandSource(nullptr);
  output::InstallOutputTarget(nullptr);
  output::InstallMessageContext(nullptr);
}

void Session::OpenDataset(std::shared_ptr<data::Dataset> dataset) {
  dataset_ = std::move(dataset);
  root_ = dataset_ ? data::DataSourceOver(dataset_) : nullptr;
  SetActiveDatasetWord(dataset_ != nullptr);
}

void Session::CloseDataset() { OpenDataset(nullptr); }

void Session::BeginCommand(int number, std::shared_ptr<const syntax::Command> command,
                           std::string source) {
  commandNumber_ = number;
  command_ = std::move(command);
  source_ = std::move(source);
  pointedAt_.reset();
  toldRunOn_ = false;
  syntax::ForgetCursors();
}

void Session::EndCommand() {
  command_.reset();
  pointedAt_.reset();
}

output::MessagePlace Session::CurrentPlace() const {
  output::MessagePlace place;
  if (!command_ || source_.empty()) return place;
  place.file = source_;
  place.commandLine = command_->FirstLine();
  const syntax::SourcePosition at =
      pointedAt_ ? *pointedAt_ : command_->PositionOf(syntax::CursorTokenOf(*command_));
  place.line = at.line;
  place.column = at.column;
  place.sourceLine = command_->SourceLine(at.line);
  return place;
}

void Session::Reset() {
  CloseDataset();
  command_.reset();
  source_.clear();
  pointedAt_.reset();
  toldRunOn_ = false;
  commandNumber_ = 0;
  output_.Clear();
}

std::vector<std::string> Session::NotesAfter(const output::Message& message) {
  const diagnostics::NoteContext context{message.text, command_.get(),
                                         command_ ? syntax::CursorTokenOf(*command_) : 0,
                                         dataset_.get(), isCommandWord_};
  std::vector<std::string> notes;
  for (diagnostics::Note& note : diagnostics::NotesFor(context)) {
    if (note.kind == diagnostics::NoteKind::kRunOn && std::exchange(toldRunOn_, true)) continue;
    notes.push_back(std::move(note.text));
  }
  return notes;
}

}  // namespace hostlib
