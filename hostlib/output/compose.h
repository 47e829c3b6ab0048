// Composition of output texts, kept in pieces for renderers that mark user
// data (HTML). ComposeText (host/output.h) is these pieces joined.
#pragma once

#include <string>
#include <vector>

#include "host/output.h"

namespace hostlib::output {

struct TextSegment {
  std::string text;
  bool fixed = true;  // the flag of the text this piece comes from

  friend bool operator==(const TextSegment&, const TextSegment&) = default;
};

// Adjacent pieces never share a flag; an empty text gives no pieces.
std::vector<TextSegment> ComposeSegments(const BpText& text);

}  // namespace hostlib::output
