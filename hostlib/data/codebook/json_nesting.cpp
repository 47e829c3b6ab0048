#include "hostlib/data/codebook/json_nesting.h"

#include <algorithm>
#include <vector>

namespace hostlib::data {
namespace {

struct Level {
  bool array;
  std::size_t index = 0;
  std::string key;
};

// A JSON pointer's escapes: "~" as "~0", "/" as "~1".
void AppendPointerToken(std::string& pointer, std::string_view token) {
  pointer += '/';
  for (const char c : token) {
    if (c == '~') {
      pointer += "~0";
    } else if (c == '/') {
      pointer += "~1";
    } else {
      pointer += c;
    }
  }
}

std::string PointerOf(const std::vector<Level>& levels) {
  std::string pointer;
  for (const Level& level : levels) {
    AppendPointerToken(pointer, level.array ? std::to_string(level.index) : level.key);
  }
  return pointer;
}

}  // namespace

std::optional<NestingFault> FindNestingFault(std::string_view text, std::size_t limit) {
  std::vector<Level> levels;
  std::string lastString;  // as written, escapes and all: enough to point
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      const std::size_t start = ++i;
      while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
      lastString.assign(text.substr(start, std::min(i, text.size()) - start));
    } else if (c == '[' || c == '{') {
      if (levels.size() == limit) return NestingFault{i, PointerOf(levels)};
      levels.push_back(Level{c == '[', 0, {}});
    } else if ((c == ']' || c == '}') && !levels.empty()) {
      levels.pop_back();
    } else if (c == ',' && !levels.empty() && levels.back().array) {
      ++levels.back().index;
    } else if (c == ':' && !levels.empty() && !levels.back().array) {
      levels.back().key = lastString;
    }
  }
  return std::nullopt;
}

}  // namespace hostlib::data
