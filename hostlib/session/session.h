// The host's state while it runs commands: the active dataset, the command
// being run and the output document. The module reaches it only through the
// host/ declarations; the mrset program and the tests drive it from here.
#pragma once

#include <memory>

#include "hostlib/output/document.h"

class VORN_DataSource;

namespace hostlib::syntax {
class Command;
}
namespace hostlib::data {
class Dataset;
}

namespace hostlib {

class Session {
 public:
  static Session& Instance();

  // Opening sets word 11 of the dictionary common area; closing clears it.
  void OpenDataset(std::shared_ptr<data::Dataset> dataset);
  void CloseDataset();
  std::shared_ptr<data::Dataset> ActiveDataset() const { return dataset_; }
  // The data source behind every procedure's view of the active dataset.
  const VORN_DataSource* RootSource() const { return root_.get(); }

  void BeginCommand(int number, std::shared_ptr<const syntax::Command> command);
  void EndCommand();
  std::shared_ptr<const syntax::Command> CurrentCommand() const { return command_; }
  int CommandNumber() const { return commandNumber_; }

  output::Document& Output() { return output_; }

  // Back to the state of a new process (tests).
  void Reset();

 private:
  Session() = default;

  std::shared_ptr<data::Dataset> dataset_;
  std::unique_ptr<VORN_DataSource> root_;
  std::shared_ptr<const syntax::Command> command_;
  int commandNumber_ = 0;
  output::Document output_;
};

}  // namespace hostlib
