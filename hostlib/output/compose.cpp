#include "hostlib/output/compose.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace hostlib::output {
namespace {

// Joins adjacent pieces of one flag; with `markBreaks`, a format's line
// break stays a piece of its own, marked.
class SegmentWriter {
 public:
  explicit SegmentWriter(bool markBreaks) : markBreaks_(markBreaks) {}

  void Append(std::string_view text, bool fixed) {
    if (text.empty()) return;
    if (!segments_.empty() && segments_.back().fixed == fixed && !segments_.back().lineBreak) {
      segments_.back().text += text;
    } else {
      segments_.push_back({std::string(text), fixed, false});
    }
  }
  void AppendBreak(bool fixed) {
    if (markBreaks_) {
      segments_.push_back({"\n", fixed, true});
    } else {
      Append("\n", fixed);
    }
  }
  void Append(const std::vector<TextSegment>& segments) {
    for (const TextSegment& segment : segments) {
      if (segment.lineBreak) {
        AppendBreak(segment.fixed);
      } else {
        Append(segment.text, segment.fixed);
      }
    }
  }
  std::vector<TextSegment> Take() { return std::move(segments_); }

 private:
  bool markBreaks_;
  std::vector<TextSegment> segments_;
};

// "[A:B:C]n", parsed at a "[".
struct Repeat {
  std::string_view prefix;  // A: once, before the first item
  std::string_view middle;  // B: every item but the last
  std::string_view last;    // C: the last item
  int sublist = 0;
  std::size_t length = 0;  // bytes of the whole construct
};

std::optional<Repeat> ParseRepeat(std::string_view format, std::size_t open) {
  const std::size_t close = format.find(']', open);
  if (close == std::string_view::npos) return std::nullopt;
  std::size_t end = close + 1;
  int sublist = 0;
  while (end < format.size() && format[end] >= '0' && format[end] <= '9' && end - close <= 4) {
    sublist = sublist * 10 + (format[end] - '0');
    ++end;
  }
  if (sublist == 0) return std::nullopt;  // sublists count from 1
  const std::string_view body = format.substr(open + 1, close - open - 1);
  const std::size_t first = body.find(':');
  if (first == std::string_view::npos) return std::nullopt;
  const std::size_t second = body.find(':', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  return Repeat{body.substr(0, first), body.substr(first + 1, second - first - 1),
                body.substr(second + 1), sublist, end - open};
}

// Literal format text: a carriage return (alone or before a line feed) is a
// line break.
void AppendLiteral(SegmentWriter& out, std::string_view text, bool fixed) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') continue;
    out.Append(text.substr(start, i - start), fixed);
    out.AppendBreak(fixed);
    if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    start = i + 1;
  }
  out.Append(text.substr(start), fixed);
}

// One piece of a repeat with "^1" and "$1" standing for the item.
void AppendPiece(SegmentWriter& out, std::string_view piece, bool fixed,
                 const std::vector<TextSegment>& item) {
  std::size_t start = 0;
  for (std::size_t i = 0; i + 1 < piece.size(); ++i) {
    if ((piece[i] == '^' || piece[i] == '$') && piece[i + 1] == '1') {
      AppendLiteral(out, piece.substr(start, i - start), fixed);
      out.Append(item);
      start = i + 2;
      ++i;
    }
  }
  AppendLiteral(out, piece.substr(start), fixed);
}

}  // namespace

namespace {

std::vector<TextSegment> Compose(const BpText& text, bool markBreaks) {
  SegmentWriter out(markBreaks);
  if (!text.composite) {
    out.Append(text.text, text.fixed);
    return out.Take();
  }

  const std::size_t count = text.items.size();
  auto sublistOf = [&](std::size_t item) {
    return item < text.itemSublist.size() ? text.itemSublist[item] : 0;
  };
  std::vector<std::size_t> topLevel;
  for (std::size_t item = 0; item < count; ++item) {
    if (sublistOf(item) == 0) topLevel.push_back(item);
  }
  std::vector<bool> consumed(count, false);

  const std::string_view format = text.text;
  std::size_t start = 0;
  auto flushLiteral = [&](std::size_t upTo) {
    AppendLiteral(out, format.substr(start, upTo - start), text.fixed);
  };
  for (std::size_t i = 0; i < format.size();) {
    if (format[i] == '^' && i + 1 < format.size() &&
        (format[i + 1] == '1' || format[i + 1] == '2')) {
      const auto slot = static_cast<std::size_t>(format[i + 1] - '1');
      if (slot < topLevel.size()) {
        flushLiteral(i);
        out.Append(Compose(text.items[topLevel[slot]], markBreaks));
        consumed[topLevel[slot]] = true;
        start = i + 2;
      }
      i += 2;
      continue;
    }
    if (format[i] == '[') {
      if (const std::optional<Repeat> repeat = ParseRepeat(format, i)) {
        flushLiteral(i);
        std::vector<std::size_t> members;
        for (std::size_t item = 0; item < count; ++item) {
          if (sublistOf(item) == repeat->sublist) members.push_back(item);
        }
        if (!members.empty()) AppendLiteral(out, repeat->prefix, text.fixed);
        for (std::size_t k = 0; k < members.size(); ++k) {
          const bool isLast = k + 1 == members.size();
          AppendPiece(out, isLast ? repeat->last : repeat->middle, text.fixed,
                      Compose(text.items[members[k]], markBreaks));
          consumed[members[k]] = true;
        }
        i += repeat->length;
        start = i;
        continue;
      }
    }
    ++i;
  }
  flushLiteral(format.size());

  for (std::size_t item = 0; item < count; ++item) {
    if (consumed[item]) continue;
    out.Append(" ", text.fixed);
    out.Append(Compose(text.items[item], markBreaks));
  }
  return out.Take();
}

}  // namespace

std::vector<TextSegment> ComposeSegments(const BpText& text) { return Compose(text, false); }

std::vector<std::vector<TextSegment>> ComposeLines(const BpText& text) {
  std::vector<std::vector<TextSegment>> lines(1);
  for (TextSegment& segment : Compose(text, true)) {
    if (segment.lineBreak) {
      lines.emplace_back();
    } else {
      lines.back().push_back(std::move(segment));
    }
  }
  return lines;
}

}  // namespace hostlib::output

std::string ComposeText(const BpText& text) {
  std::string composed;
  for (const hostlib::output::TextSegment& segment : hostlib::output::ComposeSegments(text)) {
    composed += segment.text;
  }
  return composed;
}
