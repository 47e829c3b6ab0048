// The host's state while it runs commands: the active dataset, the command
// being run and the output document. It is the one place that ties the
// host's libraries to the running command: it installs itself as the active
// dataset of the data library, the command source of the syntax library and
// the output target of the output library, and tells that library where
// each message stands (the running command's source and token cursor). The module reaches it only
// through the host/ declarations; the mrset program drives it from here.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hostlib/data/active_dataset.h"
#include "hostlib/output/document.h"
#include "hostlib/output/message_context.h"
#include "hostlib/output/output_target.h"
#include "hostlib/syntax/command_source.h"

namespace hostlib {

class Session final : public data::ActiveDatasetSource,
                      public syntax::CommandSource,
                      public output::OutputTarget,
                      public output::MessageContext {
 public:
  static Session& Instance();
  ~Session() override;

  // Opening sets word 11 of the dictionary common area; closing clears it.
  void OpenDataset(std::shared_ptr<data::Dataset> dataset);
  void CloseDataset();
  std::shared_ptr<data::Dataset> ActiveDataset() const override { return dataset_; }
  const VORN_DataSource* RootSource() const override { return root_.get(); }

  // `source` names the input in message places ("survey.mrs", "<stdin>").
  void BeginCommand(int number, std::shared_ptr<const syntax::Command> command,
                    std::string source = {});
  void EndCommand();
  // Messages issued from now on stand at `position` of the running command's
  // source rather than at its cursor (a host error that knows its place);
  // nothing: at the cursor again.
  void PointAt(std::optional<syntax::SourcePosition> position) { pointedAt_ = position; }
  output::MessagePlace CurrentPlace() const override;
  // The host's notes after a message (hostlib/diagnostics): a command that
  // ran on is told once per command.
  std::vector<std::string> NotesAfter(const output::Message& message) override;
  // Which words begin a command (the program's modules), for the note on a
  // command that ran on into the next.
  void KnowCommandWords(std::function<bool(std::string_view)> isCommandWord) {
    isCommandWord_ = std::move(isCommandWord);
  }
  std::shared_ptr<const syntax::Command> CurrentCommand() const override { return command_; }
  int CommandNumber() const override { return commandNumber_; }

  output::Document& Output() { return output_; }
  output::Document& TargetDocument() override { return output_; }

  // Back to the state of a new process (tests).
  void Reset();

 private:
  Session();

  std::shared_ptr<data::Dataset> dataset_;
  std::unique_ptr<VORN_DataSource> root_;
  std::shared_ptr<const syntax::Command> command_;
  std::string source_;
  std::optional<syntax::SourcePosition> pointedAt_;
  std::function<bool(std::string_view)> isCommandWord_;
  bool toldRunOn_ = false;  // in the running command
  int commandNumber_ = 0;
  output::Document output_;
};

}  // namespace hostlib
