// What the host knows around a message issued now: where it stands, and
// notes that help with it. The session installs itself, as it installs the
// output target, and answers from the running command's source, token cursor
// and dataset; with none installed, messages stand nowhere and get no notes.
#pragma once

#include <string>
#include <vector>

#include "hostlib/output/document.h"

namespace hostlib::output {

class MessageContext {
 public:
  virtual ~MessageContext() = default;
  virtual MessagePlace CurrentPlace() const = 0;
  // Notes to show after `message`, which is being issued.
  virtual std::vector<std::string> NotesAfter(const Message& message) = 0;
};

// The place of a message issued now (empty when no source is installed).
MessagePlace CurrentMessagePlace();
std::vector<std::string> NotesAfter(const Message& message);
// Installs `source` (null: none); returns the one it replaces.
MessageContext* InstallMessageContext(MessageContext* source);

}  // namespace hostlib::output
