// The host's token cursor over one command, as host/syntax.h describes it;
// VORN_TokenSequence is this cursor over the running command.
#pragma once

#include <memory>

#include "host/syntax.h"
#include "hostlib/syntax/command.h"

namespace hostlib::syntax {

// A null command reads as an empty one: only the end-of-command token.
std::unique_ptr<TokenSequenceBase> TokenSequenceOver(std::shared_ptr<const Command> command);

}  // namespace hostlib::syntax
