// Runs commands against the host: each command goes to the module that
// exports its word, a word no module exports is a host error; the output is written after each
// command, and the dataset file after each command that changed its sets. Each MRSET command holds
// the dataset store's lock from before it reads the sets until after it saved them.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hostlib/data/dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/syntax/splitter.h"
#include "programs/mrset/command_module.h"

namespace mrset_program {

class Runner {
 public:
  // `store` may be null (no dataset); `saveDataset` false never writes it;
  // a command waits up to `lockTimeout` for the store's lock.
  Runner(const CommandModules& modules, hostlib::data::DatasetStore* store, bool saveDataset,
         std::chrono::milliseconds lockTimeout, hostlib::output::Renderer& renderer,
         std::ostream& out);
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;
  ~Runner();

  // Every command of a whole text; `source` names it in messages.
  void RunText(std::string_view text, const std::string& source);
  // Every command of a stream, each run as soon as its last line is read;
  // false when reading failed.
  bool RunStream(std::istream& in, const std::string& source);
  void RunCommand(const hostlib::syntax::SplitCommand& command, const std::string& source);

  // Whether an error message has been issued so far.
  bool HadErrors() const;

  // Later commands use this store (null: none) and write their output with
  // `renderer` to `out`; output already written stays where it went.
  void UseStore(hostlib::data::DatasetStore* store) { store_ = store; }
  void Redirect(hostlib::output::Renderer& renderer, std::ostream& out);
  // Each message of later commands also goes to `diagnostics` as one
  // "FILE:LINE:COLUMN: error: TEXT" line (null: nowhere), coloured with
  // `colour`.
  void SendDiagnostics(std::ostream* diagnostics, bool colour) {
    diagnostics_ = diagnostics;
    colour_ = colour;
  }

 private:
  void RunModule(CommandModule::Entry entry);
  // Writes the dataset when the command changed it and ends the command's
  // hold on the store; a failure is reported and the changes are dropped.
  void SaveDataset(std::optional<hostlib::data::CommandScope>& scope);
  void DropUnsavedChanges();
  // `at`: where the fault stands when the host knows (else the cursor).
  void ReportHostError(const std::string& text,
                       std::optional<hostlib::syntax::SourcePosition> at = std::nullopt);
  void WriteNewOutput();

  const CommandModules& modules_;
  hostlib::data::DatasetStore* store_;
  bool saveDataset_;
  std::chrono::milliseconds lockTimeout_;
  hostlib::output::Renderer* renderer_;
  std::ostream* out_;
  std::ostream* diagnostics_ = nullptr;
  bool colour_ = false;
  int commandNumber_ = 0;
  std::size_t written_ = 0;
};

}  // namespace mrset_program
