#include "hostlib/syntax/command.h"

#include <utility>

#include "host/syntax.h"

namespace hostlib::syntax {

Command::Command(std::string text, std::vector<Token> tokens, std::vector<SourcePosition> positions,
                 SourceLines lines)
    : text_(std::move(text)),
      tokens_(std::move(tokens)),
      positions_(std::move(positions)),
      lines_(std::move(lines)) {
  if (tokens_.empty() || tokens_.back().type != TokenSequenceBase::kEndOfCommand) {
    Token end;
    end.offset = static_cast<std::uint32_t>(text_.size());
    tokens_.push_back(end);
  }
  positions_.resize(tokens_.size(), positions_.empty() ? SourcePosition{} : positions_.back());
}

std::string_view Command::SourceLine(int line) const {
  if (line < lines_.first || line - lines_.first >= static_cast<int>(lines_.lines.size())) {
    return {};
  }
  return lines_.lines[static_cast<std::size_t>(line - lines_.first)];
}

std::string Command::TokenText(std::size_t index) const {
  const Token& token = tokens_[index];
  if (token.type == TokenSequenceBase::kEndOfCommand) {
    return "end of command";
  }
  const std::string_view written = std::string_view(text_).substr(token.offset, token.length);
  if (token.type != TokenSequenceBase::kQuotedString || written.empty()) {
    return std::string(written);
  }
  const char quote = written.front();
  std::string_view inner = written.substr(1);
  // A string left open at the end of its line has no closing quote.
  if (!inner.empty() && inner.back() == quote) {
    std::size_t quotes = 0;
    for (auto it = inner.rbegin(); it != inner.rend() && *it == quote; ++it) {
      ++quotes;
    }
    if (quotes % 2 == 1) {
      inner.remove_suffix(1);
    }
  }
  std::string contents;
  contents.reserve(inner.size());
  for (std::size_t i = 0; i < inner.size(); ++i) {
    contents.push_back(inner[i]);
    if (inner[i] == quote && i + 1 < inner.size() && inner[i + 1] == quote) {
      ++i;
    }
  }
  return contents;
}

}  // namespace hostlib::syntax
