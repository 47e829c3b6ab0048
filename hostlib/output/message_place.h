// Where the messages issued now stand. The session installs itself, as it
// installs the output target, and answers from the running command's token
// cursor; with none installed, messages stand nowhere.
#pragma once

#include "hostlib/output/document.h"

namespace hostlib::output {

class MessagePlaceSource {
 public:
  virtual ~MessagePlaceSource() = default;
  virtual MessagePlace CurrentPlace() const = 0;
};

// The place of a message issued now (empty when no source is installed).
MessagePlace CurrentMessagePlace();
// Installs `source` (null: none); returns the one it replaces.
const MessagePlaceSource* InstallMessagePlaceSource(const MessagePlaceSource* source);

}  // namespace hostlib::output
