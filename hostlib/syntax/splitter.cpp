#include "hostlib/syntax/splitter.h"

#include <utility>

#include "hostlib/strings/unicode.h"

namespace hostlib::syntax {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The first non-blank character: its byte offset and column.
std::pair<std::size_t, int> FirstNonBlank(std::string_view line) {
  int column = 1;
  for (std::size_t offset = 0; offset < line.size(); ++column) {
    const strings::Decoded decoded = strings::DecodeAt(line, offset);
    if (!decoded.valid || !IsBlank(decoded.codePoint)) {
      return {offset, column};
    }
    offset += decoded.length;
  }
  return {line.size(), column};
}

}  // namespace

CommandSplitter::CommandSplitter(int firstLine) : nextLine_(firstLine) {}

std::optional<SplitCommand> CommandSplitter::AddLine(std::string_view line) {
  const int lineNumber = nextLine_++;
  if (firstCall_ && line.starts_with(kByteOrderMark)) {
    line.remove_prefix(kByteOrderMark.size());
  }
  firstCall_ = false;
  if (line.ends_with('\r')) {
    line.remove_suffix(1);
  }

  const auto [firstOffset, firstColumn] = FirstNonBlank(line);
  const bool comment = open_ ? comment_ : line.substr(firstOffset).starts_with('*');
  // Quotes mean nothing in a comment: "* it's done." ends it.
  const LineEnd end = ScanLineEnd(line, !comment);

  if (end.blank) {
    if (open_) {
      return Close();
    }
    return std::nullopt;
  }
  if (!open_) {
    // A lone terminator ends nothing and begins nothing.
    if (end.terminated && firstOffset == end.terminator) {
      return std::nullopt;
    }
    open_ = true;
    comment_ = comment;
    start_ = {lineNumber, firstColumn};
  }
  Append(line, lineNumber, end);
  if (end.terminated) {
    return Close();
  }
  return std::nullopt;
}

std::optional<SplitCommand> CommandSplitter::Finish() {
  if (!open_) {
    return std::nullopt;
  }
  return Close();
}

void CommandSplitter::Append(std::string_view line, int lineNumber, const LineEnd& end) {
  if (comment_) {
    return;
  }
  if (lines_.lines.empty()) lines_.first = lineNumber;
  lines_.lines.emplace_back(line);
  if (!text_.empty()) {
    text_.push_back('\n');
  }
  const auto offsetBase = static_cast<std::uint32_t>(text_.size());
  const std::string_view body = end.terminated ? line.substr(0, end.terminator) : line;
  text_.append(body);
  if (end.terminated) {
    text_.append(line.substr(end.terminator + 1));
  }
  LexLine(body, lineNumber, offsetBase, tokens_, positions_, errors_);
  endPosition_ = {lineNumber, end.terminated ? end.terminatorColumn
                                             : static_cast<int>(strings::CharacterCount(line)) + 1};
}

SplitCommand CommandSplitter::Close() {
  open_ = false;
  SplitCommand result;
  result.start = start_;
  result.comment = comment_;
  if (!comment_) {
    Token end;
    end.offset = static_cast<std::uint32_t>(text_.size());
    tokens_.push_back(end);
    positions_.push_back(endPosition_);
    if (!errors_.empty()) {
      result.error = errors_.front();
    }
    result.command = std::make_shared<const Command>(std::move(text_), std::move(tokens_),
                                                     std::move(positions_), std::move(lines_));
  }
  text_.clear();
  lines_ = {};
  tokens_.clear();
  positions_.clear();
  errors_.clear();
  return result;
}

namespace {

// Calls `line` for each line of the input, without its line end.
template <typename Visit>
void ForEachLine(std::string_view input, Visit visit) {
  while (!input.empty()) {
    const std::size_t newline = input.find('\n');
    visit(input.substr(0, newline));
    if (newline == std::string_view::npos) {
      break;
    }
    input.remove_prefix(newline + 1);
  }
}

}  // namespace

std::vector<SplitCommand> SplitCommands(std::string_view input) {
  std::vector<SplitCommand> commands;
  CommandSplitter splitter;
  ForEachLine(input, [&](std::string_view line) {
    if (auto command = splitter.AddLine(line)) {
      commands.push_back(std::move(*command));
    }
  });
  if (auto command = splitter.Finish()) {
    commands.push_back(std::move(*command));
  }
  return commands;
}

bool IsCompleteCommand(std::string_view lines) {
  CommandSplitter splitter;
  bool ended = false;
  ForEachLine(lines, [&](std::string_view line) { ended = splitter.AddLine(line).has_value(); });
  return ended && !splitter.InCommand();
}

}  // namespace hostlib::syntax
