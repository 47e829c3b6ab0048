// The open's pass over a codebook file, in slices of about a megabyte read
// into a few buffers: memory stays small and warm whatever the file's size.
//
// Each slice is cut where no string is open (after its last line end, else
// before the quote of the string it would cut) and simdjson's first stage
// finds its structure. A walk of that structure finds where each top-level
// member and each element of a top-level list begins and ends. Then
// simdjson's second stage parses every value in full, from the structure
// the first found, so the whole text is checked as JSON. Of each field the
// walk keeps its bytes' place and its name; each set goes, parsed, to a
// SetSink.
//
// On a file of several slices the parsing is shared with a second thread:
// the walk hands each slice over, with its elements' places, and whichever
// thread is free parses them. What they find is gathered in the file's
// order; a slice is read into again once its elements are.
//
// What the walk does not expect (a key with an escape, a root that is not
// an object, text the parser refuses) ends the pass with no result: the
// caller then reads the file whole, which names the fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <simdjson.h>

#include "hostlib/data/codebook/json_spans.h"
#include "hostlib/data/codebook/source_file.h"
#include "hostlib/data/dataset.h"

namespace hostlib::data {

// A field as the open found it: its bytes' place in the file and its name.
// A million fields make a million of these: 24 bytes each, where a field
// or all names together past 4 GB end the scan (the caller reads the file
// whole then).
struct FieldEntry {
  std::uint64_t begin = 0;
  std::uint32_t size = 0;       // of its bytes
  std::uint32_t nameBegin = 0;  // in SliceScan::names
  std::uint32_t nameSize = 0;
  std::uint32_t nameHash = 0;  // name_index.h

  std::uint64_t End() const { return begin + size; }
};

// The first field the open refuses: one that is no object, or whose name is
// missing, no string, empty or holds a NUL.
struct FieldFault {
  std::size_t index = 0;
  bool isObject = false;
  bool hasName = false;
  std::optional<std::string> name;  // the last "name", when a string
};

struct SliceScan {
  bool anyMember = false;
  std::size_t rootBegin = 0;  // the root's "{"
  std::string firstKeyIndent;
  std::size_t lastValueEnd = 0;  // of the top level's last member
  std::vector<json_spans::Member> topLevel;

  bool fieldsPresent = false;
  bool fieldsAnArray = false;
  std::vector<FieldEntry> fields;  // of the last list of fields
  std::string names;               // the fields' names, one after another
  std::optional<FieldFault> fieldFault;

  bool setsPresent = false;  // the last set list
  bool setsAnArray = false;
  std::string setsKeyIndent;
  json_spans::Span setsValue;

  std::string_view NameOf(const FieldEntry& field) const {
    return std::string_view(names).substr(field.nameBegin, field.nameSize);
  }
};

// A set read from an element of the set list, or the fault that stopped it.
struct SetElement {
  std::optional<VariableSet> set;
  std::exception_ptr fault;
};

// Receives the sets of the top level's set list.
class SetSink {
 public:
  virtual ~SetSink() = default;
  // The set at `index` of the list, from its element and the element's
  // bytes. Called on any thread, and for elements in any order.
  virtual SetElement Read(const simdjson::dom::element& set, std::string_view bytes,
                          std::size_t index) const = 0;
  // In the file's order: a set list begins (a later one replaces an
  // earlier), and its sets as read.
  virtual void BeginList() = 0;
  virtual void Add(SetElement set) = 0;
};

inline constexpr std::size_t kSliceSize = std::size_t{1} << 20;

// False where the text is no JSON object the walk can follow; the scan then
// holds nothing of use. Throws DatasetError when the file cannot be read.
// A slice grows past `sliceSize` only to hold a value that does not fit.
bool ScanInSlices(const SourceFile& source, SliceScan& scan, SetSink* sets = nullptr,
                  std::size_t sliceSize = kSliceSize);

}  // namespace hostlib::data
