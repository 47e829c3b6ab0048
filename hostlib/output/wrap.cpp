#include "hostlib/output/wrap.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hostlib/strings/unicode.h"

namespace hostlib::output {
namespace {

// The pieces of a line so far; the first may take `width` columns, later
// ones `width - indent` (at least one).
class PieceList {
 public:
  PieceList(int width, int indent) : width_(width), later_(std::max(width - indent, 1)) {}

  int Limit() const { return pieces_.empty() ? width_ : later_; }

  void Append(std::string_view text, int width) {
    current_ += text;
    currentWidth_ += width;
  }
  int CurrentWidth() const { return currentWidth_; }
  bool CurrentEmpty() const { return current_.empty(); }

  void Flush() {
    if (current_.empty()) return;
    pieces_.push_back(std::move(current_));
    current_.clear();
    currentWidth_ = 0;
  }

  std::vector<std::string> Take() {
    Flush();
    if (pieces_.empty()) pieces_.emplace_back();
    return std::move(pieces_);
  }

 private:
  int width_;
  int later_;
  std::vector<std::string> pieces_;
  std::string current_;
  int currentWidth_ = 0;
};

// A word wider than a line, broken between characters; its last piece stays
// open for the words after it.
void BreakWord(std::string_view word, PieceList& pieces) {
  for (std::size_t offset = 0; offset < word.size();) {
    const std::size_t length = std::max<std::size_t>(strings::DecodeAt(word, offset).length, 1);
    const std::string_view character = word.substr(offset, length);
    const int characterWidth = strings::DisplayWidth(character);
    if (pieces.CurrentWidth() + characterWidth > pieces.Limit() && pieces.CurrentWidth() > 0 &&
        characterWidth > 0) {
      pieces.Flush();
    }
    pieces.Append(character, characterWidth);
    offset += length;
  }
}

// A column's width under a common cap: its natural width, cut to the cap,
// never below its floor.
int CappedWidth(int natural, int floor, int cap) {
  return std::max(std::min(floor, natural), std::min(natural, cap));
}

int CappedSum(const std::vector<int>& natural, const std::vector<int>& floors, int cap) {
  int sum = 0;
  for (std::size_t c = 0; c < natural.size(); ++c) sum += CappedWidth(natural[c], floors[c], cap);
  return sum;
}

}  // namespace

std::vector<std::string> WrapLine(std::string_view line, int width, int indent) {
  if (width <= 0 || strings::DisplayWidth(line) <= width) return {std::string(line)};
  PieceList pieces(width, indent);
  std::size_t start = 0;
  while (start < line.size()) {
    std::size_t end = line.find(' ', start);
    if (end == std::string_view::npos) end = line.size();
    const std::string_view word = line.substr(start, end - start);
    const int wordWidth = strings::DisplayWidth(word);
    if (!pieces.CurrentEmpty() && pieces.CurrentWidth() + 1 + wordWidth <= pieces.Limit()) {
      pieces.Append(" ", 1);
      pieces.Append(word, wordWidth);
    } else {
      pieces.Flush();
      if (wordWidth <= pieces.Limit()) {
        pieces.Append(word, wordWidth);
      } else {
        BreakWord(word, pieces);
      }
    }
    start = end + 1;
  }
  return pieces.Take();
}

std::vector<int> FitColumns(const std::vector<int>& natural, int budget,
                            const std::vector<int>& floors) {
  const int widest = natural.empty() ? 0 : *std::max_element(natural.begin(), natural.end());
  if (CappedSum(natural, floors, widest) <= budget) return natural;
  // The largest cap that fits, found by halving; below it only floors.
  int low = 0;
  int high = widest;
  while (low < high) {
    const int middle = low + (high - low + 1) / 2;
    if (CappedSum(natural, floors, middle) <= budget) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  std::vector<int> widths(natural.size());
  for (std::size_t c = 0; c < natural.size(); ++c) {
    widths[c] = CappedWidth(natural[c], floors[c], low);
  }
  // What the cap leaves goes one column at a time to the columns it cut.
  int left = budget - CappedSum(natural, floors, low);
  for (std::size_t c = 0; c < natural.size() && left > 0; ++c) {
    if (natural[c] > widths[c] && widths[c] == low) {
      ++widths[c];
      --left;
    }
  }
  return widths;
}

}  // namespace hostlib::output
