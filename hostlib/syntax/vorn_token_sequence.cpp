// The module's token sequence: the host's cursor over the running command.
#include "host/syntax.h"
#include "hostlib/syntax/command_source.h"
#include "hostlib/syntax/token_sequence.h"

namespace {

std::shared_ptr<const hostlib::syntax::Command> RunningCommand() {
  const hostlib::syntax::CommandSource* source = hostlib::syntax::CurrentCommandSource();
  return source != nullptr ? source->CurrentCommand() : nullptr;
}

}  // namespace

VORN_TokenSequence::VORN_TokenSequence(bool currentCommand)
    : tokens_(hostlib::syntax::TokenSequenceOver(currentCommand ? RunningCommand() : nullptr)) {}

VORN_TokenSequence::~VORN_TokenSequence() = default;

bool VORN_TokenSequence::Next() { return tokens_->Next(); }

std::uint32_t VORN_TokenSequence::GetPosition() const { return tokens_->GetPosition(); }

void VORN_TokenSequence::SetPosition(std::uint32_t position) { tokens_->SetPosition(position); }

int VORN_TokenSequence::Type() const { return tokens_->Type(); }

int VORN_TokenSequence::SubType() const { return tokens_->SubType(); }

double VORN_TokenSequence::NumberValue() const { return tokens_->NumberValue(); }

std::string VORN_TokenSequence::Text() const { return tokens_->Text(); }
