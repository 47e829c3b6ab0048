#include "hostlib/output/wrap.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "hostlib/strings/unicode.h"

namespace hostlib::output {
namespace {

// Pieces of a word wider than `width`, each a run of whole characters.
void BreakWord(std::string_view word, int width, std::vector<std::string>& pieces) {
  std::string piece;
  int pieceWidth = 0;
  for (std::size_t offset = 0; offset < word.size();) {
    const std::size_t length = std::max<std::size_t>(strings::DecodeAt(word, offset).length, 1);
    const std::string_view character = word.substr(offset, length);
    const int characterWidth = strings::DisplayWidth(character);
    if (pieceWidth + characterWidth > width && pieceWidth > 0 && characterWidth > 0) {
      pieces.push_back(std::move(piece));
      piece.clear();
      pieceWidth = 0;
    }
    piece += character;
    pieceWidth += characterWidth;
    offset += length;
  }
  if (!piece.empty()) pieces.push_back(std::move(piece));
}

int CappedSum(const std::vector<int>& natural, int cap) {
  return std::accumulate(natural.begin(), natural.end(), 0,
                         [cap](int sum, int width) { return sum + std::min(width, cap); });
}

}  // namespace

std::vector<std::string> WrapLine(std::string_view line, int width) {
  if (width <= 0 || strings::DisplayWidth(line) <= width) return {std::string(line)};
  std::vector<std::string> pieces;
  std::string current;
  int currentWidth = 0;
  auto flush = [&] {
    if (currentWidth > 0 || !current.empty()) pieces.push_back(std::move(current));
    current.clear();
    currentWidth = 0;
  };
  std::size_t start = 0;
  while (start < line.size()) {
    std::size_t end = line.find(' ', start);
    if (end == std::string_view::npos) end = line.size();
    const std::string_view word = line.substr(start, end - start);
    const int wordWidth = strings::DisplayWidth(word);
    if (currentWidth > 0 && currentWidth + 1 + wordWidth <= width) {
      current += ' ';
      current += word;
      currentWidth += 1 + wordWidth;
    } else if (wordWidth <= width) {
      flush();
      current = std::string(word);
      currentWidth = wordWidth;
    } else {
      flush();
      BreakWord(word, width, pieces);
      if (!pieces.empty()) {
        current = std::move(pieces.back());
        currentWidth = strings::DisplayWidth(current);
        pieces.pop_back();
      }
    }
    start = end + 1;
  }
  flush();
  if (pieces.empty()) pieces.emplace_back();
  return pieces;
}

std::vector<int> FitColumns(const std::vector<int>& natural, int budget, int floor) {
  const int widest = natural.empty() ? 0 : *std::max_element(natural.begin(), natural.end());
  if (CappedSum(natural, widest) <= budget) return natural;
  // The largest cap that fits, found by halving; never below the floor.
  int low = std::min(floor, widest);
  int high = widest;
  while (low < high) {
    const int middle = low + (high - low + 1) / 2;
    if (CappedSum(natural, middle) <= budget) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  std::vector<int> widths(natural.size());
  for (std::size_t c = 0; c < natural.size(); ++c) widths[c] = std::min(natural[c], low);
  // What the cap leaves goes one column at a time to the columns it cut.
  int left = budget - CappedSum(natural, low);
  for (std::size_t c = 0; c < natural.size() && left > 0; ++c) {
    if (natural[c] > widths[c]) {
      ++widths[c];
      --left;
    }
  }
  return widths;
}

}  // namespace hostlib::output
