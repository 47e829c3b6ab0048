// Reads a codebook file's text fast. The open is one pass of simdjson's
// On-Demand parser over the top level, keeping of each field only its bytes'
// span and its name (checked, and indexed without regard to case, so a
// repeated name is refused at open), and of the set list its span (a save
// replaces just that: splice_writer.h) and its sets. A field is parsed from
// its bytes, and checked in full, when the dictionary is first asked for it;
// its faults are reported then. Unknown keys of a set are kept as the file's
// own bytes.
//
// Text the fast parser refuses (a fault, deep nesting, or a number it cannot
// hold, such as 123456789012345678901234567890) is read again by the general
// descriptor reader, which names the place of every fault.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/json_nesting.h"
#include "hostlib/data/codebook/json_spans.h"
#include "hostlib/files/env.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

// Where the set list is, or where it goes when the file has none.
struct SetsPlace {
  bool present = false;
  json_spans::Span value;    // the list's bytes, when present
  std::size_t insertAt = 0;  // after the top level's last value, when absent
  std::string indent;        // white space before the top level's keys
};

struct CodebookText {
  Dataset dataset;  // its dictionary reads from the text
  std::vector<VariableSet> sets;
  SetsPlace place;
  std::vector<json_spans::Member> topLevel;  // the top level's members
};

// The spare capacity the fast parser reads past the end of a text.
inline constexpr std::size_t kReadPadding = 64;

// The whole file in one read, with kReadPadding spare bytes; `identity`
// receives the identity of the very file read, and `source`, when given, its
// open descriptor. Throws DatasetError ("`path`: cannot be read: ...").
std::shared_ptr<std::string> ReadPaddedFile(const std::filesystem::path& path,
                                            files::FileIdentity& identity, files::Env& env,
                                            files::FileDescriptor* source = nullptr);

// A text without kReadPadding bytes of spare capacity is copied. Throws DatasetError
// naming the file, the place and the fault.
CodebookText ReadCodebookText(std::shared_ptr<const std::string> text, const std::string& file);

}  // namespace hostlib::data
