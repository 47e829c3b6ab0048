#include "hostlib/syntax/token_sequence.h"

#include <algorithm>
#include <utility>

namespace hostlib::syntax {
namespace {

// The last cursor move: which command, which token.
struct LastMove {
  const Command* command = nullptr;
  std::size_t token = 0;
};
LastMove lastMove;

class CommandTokens final : public TokenSequenceBase {
 public:
  explicit CommandTokens(std::shared_ptr<const Command> command) : command_(std::move(command)) {
    if (!command_) {
      command_ = std::make_shared<const Command>(std::string(), std::vector<Token>{},
                                                 std::vector<SourcePosition>{});
    }
  }

  bool Next() override {
    const auto last = static_cast<std::uint32_t>(command_->Size() - 1);
    current_ = std::min(next_, last);
    next_ = current_ + 1;
    lastMove = {command_.get(), current_};
    return Type() != kEndOfCommand;
  }
  std::uint32_t GetPosition() const override { return current_; }
  void SetPosition(std::uint32_t position) override { next_ = position; }
  int Type() const override { return command_->At(current_).type; }
  int SubType() const override { return command_->At(current_).code; }
  double NumberValue() const override { return command_->At(current_).number; }
  std::string Text() const override { return command_->TokenText(current_); }

 private:
  std::shared_ptr<const Command> command_;
  std::uint32_t current_ = 0;
  std::uint32_t next_ = 0;
};

}  // namespace

std::unique_ptr<TokenSequenceBase> TokenSequenceOver(std::shared_ptr<const Command> command) {
  return std::make_unique<CommandTokens>(std::move(command));
}

std::size_t CursorTokenOf(const Command& command) {
  if (lastMove.command != &command) return 0;
  return std::min(lastMove.token, command.Size() - 1);
}

void ForgetCursors() { lastMove = {}; }

}  // namespace hostlib::syntax
