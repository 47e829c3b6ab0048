// Runs commands against the host: MRSET goes to the command module, any
// other command is a host error; the output is written after each command,
// and the dataset file after each command that changed its sets.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "hostlib/data/dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/syntax/splitter.h"
#include "programs/mrset/command_module.h"

namespace mrset_program {

class Runner {
 public:
  // `store` may be null (no dataset); `saveDataset` false never writes it.
  Runner(const CommandModule& module, hostlib::data::DatasetStore* store, bool saveDataset,
         hostlib::output::Renderer& renderer, std::ostream& out);

  // Every command of a whole text; `source` names it in messages.
  void RunText(std::string_view text, const std::string& source);
  void RunCommand(const hostlib::syntax::SplitCommand& command, const std::string& source);

  // Whether an error message has been issued so far.
  bool HadErrors() const;

 private:
  void RunModule();
  void SaveDatasetIfChanged();
  void ReportHostError(const std::string& text);
  void WriteNewOutput();

  const CommandModule& module_;
  hostlib::data::DatasetStore* store_;
  bool saveDataset_;
  hostlib::output::Renderer& renderer_;
  std::ostream& out_;
  int commandNumber_ = 0;
  std::size_t written_ = 0;
};

}  // namespace mrset_program
