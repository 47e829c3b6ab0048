// Composition of output texts, kept in pieces for renderers that mark user
// data (HTML). ComposeText (host/output.h) is these pieces joined.
#pragma once

#include <string>
#include <vector>

#include "host/output.h"

namespace hostlib::output {

struct TextSegment {
  std::string text;
  bool fixed = true;       // the flag of the text this piece comes from
  bool lineBreak = false;  // a line break of a format (only inside ComposeLines)

  friend bool operator==(const TextSegment&, const TextSegment&) = default;
};

// Adjacent pieces never share a flag; an empty text gives no pieces.
std::vector<TextSegment> ComposeSegments(const BpText& text);

// The same pieces split into the lines a format's line breaks make (the
// entries of a list, such as the members of a set); a line feed inside an
// item's own text stays inside its line. Always at least one line.
std::vector<std::vector<TextSegment>> ComposeLines(const BpText& text);

}  // namespace hostlib::output
