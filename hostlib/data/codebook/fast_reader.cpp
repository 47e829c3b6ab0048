#include "hostlib/data/codebook/fast_reader.h"
#include "hostlib/data/codebook/top_level_members.h"

#include <simdjson.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <algorithm>
#include <array>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace hostlib::data {
namespace {

using Element = simdjson::dom::element;
using Type = simdjson::dom::element_type;
namespace spans = json_spans;

constexpr int kDefaultStringWidth = 255;
constexpr int kMaxStringWidth = 32767;

constexpr std::array<std::string_view, 16> kFieldTypes = {
    "string", "number",   "integer", "boolean",   "object",   "array",    "list",    "date",
    "time",   "datetime", "year",    "yearmonth", "duration", "geopoint", "geojson", "any"};

std::string Quoted(std::string_view text) {
  using Json = nlohmann::ordered_json;
  return Json(std::string(text)).dump(-1, ' ', false, Json::error_handler_t::replace);
}

// ---- the fast path: a parsed document -----------------------------------

// A JSON pointer as a chain on the stack, spelled out only for a message.
struct Place {
  const Place* parent = nullptr;
  std::string_view key;
  std::size_t index = 0;

  Place Child(std::string_view name) const { return {this, name, 0}; }
  Place Child(std::size_t position) const { return {this, {}, position}; }
  std::string Text() const {
    std::vector<const Place*> chain;
    for (const Place* place = this; place->parent != nullptr; place = place->parent) {
      chain.push_back(place);
    }
    std::string text;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      text += '/';
      text += (*it)->key.empty() ? std::to_string((*it)->index) : std::string((*it)->key);
    }
    return text;
  }
};

// The members the host reads of one object, each the last of its name (a
// repeated key counts as its last value).
template <std::size_t N>
std::array<std::optional<Element>, N> Members(simdjson::dom::object object,
                                              const std::array<std::string_view, N>& keys) {
  std::array<std::optional<Element>, N> found;
  for (const auto member : object) {
    for (std::size_t k = 0; k < N; ++k) {
      if (member.key == keys[k]) found[k] = member.value;
    }
  }
  return found;
}

bool IsNumber(const Element& value) {
  const Type type = value.type();
  return type == Type::INT64 || type == Type::UINT64 || type == Type::DOUBLE;
}

double NumberOf(const Element& value) {
  switch (value.type()) {
    case Type::INT64:
      return static_cast<double>(std::int64_t(value));
    case Type::UINT64:
      return static_cast<double>(std::uint64_t(value));
    default:
      return double(value);
  }
}

class DocumentReader {
 public:
  explicit DocumentReader(std::string file) : file_(std::move(file)) {}

  // The field at `index` of the list.
  VORN_Variable ReadField(const Element& element, std::size_t index) const {
    const Place root;
    const Place fields = root.Child(kCodebookFieldsKey);
    return ReadField(element, fields.Child(index));
  }

  std::vector<VariableSet> ReadSetList(const Element& sets) const {
    return ReadSets(std::optional(sets));
  }

  [[noreturn]] void FailDuplicateField(std::size_t index, std::string_view name,
                                       std::size_t firstIndex, std::string_view firstName) const {
    const Place root;
    const Place fields = root.Child(kCodebookFieldsKey);
    FailDuplicate(fields.Child(index).Child("name"), name, firstName,
                  fields.Child(firstIndex).Child("name"));
  }

  // What the open checks of the field at `index`: whether it is an object
  // and its name (the last "name", when it has one, and its text when that
  // is a string).
  void CheckField(std::size_t index, bool isObject, bool hasName,
                  std::optional<std::string_view> name) const {
    const Place root;
    const Place fields = root.Child(kCodebookFieldsKey);
    const Place field = fields.Child(index);
    if (!isObject) Fail(field, "must be an object");
    const Place place = field.Child("name");
    if (!hasName) Fail(place, "is missing");
    if (!name) Fail(place, "must be a string");
    CheckNoNul(*name, place);
    if (name->empty()) Fail(place, "must not be empty");
  }

  // A fault of the top level or of the list of fields.
  [[noreturn]] void FailAt(std::string_view key, const std::string& fault) const {
    const Place root;
    Fail(root.Child(key), fault);
  }

 private:
  [[noreturn]] void Fail(const Place& place, const std::string& fault) const {
    throw DatasetError(file_ + ": " + place.Text() + ": " + fault);
  }

  [[noreturn]] void FailDuplicate(const Place& place, std::string_view name,
                                  std::string_view firstName, const Place& firstPlace) const {
    Fail(place, "duplicate name " + Quoted(name) + " (the same as " + Quoted(firstName) + " at " +
                    firstPlace.Text() + ", without regard to case)");
  }

  std::optional<std::string_view> OptionalString(const std::optional<Element>& value,
                                                 const Place& place) const {
    if (!value) return std::nullopt;
    if (value->type() != Type::STRING) Fail(place, "must be a string");
    return std::string_view(*value);
  }

  std::string_view RequiredString(const std::optional<Element>& value, const Place& place) const {
    if (!value) Fail(place, "is missing");
    return *OptionalString(value, place);
  }

  // A name holds no NUL: the host passes names on as C strings.
  void CheckNoNul(std::string_view name, const Place& place) const {
    if (name.find('\0') != std::string_view::npos) {
      Fail(place, "must not hold the character U+0000");
    }
  }

  VORN_Variable ReadField(const Element& element, const Place& place) const {
    if (element.type() != Type::OBJECT) Fail(place, "must be an object");
    const auto [nameValue, typeValue, titleValue, constraints, categories, descriptionValue] =
        Members<6>(element, {"name", "type", "title", "constraints", "categories", "description"});
    const std::string_view name = RequiredString(nameValue, place.Child("name"));
    CheckNoNul(name, place.Child("name"));
    if (name.empty()) Fail(place.Child("name"), "must not be empty");
    // Table Schema: a field without a type is a string field.
    const auto type = OptionalString(typeValue, place.Child("type"));
    if (type && std::find(kFieldTypes.begin(), kFieldTypes.end(), *type) == kFieldTypes.end()) {
      Fail(place.Child("type"), "unknown type " + Quoted(*type));
    }
    const bool isString = !type || *type == "string";
    const int width = isString ? ReadWidth(constraints, place.Child("constraints")) : 0;
    // A field with no title is labelled by its description.
    auto title = OptionalString(titleValue, place.Child("title"));
    if (!title) title = OptionalString(descriptionValue, place.Child("description"));
    return VORN_Variable(std::string(name), width, title ? std::string(*title) : std::string(),
                         ReadCategories(categories, place.Child("categories"), isString));
  }

  int ReadWidth(const std::optional<Element>& constraints, const Place& place) const {
    if (!constraints) return kDefaultStringWidth;
    if (constraints->type() != Type::OBJECT) Fail(place, "must be an object");
    const auto [maxLength] = Members<1>(*constraints, {"maxLength"});
    if (!maxLength) return kDefaultStringWidth;
    const bool isInteger = maxLength->type() == Type::INT64 || maxLength->type() == Type::UINT64;
    const double width = isInteger ? NumberOf(*maxLength) : 0;
    if (!isInteger || width < 1 || width > kMaxStringWidth) {
      Fail(place.Child("maxLength"),
           "must be an integer from 1 to " + std::to_string(kMaxStringWidth));
    }
    return static_cast<int>(width);
  }

  VORN_ValueLabels ReadCategories(const std::optional<Element>& categories, const Place& place,
                                  bool isString) const {
    VORN_ValueLabels labels;
    if (!categories) return labels;
    if (categories->type() != Type::ARRAY) Fail(place, "must be an array");
    std::map<double, std::size_t> numbers;
    std::map<std::string, std::size_t, std::less<>> texts;
    std::size_t i = 0;
    for (const Element entry : simdjson::dom::array(*categories)) {
      const Place entryPlace = place.Child(i);
      // Table Schema allows a bare value as well as {"value": ..., "label": ...}.
      Element value = entry;
      const bool isObject = entry.type() == Type::OBJECT;
      const Place valuePlace = isObject ? entryPlace.Child("value") : entryPlace;
      std::optional<std::string_view> label;
      if (isObject) {
        const auto [found, labelValue] = Members<2>(entry, {"value", "label"});
        if (!found) Fail(valuePlace, "is missing");
        value = *found;
        label = OptionalString(labelValue, entryPlace.Child("label"));
      }
      const auto checkNew = [&](auto& seen, const auto& key) {
        const auto [first, inserted] = seen.emplace(key, i);
        if (!inserted) {
          Fail(valuePlace, "the value is already listed at " + place.Child(first->second).Text());
        }
      };
      if (isString) {
        if (value.type() != Type::STRING) {
          Fail(valuePlace, "must be a string, as the field is a string field");
        }
        const std::string text(std::string_view{value});
        checkNew(texts, text);
        if (label) labels.text.emplace(text, std::string(*label));
      } else {
        if (!IsNumber(value)) Fail(valuePlace, "must be a number, as the field is numeric");
        const double number = NumberOf(value);
        checkNew(numbers, number);
        if (label) labels.numeric.emplace(number, std::string(*label));
      }
      ++i;
    }
    return labels;
  }

  std::vector<VariableSet> ReadSets(const std::optional<Element>& sets) const {
    if (!sets) return {};
    const Place root;
    const Place place = root.Child(kCodebookSetsKey);
    if (sets->type() != Type::ARRAY) Fail(place, "must be an array");
    std::vector<VariableSet> result;
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    // The count is exact below 2^24 entries, where simdjson keeps it.
    const std::size_t count = simdjson::dom::array(*sets).size();
    result.reserve(count);
    indexByFoldedName.reserve(count);
    std::size_t i = 0;
    for (const Element entry : simdjson::dom::array(*sets)) {
      const Place setPlace = place.Child(i);
      result.push_back(ReadSet(entry, setPlace));
      const std::string name = result.back().GetName(kAsStored);
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        const Place firstPlace = place.Child(first->second);
        FailDuplicate(setPlace.Child("name"), name, result[first->second].GetName(kAsStored),
                      firstPlace.Child("name"));
      }
      ++i;
    }
    return result;
  }

  VariableSet ReadSet(const Element& element, const Place& place) const {
    if (element.type() != Type::OBJECT) Fail(place, "must be an object");
    const auto [nameValue, typeValue, labelValue, sourceValue, countedValue, labelsValue,
                variables] = Members<7>(element, {"name", "type", "label", "labelSource",
                                                  "countedValue", "categoryLabels", "variables"});
    const std::string name(RequiredString(nameValue, place.Child("name")));
    CheckNoNul(name, place.Child("name"));
    const std::string_view type = RequiredString(typeValue, place.Child("type"));
    const bool dichotomies = type == "dichotomies";
    if (!dichotomies && type != "categories") {
      Fail(place.Child("type"), R"(must be "dichotomies" or "categories")");
    }
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    if (const auto label = OptionalString(labelValue, place.Child("label"))) {
      set.SetLabel(std::string(*label));
    }
    if (const auto source = OptionalString(sourceValue, place.Child("labelSource"))) {
      if (*source != "variableLabel") {
        Fail(place.Child("labelSource"), R"(must be "variableLabel")");
      }
      set.LabelSetByVariable(true);
    }
    if (dichotomies) {
      set.SetValue(std::string(RequiredString(countedValue, place.Child("countedValue"))));
      if (const auto labels = OptionalString(labelsValue, place.Child("categoryLabels"))) {
        if (*labels != "countedValues" && *labels != "variableLabels") {
          Fail(place.Child("categoryLabels"), R"(must be "countedValues" or "variableLabels")");
        }
        set.UseVariableCategoryLabels(*labels == "countedValues");
      }
    }
    const Place variablesPlace = place.Child("variables");
    if (!variables) Fail(variablesPlace, "is missing");
    if (variables->type() != Type::ARRAY) {
      Fail(variablesPlace, "must be an array of variable names");
    }
    std::size_t i = 0;
    for (const Element member : simdjson::dom::array(*variables)) {
      const Place memberPlace = variablesPlace.Child(i);
      if (member.type() != Type::STRING) Fail(memberPlace, "must be a string");
      CheckNoNul(std::string_view(member), memberPlace);
      set.AddVariableName(std::string(std::string_view(member)));
      ++i;
    }
    return set;
  }

  std::string file_;
};

// ---- spans and the bytes of unknown keys ----------------------------------

bool IsKnownSetKey(std::string_view key, bool dichotomies) {
  return key == "name" || key == "type" || key == "label" || key == "labelSource" ||
         key == "variables" || (dichotomies && (key == "countedValue" || key == "categoryLabels"));
}

// The set's unknown keys as an object of the file's own bytes (white space
// between tokens left out, so that the text does not depend on the layout);
// "" for none.
// A category set has no counted value or category labels; such keys are
// kept with the others.
std::string RawExtras(std::string_view text, spans::Span entry, bool dichotomies) {
  std::string extras;
  for (const spans::Member& member : spans::ObjectMembers(text, entry)) {
    if (IsKnownSetKey(spans::KeyText(text, member.key), dichotomies)) continue;
    extras += extras.empty() ? "{" : ",";
    extras.append(member.key.Of(text)).append(":").append(spans::Minified(text, member.value));
  }
  if (!extras.empty()) extras += "}";
  return extras;
}

// The white space that begins the line of `pos`, when only white space
// precedes it there.
std::string IndentBefore(std::string_view text, std::size_t pos) {
  std::size_t start = pos;
  while (start > 0 && (text[start - 1] == ' ' || text[start - 1] == '\t')) --start;
  if (start > 0 && text[start - 1] != '\n') return "";
  return std::string(text.substr(start, pos - start));
}

// The sets' unknown keys, from the list's entries in the text.
void KeepExtras(std::string_view text, spans::Span list, std::vector<VariableSet>& sets) {
  const std::vector<spans::Span> entries = spans::ArrayElements(text, list);
  for (std::size_t i = 0; i < sets.size() && i < entries.size(); ++i) {
    const bool dichotomies = sets[i].GetType() == VariableSet::kMultipleDichotomySet;
    sets[i].SetStoreExtras(RawExtras(text, entries[i], dichotomies));
  }
}

SetsPlace LocateSets(std::string_view view, std::vector<VariableSet>& sets) {
  const std::size_t rootBegin = spans::SkipWhitespace(view, 0);
  const std::vector<spans::Member> members =
      spans::ObjectMembers(view, {rootBegin, spans::SkipValue(view, rootBegin)});
  SetsPlace place;
  place.indent = members.empty() ? "  " : IndentBefore(view, members.front().key.begin);
  // A repeated key counts as its last value; that is the one replaced.
  for (const spans::Member& member : members) {
    if (spans::KeyText(view, member.key) == kCodebookSetsKey) {
      place.present = true;
      place.value = member.value;
      place.indent = IndentBefore(view, member.key.begin);
    }
  }
  place.insertAt = members.empty() ? view.find('{') + 1 : members.back().value.end;
  if (place.present) KeepExtras(view, place.value, sets);
  return place;
}

// The general reader: slower, but names the line and column of a fault.
DescriptorContents ReadCarefully(const std::string& text, const std::string& file) {
  return ReadDescriptor(ParseDescriptor(text, file), file);
}

// ---- the dictionary read from the text on demand ----------------------------

// A field as the open found it: its object's bytes and its name.
struct FieldEntry {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view name;  // in the text, or in the names that held escapes
};

// The fields of a codebook text, each parsed from its own bytes when first
// asked for. The names are indexed at open, by the hash of their folded
// text (open addressing: one number per field, no object per name).
class CodebookDictionary final : public DictionarySource {
 public:
  CodebookDictionary(std::shared_ptr<const std::string> text, std::string file,
                     std::vector<FieldEntry> entries, std::deque<std::string> escapedNames)
      : text_(std::move(text)),
        file_(std::move(file)),
        entries_(std::move(entries)),
        escapedNames_(std::move(escapedNames)) {
    BuildIndex();
    if (parser_.allocate(4096, kMaxJsonNesting - 1) != simdjson::SUCCESS) throw std::bad_alloc();
  }

  unsigned int Count() const override { return static_cast<unsigned int>(entries_.size()); }

  int FindFolded(std::string_view folded) const override {
    const std::uint32_t hash = HashOf(folded);
    for (std::size_t slot = hash & mask_;; slot = (slot + 1) & mask_) {
      const std::uint32_t entry = slots_[slot];
      if (entry == 0) return -1;
      if (hashes_[entry - 1] == hash && FoldName(entries_[entry - 1].name) == folded) {
        return static_cast<int>(entry - 1);
      }
    }
  }

  VORN_Variable Read(int index) const override {
    const auto at = static_cast<std::size_t>(index);
    const FieldEntry& entry = entries_.at(at);
    Element element;
    // The text keeps spare bytes past its end, so any span of it can be parsed in place.
    if (parser_.parse(text_->data() + entry.begin, entry.end - entry.begin, false).get(element) !=
        simdjson::SUCCESS) {
      // The general reader names the fault's line and column (or holds a
      // number the fast parser cannot).
      return ReadCarefully(*text_, file_).variables.at(at);
    }
    return DocumentReader(file_).ReadField(element, at);
  }

 private:
  static std::uint32_t HashOf(std::string_view folded) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>{}(folded));
  }

  static constexpr std::size_t kShortName = 64;

  // The name folded: a short ASCII name (the usual one) in `buffer`, as
  // FoldName folds it, without allocating; any other in `other`.
  static std::string_view Folded(std::string_view name, std::array<char, kShortName>& buffer,
                                 std::string& other) {
    const bool ascii = std::all_of(name.begin(), name.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (!ascii || name.size() > buffer.size()) return other = FoldName(name);
    std::transform(name.begin(), name.end(), buffer.begin(), [](char c) {
      return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return {buffer.data(), name.size()};
  }

  // Refuses two names that fold alike, as the first field read in full would.
  void BuildIndex() {
    std::size_t size = 16;
    while (size < entries_.size() * 2) size *= 2;
    slots_.assign(size, 0);
    mask_ = size - 1;
    hashes_.reserve(entries_.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      std::array<char, kShortName> buffer{};
      std::string long_;
      const std::string_view folded = Folded(entries_[i].name, buffer, long_);
      hashes_.push_back(HashOf(folded));
      if (const int first = FindFolded(folded); first >= 0) {
        const auto firstIndex = static_cast<std::size_t>(first);
        DocumentReader(file_).FailDuplicateField(i, entries_[i].name, firstIndex,
                                                 entries_[firstIndex].name);
      }
      std::size_t slot = hashes_.back() & mask_;
      while (slots_[slot] != 0) slot = (slot + 1) & mask_;
      slots_[slot] = static_cast<std::uint32_t>(i + 1);
    }
  }

  std::shared_ptr<const std::string> text_;
  std::string file_;
  std::vector<FieldEntry> entries_;
  std::deque<std::string> escapedNames_;
  std::vector<std::uint32_t> hashes_;  // of each field's folded name
  std::vector<std::uint32_t> slots_;   // a field's index + 1; 0 for none
  std::size_t mask_ = 0;
  mutable simdjson::dom::parser parser_;
};

// ---- the open: one pass of the On-Demand parser ------------------------------

namespace ondemand = simdjson::ondemand;

// A large text is touched page by page as it is read; in pages of 2 MB that
// costs a fraction of the faults (where the system grants them).
void AdviseHugePages(char* data, std::size_t size) {
  constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t begin = (start + kHugePage - 1) & ~(kHugePage - 1);
  const std::uintptr_t end = (start + size) & ~(kHugePage - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

// The parser's index of the text's structure grows with the text and is
// written once, page by page. simdjson keeps it private; it is reached
// through the parser's implementation (an explicit instantiation may name a
// private member) to ask for huge pages, which cost a fraction of the faults.
using ParserImplementation = std::unique_ptr<simdjson::internal::dom_parser_implementation>;
ParserImplementation& ImplementationOf(ondemand::parser& parser);

template <ParserImplementation ondemand::parser::*kMember>
struct ImplementationAccess {
  friend ParserImplementation& ImplementationOf(ondemand::parser& parser) {
    return parser.*kMember;
  }
};
template struct ImplementationAccess<&ondemand::parser::implementation>;

void AdviseHugeIndex(simdjson::internal::dom_parser_implementation& implementation) {
  constexpr std::size_t kSpareEntries = 64 + 2 + 7;  // as simdjson sizes it
  AdviseHugePages(reinterpret_cast<char*>(implementation.structural_indexes.get()),
                  (implementation.capacity() + kSpareEntries) * sizeof(std::uint32_t));
}

struct Scan {
  std::vector<FieldEntry> fields;
  std::deque<std::string> escapedNames;
  bool fieldsPresent = false;
  bool fieldsAnArray = false;
  std::size_t fieldsKeyBegin = 0;
  bool anyMember = false;
  std::size_t firstKeyBegin = 0;
  std::size_t lastValueEnd = 0;
  bool setsPresent = false;
  std::size_t setsKeyBegin = 0;
  spans::Span setsValue;
  std::vector<spans::Member> topLevel;
};

// Whether a top-level or field key is `wanted`: compared on the raw bytes,
// unescaped only when the key holds an escape.
bool KeyIs(ondemand::field& field, std::string_view wanted, bool& failed) {
  const char* raw = field.key().raw();
  std::size_t length = 0;
  while (raw[length] != '"' && raw[length] != '\\') ++length;
  if (raw[length] == '"') return std::string_view(raw, length) == wanted;
  std::string_view key;
  failed = field.unescaped_key().get(key) != simdjson::SUCCESS;
  return !failed && key == wanted;
}

class Scanner {
 public:
  Scanner(const std::string& text, const DocumentReader& reader) : text_(text), reader_(reader) {}

  // False where the parser refuses the text: the careful reader then names
  // the fault. Throws DatasetError for a field that is no object or whose
  // name is faulty.
  bool Run(Scan& scan) {
    if (parser_.allocate(text_.size(), kMaxJsonNesting - 1) != simdjson::SUCCESS) return false;
    AdviseHugeIndex(*ImplementationOf(parser_));
    if (parser_.iterate(text_.data(), text_.size(), text_.capacity()).get(doc_) !=
        simdjson::SUCCESS) {
      return false;
    }
    ondemand::object root;
    if (doc_.get_object().get(root) != simdjson::SUCCESS) return false;
    for (auto member : root) {
      if (member.error() != simdjson::SUCCESS) return false;
      ondemand::field field = member.value_unsafe();
      const std::size_t keyBegin = OffsetOf(field.key().raw()) - 1;
      bool failed = false;
      const bool isFields = KeyIs(field, kCodebookFieldsKey, failed);
      const bool isSets = !failed && !isFields && KeyIs(field, kCodebookSetsKey, failed);
      if (failed) return false;
      if (!scan.anyMember) scan.firstKeyBegin = keyBegin;
      scan.anyMember = true;
      ondemand::value value = field.value();
      const std::string_view token = value.raw_json_token();
      ondemand::json_type type{};
      if (value.type().get(type) != simdjson::SUCCESS) return false;
      const std::size_t valueBegin = OffsetOf(token.data());
      if (isFields) {
        scan.fieldsPresent = true;
        scan.fieldsKeyBegin = keyBegin;
        scan.fieldsAnArray = type == ondemand::json_type::array;
        scan.fields.clear();
        scan.escapedNames.clear();
        ReserveFields(value, scan.fields);
      }
      if (isFields && scan.fieldsAnArray) {
        if (!ScanFields(value, scan)) return false;
        const char* next = nullptr;
        if (doc_.current_location().get(next) != simdjson::SUCCESS) return false;
        scan.lastValueEnd = EndBefore(next);
      } else {
        scan.lastValueEnd = spans::SkipValue(text_, valueBegin);
      }
      scan.topLevel.push_back(
          {{keyBegin, spans::SkipValue(text_, keyBegin)}, {valueBegin, scan.lastValueEnd}});
      if (isSets) {
        scan.setsPresent = true;
        scan.setsKeyBegin = keyBegin;
        scan.setsValue = {valueBegin, scan.lastValueEnd};
      }
    }
    // Nothing but white space after the top level.
    const char* next = nullptr;
    return doc_.current_location().get(next) == simdjson::OUT_OF_BOUNDS;
  }

 private:
  std::size_t OffsetOf(const char* at) const { return static_cast<std::size_t>(at - text_.data()); }

  // The end of the value whose next token is at `next`.
  std::size_t EndBefore(const char* next) const {
    std::size_t end = OffsetOf(next);
    while (end > 0 && (text_[end - 1] == ' ' || text_[end - 1] == '\n' || text_[end - 1] == '\r' ||
                       text_[end - 1] == '\t')) {
      --end;
    }
    return end;
  }

  // Room for as many fields as the list's bytes can hold, so that the list
  // never moves as it grows; only the pages it fills are touched.
  void ReserveFields(ondemand::value& value, std::vector<FieldEntry>& fields) const {
    constexpr std::size_t kLeastFieldBytes = 12;  // {"name":"x"},
    const std::size_t begin = OffsetOf(value.raw_json_token().data());
    try {
      fields.reserve((text_.size() - begin) / kLeastFieldBytes + 1);
    } catch (const std::bad_alloc&) {
      return;  // a system that grants no such room: the list grows as it goes
    }
    AdviseHugePages(reinterpret_cast<char*>(fields.data()), fields.capacity() * sizeof(FieldEntry));
  }

  bool ScanFields(ondemand::value& value, Scan& scan) {
    ondemand::array list;
    if (value.get_array().get(list) != simdjson::SUCCESS) return false;
    std::size_t index = 0;
    for (auto element : list) {
      ondemand::value field;
      ondemand::json_type type{};
      if (element.get(field) != simdjson::SUCCESS || field.type().get(type) != simdjson::SUCCESS) {
        return false;
      }
      const std::string_view token = field.raw_json_token();
      if (type != ondemand::json_type::object) reader_.CheckField(index, false, false, {});
      FieldEntry entry;
      entry.begin = OffsetOf(token.data());
      bool hasName = false;
      bool escaped = false;
      std::optional<std::string_view> name;
      ondemand::object object;
      if (field.get_object().get(object) != simdjson::SUCCESS) return false;
      for (auto member : object) {
        if (member.error() != simdjson::SUCCESS) return false;
        ondemand::field key = member.value_unsafe();
        bool failed = false;
        if (!KeyIs(key, "name", failed)) {
          if (failed) return false;
          continue;
        }
        hasName = true;
        name.reset();
        ondemand::value nameValue = key.value();
        if (nameValue.type().get(type) != simdjson::SUCCESS) return false;
        if (type != ondemand::json_type::string) continue;
        const std::string_view raw = nameValue.raw_json_token();
        std::string_view text;
        if (nameValue.get_string().get(text) != simdjson::SUCCESS) return false;
        // Without escapes the name is its bytes in the text.
        escaped = raw.size() < text.size() + 2 || raw.substr(1, text.size()) != text ||
                  raw[text.size() + 1] != '"';
        name = escaped ? text : raw.substr(1, text.size());
      }
      const char* next = nullptr;
      if (doc_.current_location().get(next) != simdjson::SUCCESS) return false;
      entry.end = EndBefore(next);
      reader_.CheckField(index, true, hasName, name);
      if (escaped) {
        scan.escapedNames.emplace_back(*name);
        name = scan.escapedNames.back();
      }
      entry.name = *name;
      scan.fields.push_back(entry);
      ++index;
    }
    return true;
  }

  const std::string& text_;
  const DocumentReader& reader_;
  ondemand::parser parser_;
  ondemand::document doc_;
};

// The scan reads only the values it needs and skips the others by their
// brackets; they must still be JSON within the nesting limit. Each top-level
// value (the set list is parsed whole when it is read) and the fields in
// slices of about a megabyte are parsed again, so that the parser's memory
// stays small and is reused.
bool SkippedValuesAreJson(const std::string& text, const Scan& scan) {
  constexpr std::size_t kSlice = std::size_t{1} << 20;
  // A top-level value, and a slice of the field list, sit two levels down.
  simdjson::dom::parser parser;
  if (parser.allocate(kSlice, kMaxJsonNesting - 2) != simdjson::SUCCESS) return false;
  simdjson::dom::element element;
  std::string slice;
  const auto parses = [&](const char* json, std::size_t size) {
    if (size > parser.capacity() &&
        parser.allocate(size, kMaxJsonNesting - 2) != simdjson::SUCCESS) {
      return false;
    }
    return parser.parse(json, size, false).get(element) == simdjson::SUCCESS;
  };
  for (const spans::Member& member : scan.topLevel) {
    if (scan.setsPresent && member.value.begin == scan.setsValue.begin) continue;
    if (!scan.fieldsAnArray || member.key.begin != scan.fieldsKeyBegin) {
      if (!parses(text.data() + member.value.begin, member.value.end - member.value.begin)) {
        return false;
      }
      continue;
    }
    for (std::size_t first = 0; first < scan.fields.size();) {
      std::size_t last = first;
      while (last + 1 < scan.fields.size() &&
             scan.fields[last + 1].end - scan.fields[first].begin <= kSlice) {
        ++last;
      }
      const std::string_view elements(text.data() + scan.fields[first].begin,
                                      scan.fields[last].end - scan.fields[first].begin);
      slice.clear();
      slice.reserve(elements.size() + 2 + simdjson::SIMDJSON_PADDING);
      slice.append(1, '[').append(elements).append(1, ']');
      if (!parses(slice.data(), slice.size())) return false;
      first = last + 1;
    }
  }
  return true;
}

// The set list from its bytes; false where the fast parser refuses them.
bool ReadSetList(const std::string& text, spans::Span list, const DocumentReader& reader,
                 std::vector<VariableSet>& sets) {
  simdjson::dom::parser parser;
  Element element;
  if (parser.allocate(list.end - list.begin, kMaxJsonNesting - 2) != simdjson::SUCCESS) {
    return false;
  }
  AdviseHugeIndex(*parser.implementation);
  if (parser.parse(text.data() + list.begin, list.end - list.begin, false).get(element) !=
      simdjson::SUCCESS) {
    return false;
  }
  sets = reader.ReadSetList(element);
  return true;
}

SetsPlace PlaceOf(std::string_view text, const Scan& scan) {
  SetsPlace place;
  place.indent = scan.anyMember ? IndentBefore(text, scan.firstKeyBegin) : "  ";
  if (scan.setsPresent) {
    place.present = true;
    place.value = scan.setsValue;
    place.indent = IndentBefore(text, scan.setsKeyBegin);
  }
  place.insertAt = scan.anyMember ? scan.lastValueEnd : text.find('{') + 1;
  return place;
}

CodebookText ReadWhole(const std::shared_ptr<const std::string>& text, const std::string& file) {
  DescriptorContents contents = ReadCarefully(*text, file);
  CodebookText result;
  result.place = LocateSets(*text, contents.sets);
  const std::size_t rootBegin = spans::SkipWhitespace(*text, 0);
  result.topLevel = spans::ObjectMembers(*text, {rootBegin, spans::SkipValue(*text, rootBegin)});
  result.sets = contents.sets;
  result.dataset = Dataset(std::move(contents.variables), std::move(contents.sets));
  return result;
}

}  // namespace

static_assert(kReadPadding >= simdjson::SIMDJSON_PADDING);

// The whole file in one read, with the spare bytes the fast parser reads
// past the end.
std::shared_ptr<std::string> ReadPaddedFile(const std::filesystem::path& path,
                                            files::FileIdentity& identity, files::Env& env,
                                            files::FileDescriptor* source) {
  const auto fail = [&path](int error) {
    throw DatasetError(path.string() + ": cannot be read: " + std::strerror(error));
  };
  files::FileDescriptor fd(env.Open(path, O_RDONLY));
  if (!fd) fail(errno);
  struct stat info {};
  if (::fstat(fd.Get(), &info) != 0) fail(errno);
  identity = {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
  auto text = std::make_shared<std::string>();
  text->reserve(static_cast<std::size_t>(info.st_size) + kReadPadding);
  AdviseHugePages(text->data(), text->capacity());
  // In pieces through a small buffer, so that the text's pages are written
  // once, by the copy (sizing the text first would write them twice).
  std::vector<char> piece(std::size_t{1} << 18);
  for (;;) {
    const ssize_t count = env.Read(fd.Get(), path, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno);
    if (count == 0) break;
    const auto length = static_cast<std::size_t>(count);
    if (text->capacity() < text->size() + length + kReadPadding) {
      text->reserve(2 * (text->size() + length) + kReadPadding);  // the file grew meanwhile
    }
    text->append(piece.data(), length);
  }
  if (source != nullptr) *source = std::move(fd);
  return text;
}

std::optional<std::map<std::string, std::string>> ReadTopLevelMembers(
    const std::filesystem::path& path, const std::vector<std::string>& keys) {
  {
    // A database is no codebook: its header is enough to tell.
    std::array<char, 16> head{};
    std::ifstream in(path, std::ios::binary);
    in.read(head.data(), head.size());
    if (std::string_view(head.data(), head.size()) == std::string_view("SQLite format 3\0", 16)) {
      return std::nullopt;
    }
  }
  files::FileIdentity identity;
  std::shared_ptr<const std::string> text;
  try {
    text = ReadPaddedFile(path, identity, files::DefaultEnv());
  } catch (const DatasetError&) {
    return std::nullopt;
  }
  ondemand::parser parser;
  ondemand::document document;
  ondemand::object root;
  if (parser.allocate(text->size(), kMaxJsonNesting - 1) != simdjson::SUCCESS ||
      parser.iterate(text->data(), text->size(), text->capacity()).get(document) !=
          simdjson::SUCCESS ||
      document.get_object().get(root) != simdjson::SUCCESS) {
    return std::nullopt;
  }
  std::map<std::string, std::string> found;
  for (auto member : root) {
    if (member.error() != simdjson::SUCCESS) return std::nullopt;
    ondemand::field field = member.value_unsafe();
    for (const std::string& key : keys) {
      bool failed = false;
      if (KeyIs(field, key, failed)) {
        ondemand::value value = field.value();
        const auto begin = static_cast<std::size_t>(value.raw_json_token().data() - text->data());
        found[key] = text->substr(begin, spans::SkipValue(*text, begin) - begin);
        break;
      }
      if (failed) return std::nullopt;
    }
  }
  const char* next = nullptr;
  if (document.current_location().get(next) != simdjson::OUT_OF_BOUNDS) return std::nullopt;
  return found;
}

CodebookText ReadCodebookText(std::shared_ptr<const std::string> text, const std::string& file) {
  if (text->capacity() < text->size() + kReadPadding) {
    auto padded = std::make_shared<std::string>();
    padded->reserve(text->size() + kReadPadding);
    padded->append(*text);
    text = std::move(padded);
  }
  const DocumentReader reader(file);
  Scan scan;
  if (!Scanner(*text, reader).Run(scan) || !SkippedValuesAreJson(*text, scan)) {
    return ReadWhole(text, file);
  }
  if (!scan.fieldsPresent) reader.FailAt(kCodebookFieldsKey, "is missing");
  if (!scan.fieldsAnArray) reader.FailAt(kCodebookFieldsKey, "must be an array");
  CodebookText result;
  result.place = PlaceOf(*text, scan);
  result.topLevel = std::move(scan.topLevel);
  if (scan.setsPresent) {
    if (!ReadSetList(*text, scan.setsValue, reader, result.sets)) return ReadWhole(text, file);
    KeepExtras(*text, scan.setsValue, result.sets);
  }
  auto dictionary = std::make_shared<const CodebookDictionary>(text, file, std::move(scan.fields),
                                                               std::move(scan.escapedNames));
  result.dataset = Dataset(std::move(dictionary), result.sets);
  return result;
}

}  // namespace hostlib::data
