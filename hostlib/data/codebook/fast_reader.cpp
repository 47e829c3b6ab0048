#include "hostlib/data/codebook/fast_reader.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
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

constexpr std::array<std::string_view, 15> kFieldTypes = {
    "string",   "number", "integer",   "boolean",  "object",   "array",   "date", "time",
    "datetime", "year",   "yearmonth", "duration", "geopoint", "geojson", "any"};

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

  DescriptorContents Read(const Element& root) const {
    if (root.type() != Type::OBJECT) {
      throw DatasetError(file_ + ": the top level must be a JSON object");
    }
    const auto [fields, sets] = Members<2>(root, {kCodebookFieldsKey, kCodebookSetsKey});
    DescriptorContents contents;
    contents.variables = ReadFields(fields);
    contents.sets = ReadSets(sets);
    return contents;
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

  std::vector<VORN_Variable> ReadFields(const std::optional<Element>& fields) const {
    const Place root;
    const Place place = root.Child(kCodebookFieldsKey);
    if (!fields) Fail(place, "is missing");
    if (fields->type() != Type::ARRAY) Fail(place, "must be an array");
    const simdjson::dom::array list(*fields);
    std::vector<VORN_Variable> variables;
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    std::size_t i = 0;
    for (const Element field : list) {
      const Place fieldPlace = place.Child(i);
      variables.push_back(ReadField(field, fieldPlace));
      const std::string name = variables.back().GetName();
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        const Place firstPlace = place.Child(first->second);
        FailDuplicate(fieldPlace.Child("name"), name, variables[first->second].GetName(),
                      firstPlace.Child("name"));
      }
      ++i;
    }
    return variables;
  }

  VORN_Variable ReadField(const Element& element, const Place& place) const {
    if (element.type() != Type::OBJECT) Fail(place, "must be an object");
    const auto [nameValue, typeValue, titleValue, constraints, categories] =
        Members<5>(element, {"name", "type", "title", "constraints", "categories"});
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
    const auto title = OptionalString(titleValue, place.Child("title"));
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

SetsPlace LocateSets(std::string& text, std::vector<VariableSet>& sets) {
  const std::string_view view(text);
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
  if (!place.present) return place;
  const std::vector<spans::Span> entries = spans::ArrayElements(view, place.value);
  for (std::size_t i = 0; i < sets.size() && i < entries.size(); ++i) {
    const bool dichotomies = sets[i].GetType() == VariableSet::kMultipleDichotomySet;
    sets[i].SetStoreExtras(RawExtras(view, entries[i], dichotomies));
  }
  return place;
}

CodebookText ReadCarefully(std::string& text, const std::string& file) {
  const nlohmann::ordered_json document = ParseDescriptor(text, file);
  CodebookText result{ReadDescriptor(document, file), {}};
  result.place = LocateSets(text, result.contents.sets);
  return result;
}

}  // namespace

CodebookText ReadCodebookText(std::string& text, const std::string& file) {
  if (text.capacity() < text.size() + simdjson::SIMDJSON_PADDING) {
    text.reserve(text.size() + simdjson::SIMDJSON_PADDING);
  }
  CodebookText result;
  {
    simdjson::dom::parser parser(text.size());
    Element root;
    if (parser.allocate(text.size(), kMaxJsonNesting - 1) != simdjson::SUCCESS ||
        parser.parse(text.data(), text.size(), false).get(root) != simdjson::SUCCESS) {
      return ReadCarefully(text, file);
    }
    result.contents = DocumentReader(file).Read(root);
  }
  result.place = LocateSets(text, result.contents.sets);
  return result;
}

}  // namespace hostlib::data
