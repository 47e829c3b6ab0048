// Kept apart from token_sequence.cpp: only this constructor needs to know
// which command is running.
#include "host/syntax.h"
#include "hostlib/syntax/command_source.h"

namespace {

std::shared_ptr<const hostlib::syntax::Command> RunningCommand() {
  const hostlib::syntax::CommandSource* source = hostlib::syntax::CurrentCommandSource();
  return source != nullptr ? source->CurrentCommand() : nullptr;
}

}  // namespace

VORN_TokenSequence::VORN_TokenSequence(bool currentCommand)
    : VORN_TokenSequence(currentCommand ? RunningCommand() : nullptr) {}
