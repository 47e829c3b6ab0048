// The command being run, for the token sequences of host/syntax.h made with
// `currentCommand`. The session installs itself; with none installed there
// is no current command.
#pragma once

#include <memory>

#include "hostlib/syntax/command.h"

namespace hostlib::syntax {

class CommandSource {
 public:
  virtual ~CommandSource() = default;
  virtual std::shared_ptr<const Command> CurrentCommand() const = 0;
};

// Null when none is installed.
const CommandSource* CurrentCommandSource();
// Installs `source` (null: none); returns the one it replaces.
const CommandSource* InstallCommandSource(const CommandSource* source);

}  // namespace hostlib::syntax
