#include <algorithm>
#include <utility>

#include "host/syntax.h"
#include "hostlib/syntax/command.h"

namespace {

std::shared_ptr<const hostlib::syntax::Command> OrEmpty(
    std::shared_ptr<const hostlib::syntax::Command> command) {
  if (command) {
    return command;
  }
  return std::make_shared<const hostlib::syntax::Command>(
      std::string(), std::vector<hostlib::syntax::Token>{},
      std::vector<hostlib::syntax::SourcePosition>{});
}

}  // namespace

VORN_TokenSequence::VORN_TokenSequence(std::shared_ptr<const hostlib::syntax::Command> command)
    : command_(OrEmpty(std::move(command))) {}

VORN_TokenSequence::~VORN_TokenSequence() = default;

bool VORN_TokenSequence::Next() {
  const auto last = static_cast<std::uint32_t>(command_->Size() - 1);
  current_ = std::min(next_, last);
  next_ = current_ + 1;
  return Type() != kEndOfCommand;
}

std::uint32_t VORN_TokenSequence::GetPosition() const { return current_; }

void VORN_TokenSequence::SetPosition(std::uint32_t position) { next_ = position; }

int VORN_TokenSequence::Type() const { return command_->At(current_).type; }

int VORN_TokenSequence::SubType() const { return command_->At(current_).code; }

double VORN_TokenSequence::NumberValue() const { return command_->At(current_).number; }

std::string VORN_TokenSequence::Text() const { return command_->TokenText(current_); }
