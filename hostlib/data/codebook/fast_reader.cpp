#include "hostlib/data/codebook/fast_reader.h"
#include "hostlib/data/codebook/slice_scan.h"
#include "hostlib/data/codebook/top_level_members.h"
#include "hostlib/data/name_index.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
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

  // The set at `index` of the list.
  VariableSet ReadSetAt(const Element& element, std::size_t index) const {
    const Place root;
    return ReadSet(element, root.Child(kCodebookSetsKey).Child(index));
  }

  // The entry at `index` of the list under `listKey` (the fields or the
  // sets) has a name that folds as that of the one at `firstIndex`.
  [[noreturn]] void FailDuplicateIn(std::string_view listKey, std::size_t index,
                                    std::string_view name, std::size_t firstIndex,
                                    std::string_view firstName) const {
    const Place root;
    const Place list = root.Child(listKey);
    FailDuplicate(list.Child(index).Child("name"), name, firstName,
                  list.Child(firstIndex).Child("name"));
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
    const simdjson::dom::array members(*variables);
    set.ReserveVariableNames(members.size());
    std::size_t i = 0;
    for (const Element member : members) {
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

// The sets' unknown keys, from the list's entries in the text.
void KeepExtras(std::string_view text, spans::Span list, std::vector<VariableSet>& sets) {
  const std::vector<spans::Span> entries = spans::ArrayElements(text, list);
  for (std::size_t i = 0; i < sets.size() && i < entries.size(); ++i) {
    const bool dichotomies = sets[i].GetType() == VariableSet::kMultipleDichotomySet;
    sets[i].SetStoreExtras(RawExtras(text, entries[i], dichotomies));
  }
}

bool HasUnknownKey(const Element& set, bool dichotomies) {
  if (set.type() != Type::OBJECT) return false;
  for (const auto member : simdjson::dom::object(set)) {
    if (!IsKnownSetKey(member.key, dichotomies)) return true;
  }
  return false;
}

// The sets of the set list, each read from its element, gathered in order.
// The first fault is kept, and reported once the scan has found the whole
// text to be JSON.
class SetCollector final : public SetSink {
 public:
  explicit SetCollector(const DocumentReader& reader) : reader_(reader) {}

  SetElement Read(const Element& element, std::string_view bytes,
                  std::size_t index) const override {
    SetElement read;
    try {
      VariableSet set = reader_.ReadSetAt(element, index);
      const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
      if (HasUnknownKey(element, dichotomies)) {
        set.SetStoreExtras(RawExtras(bytes, {0, bytes.size()}, dichotomies));
      }
      read.set = std::move(set);
    } catch (const DatasetError&) {
      read.fault = std::current_exception();
    }
    return read;
  }

  void BeginList() override {
    sets_.clear();
    hashes_.clear();
    fault_ = nullptr;
  }

  void Add(SetElement read) override {
    if (fault_) return;
    if (read.fault) {
      fault_ = read.fault;
      return;
    }
    hashes_.push_back(NameHash(read.set->GetName(kAsStored)));
    sets_.push_back(std::move(*read.set));
  }

  // Throws the first fault: the first set whose name repeats an earlier
  // one's, or the first set that could not be read, whichever comes first.
  std::vector<VariableSet> TakeSets() {
    const NameIndex index(hashes_.size(), [&](std::size_t i) { return hashes_[i]; });
    const auto repeat = index.FirstRepeat([&](std::size_t earlier, std::size_t later) {
      return FoldName(sets_[earlier].GetName(kAsStored)) ==
             FoldName(sets_[later].GetName(kAsStored));
    });
    if (repeat) {
      const auto [later, earlier] = *repeat;
      reader_.FailDuplicateIn(kCodebookSetsKey, later, sets_[later].GetName(kAsStored), earlier,
                              sets_[earlier].GetName(kAsStored));
    }
    if (fault_) std::rethrow_exception(fault_);
    return std::move(sets_);
  }

 private:
  const DocumentReader& reader_;
  std::vector<VariableSet> sets_;  // up to the first that could not be read
  std::vector<std::uint32_t> hashes_;
  std::exception_ptr fault_;
};

SetsPlace LocateSets(std::string_view view, std::vector<VariableSet>& sets) {
  const std::size_t rootBegin = spans::SkipWhitespace(view, 0);
  const std::vector<spans::Member> members =
      spans::ObjectMembers(view, {rootBegin, spans::SkipValue(view, rootBegin)});
  SetsPlace place;
  place.indent = members.empty() ? "  " : spans::IndentBefore(view, members.front().key.begin);
  // A repeated key counts as its last value; that is the one replaced.
  for (const spans::Member& member : members) {
    if (spans::KeyText(view, member.key) == kCodebookSetsKey) {
      place.present = true;
      place.value = member.value;
      place.indent = spans::IndentBefore(view, member.key.begin);
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

// ---- the dictionary read from the file on demand ---------------------------

// The fields of a codebook file, each parsed from its own bytes when first
// asked for; their names indexed at open (name_index.h).
class CodebookDictionary final : public DictionarySource {
 public:
  CodebookDictionary(std::shared_ptr<const SourceFile> source, std::vector<FieldEntry> entries,
                     std::string names)
      : source_(std::move(source)),
        file_(source_->Path().string()),
        entries_(std::move(entries)),
        names_(std::move(names)) {
    BuildIndex();
    if (parser_.allocate(4096, kMaxJsonNesting - 1) != simdjson::SUCCESS) throw std::bad_alloc();
  }

  unsigned int Count() const override { return static_cast<unsigned int>(entries_.size()); }

  int FindFolded(std::string_view folded) const override {
    const auto found = index_.Find(HashOfFolded(folded), [&](std::size_t index) {
      std::array<char, kShortName> buffer{};
      std::string other;
      return FoldedName(NameOf(index), buffer, other) == folded;
    });
    return found ? static_cast<int>(*found) : -1;
  }

  VORN_Variable Read(int index) const override {
    const auto at = static_cast<std::size_t>(index);
    const FieldEntry& entry = entries_.at(at);
    const std::string bytes = source_->Read({entry.begin, entry.End()});
    Element element;
    // The bytes are read with the spare capacity the parser reads past them.
    if (parser_.parse(bytes.data(), bytes.size(), false).get(element) != simdjson::SUCCESS) {
      // The general reader names the fault's line and column (or holds a
      // number the fast parser cannot).
      return ReadCarefully(source_->ReadAll(), file_).variables.at(at);
    }
    return DocumentReader(file_).ReadField(element, at);
  }

 private:
  std::string_view NameOf(std::size_t index) const {
    const FieldEntry& entry = entries_[index];
    return std::string_view(names_).substr(entry.nameBegin, entry.nameSize);
  }

  // Refuses two names that fold alike, as the first field read in full
  // would: the first field whose name folds as an earlier one's.
  void BuildIndex() {
    index_ = NameIndex(entries_.size(), [&](std::size_t i) { return entries_[i].nameHash; });
    const auto repeat = index_.FirstRepeat([&](std::size_t earlier, std::size_t later) {
      return FoldName(NameOf(earlier)) == FoldName(NameOf(later));
    });
    if (repeat) {
      const auto [later, earlier] = *repeat;
      DocumentReader(file_).FailDuplicateIn(kCodebookFieldsKey, later, NameOf(later), earlier,
                                            NameOf(earlier));
    }
  }

  std::shared_ptr<const SourceFile> source_;
  std::string file_;
  std::vector<FieldEntry> entries_;
  std::string names_;
  NameIndex index_;
  mutable simdjson::dom::parser parser_;
};

// ---- the open ------------------------------------------------------------------

namespace ondemand = simdjson::ondemand;

// Whether a top-level key is `wanted`: compared on the raw bytes, unescaped
// only when the key holds an escape.
bool KeyIs(ondemand::field& field, std::string_view wanted, bool& failed) {
  const char* raw = field.key().raw();
  std::size_t length = 0;
  while (raw[length] != '"' && raw[length] != '\\') ++length;
  if (raw[length] == '"') return std::string_view(raw, length) == wanted;
  std::string_view key;
  failed = field.unescaped_key().get(key) != simdjson::SUCCESS;
  return !failed && key == wanted;
}

SetsPlace PlaceOf(const SliceScan& scan) {
  SetsPlace place;
  place.indent = scan.anyMember ? scan.firstKeyIndent : "  ";
  if (scan.setsPresent) {
    place.present = true;
    place.value = scan.setsValue;
    place.indent = scan.setsKeyIndent;
  }
  place.insertAt = scan.anyMember ? scan.lastValueEnd : scan.rootBegin + 1;
  return place;
}

CodebookText ReadWhole(const std::string& text, const std::string& file) {
  DescriptorContents contents = ReadCarefully(text, file);
  CodebookText result;
  result.place = LocateSets(text, contents.sets);
  const std::size_t rootBegin = spans::SkipWhitespace(text, 0);
  result.topLevel = spans::ObjectMembers(text, {rootBegin, spans::SkipValue(text, rootBegin)});
  result.sets = contents.sets;
  result.dataset = Dataset(std::move(contents.variables), std::move(contents.sets));
  return result;
}

}  // namespace

static_assert(kReadPadding >= simdjson::SIMDJSON_PADDING);

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
  std::optional<std::string> text;
  try {
    text = SourceFile(path, files::DefaultEnv()).ReadAll();
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

CodebookText ReadCodebook(std::shared_ptr<const SourceFile> source) {
  const std::string file = source->Path().string();
  const DocumentReader reader(file);
  SliceScan scan;
  SetCollector sets(reader);
  if (!ScanInSlices(*source, scan, &sets)) return ReadWhole(source->ReadAll(), file);
  if (scan.fieldFault) {
    const FieldFault& fault = *scan.fieldFault;
    reader.CheckField(fault.index, fault.isObject, fault.hasName, fault.name);
  }
  if (!scan.fieldsPresent) reader.FailAt(kCodebookFieldsKey, "is missing");
  if (!scan.fieldsAnArray) reader.FailAt(kCodebookFieldsKey, "must be an array");
  CodebookText result;
  result.place = PlaceOf(scan);
  result.topLevel = std::move(scan.topLevel);
  if (scan.setsPresent) {
    if (!scan.setsAnArray) reader.FailAt(kCodebookSetsKey, "must be an array");
    result.sets = sets.TakeSets();
  }
  auto dictionary = std::make_shared<const CodebookDictionary>(
      std::move(source), std::move(scan.fields), std::move(scan.names));
  result.dataset = Dataset(std::move(dictionary), result.sets);
  return result;
}

}  // namespace hostlib::data
