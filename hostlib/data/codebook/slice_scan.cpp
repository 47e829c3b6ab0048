#include "hostlib/data/codebook/slice_scan.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/json_nesting.h"

namespace hostlib::data {
namespace {

namespace spans = json_spans;
using Element = simdjson::dom::element;

// Where the walk is, in the grammar of the top level and its lists.
enum class State {
  kRoot,          // before the root's "{"
  kKeyOrEnd,      // after the root's "{"
  kKey,           // after a member's ","
  kColon,         // after a key
  kValue,         // after a key's ":"
  kInValue,       // within an object that is walked as a whole
  kAfterValue,    // after a member's value
  kElementOrEnd,  // after a top-level list's "["
  kElement,       // after an element's ","
  kInElement,     // within an element's brackets
  kAfterElement,  // after an element
  kEnd,           // after the root's "}"
};

enum class Key { kFields, kSets, kOther };

// +1 for a bracket that opens, -1 for one that closes.
constexpr std::array<std::int8_t, 256> kNesting = [] {
  std::array<std::int8_t, 256> nesting{};
  nesting['{'] = nesting['['] = 1;
  nesting['}'] = nesting[']'] = -1;
  return nesting;
}();

bool IsScalarStart(char c) {
  return kNesting[static_cast<unsigned char>(c)] == 0 && c != ',' && c != ':';
}

// The end of the value whose next token is at `next`.
std::size_t EndBefore(const char* text, std::size_t next) {
  while (next > 0 && (text[next - 1] == ' ' || text[next - 1] == '\n' || text[next - 1] == '\r' ||
                      text[next - 1] == '\t')) {
    --next;
  }
  return next;
}

// The place of the unescaped quote that opens the string left open at
// `end`; 0 for none.
std::size_t LastQuote(const char* text, std::size_t end) {
  while (end > 0) {
    const void* found = ::memrchr(text, '"', end);
    if (found == nullptr) return 0;
    const auto quote = static_cast<std::size_t>(static_cast<const char*>(found) - text);
    std::size_t slashes = 0;
    while (slashes < quote && text[quote - 1 - slashes] == '\\') ++slashes;
    if (slashes % 2 == 0) return quote;
    end = quote;
  }
  return 0;
}

class SliceScanner {
 public:
  SliceScanner(const SourceFile& source, SliceScan& scan, SetSink* sets)
      : source_(source), scan_(scan), sets_(sets) {}

  bool Run(std::size_t sliceSize) {
    std::size_t capacity = std::min(sliceSize, std::max<std::size_t>(source_.Size(), 1));
    if (!Allocate(capacity)) return false;
    while (resume_ < source_.Size()) {
      const std::size_t before = resume_;
      bool atEnd = false;
      if (!ScanSlice(capacity, atEnd)) return false;
      if (resume_ > before) continue;
      // Nothing in the slice was complete: a value larger than the slice.
      if (atEnd || !Allocate(capacity *= 2)) return false;
    }
    if (state_ != State::kEnd) return false;
    if (scan_.anyMember) scan_.firstKeyIndent = IndentBefore(firstKeyBegin_);
    if (scan_.setsPresent) scan_.setsKeyIndent = IndentBefore(setsKeyBegin_);
    return true;
  }

 private:
  bool Allocate(std::size_t capacity) {
    // One spare byte before the text, for the "[" that makes a slice's
    // elements an array, and the padding the parser reads past the end.
    buffer_.resize(1 + capacity + simdjson::SIMDJSON_PADDING + 1);
    return cutter_.allocate(capacity, 1) == simdjson::SUCCESS &&
           parser_.allocate(capacity + 2, kMaxJsonNesting - 2) == simdjson::SUCCESS;
  }

  // Walks the slice from resume_; afterwards resume_ is past its last
  // complete part.
  bool ScanSlice(std::size_t capacity, bool& atEnd) {
    char* const text = buffer_.data() + 1;
    base_ = resume_;
    const std::size_t size = source_.ReadInto(text, capacity, base_);
    atEnd = size < capacity || base_ + size >= source_.Size();
    std::size_t cut = atEnd ? size : CutOf(text, size);
    simdjson::error_code error = Stage1(text, cut);
    if (error == simdjson::UNCLOSED_STRING && !atEnd) {
      cut = LastQuote(text, cut);
      error = Stage1(text, cut);
    }
    if (error != simdjson::SUCCESS && error != simdjson::EMPTY) return false;
    const std::size_t count =
        error == simdjson::EMPTY ? 0 : cutter_.implementation->n_structural_indexes;
    return Walk(text, cut, count);
  }

  // After the slice's last line end, where no string of valid JSON is open;
  // else before its last character, which may be cut.
  static std::size_t CutOf(const char* text, std::size_t size) {
    if (const void* newline = ::memrchr(text, '\n', size)) {
      return static_cast<std::size_t>(static_cast<const char*>(newline) - text) + 1;
    }
    std::size_t cut = size == 0 ? 0 : size - 1;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return cut;
  }

  simdjson::error_code Stage1(const char* text, std::size_t size) {
    if (size == 0) return simdjson::EMPTY;
    return cutter_.implementation->stage1(reinterpret_cast<const std::uint8_t*>(text), size,
                                          simdjson::stage1_mode::regular);
  }

  bool Walk(char* text, std::size_t cut, std::size_t count) {
    const std::uint32_t* const structurals = cutter_.implementation->structural_indexes.get();
    State state = state_;
    std::size_t committed = count;  // the structural last committed; count for none
    const auto commit = [&](std::size_t i) {
      committed = i;
      state_ = state;
    };
    std::size_t nested = 0;
    bool scalar = false;
    std::size_t elementBegin = 0;
    std::size_t elementEnd = 0;
    for (std::size_t i = 0; i < count; ++i) {
      std::size_t at = structurals[i];
      char c = text[at];
      switch (state) {
        case State::kRoot:
          if (c != '{') return false;
          scan_.rootBegin = base_ + at;
          state = State::kKeyOrEnd;
          commit(i);
          break;
        case State::kKeyOrEnd:
          if (c == '}') {
            state = State::kEnd;
            commit(i);
            break;
          }
          [[fallthrough]];
        case State::kKey:
          if (c != '"' || !ReadKey(text, at, cut)) return false;
          state = State::kColon;
          break;
        case State::kColon:
          if (c != ':') return false;
          state = State::kValue;
          break;
        case State::kValue:
          member_.value.begin = base_ + at;
          inList_ = c == '[';
          if (key_ == Key::kSets) {
            scan_.setsAnArray = inList_;
            if (sets_ != nullptr && inList_) sets_->BeginList();
          }
          if (key_ == Key::kFields) {
            scan_.fieldsPresent = true;
            scan_.fieldsAnArray = inList_;
            scan_.fields.clear();
            scan_.names.clear();
          }
          if (inList_) {
            state = State::kElementOrEnd;
            commit(i);
          } else if (c == '{') {
            nested = 1;
            state = State::kInValue;
          } else if (IsScalarStart(c)) {
            scalar = true;
            state = State::kAfterValue;
          } else {
            return false;
          }
          break;
        case State::kInValue:
        case State::kInElement:
          for (;;) {
            nested += kNesting[static_cast<unsigned char>(c)];
            if (nested == 0 || ++i == count) break;
            at = structurals[i];
            c = text[at];
          }
          if (nested != 0) break;  // the slice ends within the value
          if (state == State::kInValue) {
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
          } else {
            elementEnd = at + 1;
            state = State::kAfterElement;
          }
          break;
        case State::kAfterValue:
          if (c != ',' && c != '}') return false;
          if (scalar) member_.value.end = base_ + EndBefore(text, at);
          scalar = false;
          if (!inList_ && !ValueIsJson(text)) return false;
          FinishMember();
          state = c == ',' ? State::kKey : State::kEnd;
          commit(i);
          break;
        case State::kElementOrEnd:
          if (c == ']') {
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
            commit(i);
            break;
          }
          [[fallthrough]];
        case State::kElement:
          elementBegin = at;
          if (kNesting[static_cast<unsigned char>(c)] > 0) {
            nested = 1;
            state = State::kInElement;
          } else if (IsScalarStart(c)) {
            scalar = true;
            state = State::kAfterElement;
          } else {
            return false;
          }
          break;
        case State::kAfterElement:
          if (c != ',' && c != ']') return false;
          if (scalar) elementEnd = EndBefore(text, at);
          scalar = false;
          batch_.emplace_back(elementBegin, elementEnd);
          if (c == ']') {
            if (!FlushBatch(text)) return false;
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
          } else {
            state = State::kElement;
          }
          commit(i);
          break;
        case State::kEnd:
          return false;  // more than white space after the root
      }
    }
    if (!FlushBatch(text)) return false;
    // Past the last structural committed; past the whole slice when no
    // structural follows it (only white space does).
    if (count == 0 || committed == count - 1) {
      resume_ = base_ + cut;
    } else if (committed < count) {
      resume_ = base_ + structurals[committed] + 1;
    }
    return true;
  }

  bool ReadKey(const char* text, std::size_t at, std::size_t cut) {
    const char* const begin = text + at + 1;
    const auto* quote = static_cast<const char*>(std::memchr(begin, '"', cut - at - 1));
    if (quote == nullptr) return false;
    // A key with an escape is left to the careful reader.
    if (std::memchr(begin, '\\', static_cast<std::size_t>(quote - begin)) != nullptr) return false;
    const std::string_view key(begin, static_cast<std::size_t>(quote - begin));
    member_.key = {base_ + at, base_ + static_cast<std::size_t>(quote - text) + 1};
    key_ = key == kCodebookFieldsKey ? Key::kFields
           : key == kCodebookSetsKey ? Key::kSets
                                     : Key::kOther;
    if (!scan_.anyMember) firstKeyBegin_ = member_.key.begin;
    scan_.anyMember = true;
    if (key_ == Key::kSets) {
      scan_.setsPresent = true;
      setsKeyBegin_ = member_.key.begin;
    }
    return true;
  }

  // The white space that begins the line of the key at `place`; "" for a
  // key after other tokens on its line (or after an indent beyond reason).
  std::string IndentBefore(std::size_t place) const {
    constexpr std::size_t kLongestIndent = 4096;
    const std::size_t begin = place > kLongestIndent ? place - kLongestIndent : 0;
    const std::string before = source_.Read({begin, place});
    const std::string indent = spans::IndentBefore(before, before.size());
    return begin > 0 && indent.size() == before.size() ? std::string() : indent;
  }

  bool ValueIsJson(const char* text) {
    Element element;
    return parser_
               .parse(text + (member_.value.begin - base_), member_.value.end - member_.value.begin,
                      false)
               .get(element) == simdjson::SUCCESS;
  }

  void FinishMember() {
    scan_.topLevel.push_back(member_);
    scan_.lastValueEnd = member_.value.end;
    if (key_ == Key::kSets) scan_.setsValue = member_.value;
  }

  // The elements the slice holds of a list, parsed as one array.
  bool FlushBatch(char* text) {
    if (batch_.empty()) return true;
    const bool parsed = ParseBatch(text);
    batch_.clear();
    return parsed;
  }

  bool ParseBatch(char* text) {
    char* const open = text + batch_.front().first - 1;
    char* const close = text + batch_.back().second;
    const char opened = *open;
    const char closed = *close;
    *open = '[';
    *close = ']';
    Element element;
    const bool parsed =
        parser_.parse(open, static_cast<std::size_t>(close - open) + 1, false).get(element) ==
        simdjson::SUCCESS;
    *open = opened;
    *close = closed;
    if (!parsed) return false;
    if (key_ == Key::kOther || (key_ == Key::kSets && sets_ == nullptr)) return true;
    const simdjson::dom::array elements(element);
    if (elements.size() != batch_.size()) return false;
    std::size_t i = 0;
    for (const Element each : elements) {
      const auto [begin, end] = batch_[i++];
      if (key_ == Key::kFields) {
        AddField(each, begin, end);
      } else {
        sets_->Take(each, std::string_view(text + begin, end - begin));
      }
    }
    return true;
  }

  void AddField(const Element& field, std::size_t begin, std::size_t end) {
    FieldEntry entry{base_ + begin, base_ + end, scan_.names.size(), 0};
    const bool isObject = field.type() == simdjson::dom::element_type::OBJECT;
    bool hasName = false;
    std::optional<std::string_view> name;
    if (isObject) {
      // A repeated key counts as its last value.
      for (const auto member : simdjson::dom::object(field)) {
        if (member.key != "name") continue;
        hasName = true;
        name.reset();
        if (member.value.type() == simdjson::dom::element_type::STRING) {
          name = std::string_view(member.value);
        }
      }
    }
    const bool faulty = !name || name->empty() || name->find('\0') != std::string_view::npos;
    if (faulty && !scan_.fieldFault) {
      scan_.fieldFault = FieldFault{scan_.fields.size(), isObject, hasName,
                                    name ? std::optional<std::string>(*name) : std::nullopt};
    }
    if (name) {
      scan_.names.append(*name);
      entry.nameSize = name->size();
    }
    scan_.fields.push_back(entry);
  }

  const SourceFile& source_;
  SliceScan& scan_;
  SetSink* sets_;
  std::string buffer_;
  simdjson::dom::parser cutter_;  // finds a slice's structure
  simdjson::dom::parser parser_;  // parses its values in full
  // Where the walk resumes: the place past the last complete part, and the
  // state there.
  std::size_t resume_ = 0;
  State state_ = State::kRoot;
  std::size_t base_ = 0;  // the place of the slice in the file
  // The member being walked; a list may span slices.
  spans::Member member_;
  Key key_ = Key::kOther;
  bool inList_ = false;
  std::size_t firstKeyBegin_ = 0;
  std::size_t setsKeyBegin_ = 0;
  std::vector<std::pair<std::size_t, std::size_t>> batch_;  // complete elements in the slice
};

}  // namespace

bool ScanInSlices(const SourceFile& source, SliceScan& scan, SetSink* sets, std::size_t sliceSize) {
  return SliceScanner(source, scan, sets).Run(std::max<std::size_t>(sliceSize, 1));
}

}  // namespace hostlib::data
