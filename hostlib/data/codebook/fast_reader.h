// Reads a codebook file's text fast: a validating parser (simdjson) yields
// only what the host interprets, and the byte span of the set list is kept
// so that a save can replace just that (splice_writer.h). Unknown keys of a
// set are kept as the file's own bytes.
//
// Text the fast parser refuses (a fault, deep nesting, or a number it cannot
// hold, such as 123456789012345678901234567890) is read again by the general
// descriptor reader, which names the place of every fault.
#pragma once

#include <cstddef>
#include <string>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/json_nesting.h"
#include "hostlib/data/codebook/json_spans.h"

namespace hostlib::data {

// Where the set list is, or where it goes when the file has none.
struct SetsPlace {
  bool present = false;
  json_spans::Span value;    // the list's bytes, when present
  std::size_t insertAt = 0;  // after the top level's last value, when absent
  std::string indent;        // white space before the top level's keys
};

struct CodebookText {
  DescriptorContents contents;
  SetsPlace place;
};

// `text` gains spare capacity (the fast parser reads past the end). Throws
// DatasetError naming the file, the place and the fault.
CodebookText ReadCodebookText(std::string& text, const std::string& file);

}  // namespace hostlib::data
