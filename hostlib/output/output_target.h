// Where the output calls of host/output.h and host/runtime.h put what they
// make: a document, and the number of the command that made it. The session
// installs itself as the target of the running program; a test installs its
// own. With none installed, a document of this library's own takes the items.
#pragma once

#include "hostlib/output/document.h"

namespace hostlib::output {

class OutputTarget {
 public:
  virtual ~OutputTarget() = default;
  virtual Document& TargetDocument() = 0;
  virtual int CommandNumber() const = 0;
};

OutputTarget& CurrentOutputTarget();
// Installs `target` (null: the library's own again); returns the one it
// replaces.
OutputTarget* InstallOutputTarget(OutputTarget* target);

}  // namespace hostlib::output
