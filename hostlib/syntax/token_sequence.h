// The host's token cursor over one command, as host/syntax.h describes it;
// VORN_TokenSequence is this cursor over the running command.
#pragma once

#include <memory>

#include "host/syntax.h"
#include "hostlib/syntax/command.h"

namespace hostlib::syntax {

// A null command reads as an empty one: only the end-of-command token.
std::unique_ptr<TokenSequenceBase> TokenSequenceOver(std::shared_ptr<const Command> command);

// The token at which the cursor that moved last over `command` stands: where
// the command was reading when it issued a message. 0 (the command word)
// when no cursor has moved over it since ForgetCursors.
std::size_t CursorTokenOf(const Command& command);
void ForgetCursors();

}  // namespace hostlib::syntax
