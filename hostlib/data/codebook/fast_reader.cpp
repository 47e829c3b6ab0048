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

std::string Child(const std::string& place, std::string_view key) {
  return place + "/" + std::string(key);
}

std::string Child(const std::string& place, std::size_t index) {
  return place + "/" + std::to_string(index);
}

// ---- the fast path: a parsed document -----------------------------------

// The value of the last member named `key` (a repeated key counts as its
// last value), if any.
std::optional<Element> Member(simdjson::dom::object object, std::string_view key) {
  std::optional<Element> found;
  for (const auto member : object) {
    if (member.key == key) found = member.value;
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
    if (root.type() != Type::OBJECT) Fail("the top level must be a JSON object");
    const simdjson::dom::object top(root);
    DescriptorContents contents;
    contents.variables = ReadFields(top);
    contents.sets = ReadSets(top);
    return contents;
  }

 private:
  [[noreturn]] void Fail(const std::string& fault) const {
    throw DatasetError(file_ + ": " + fault);
  }
  [[noreturn]] void Fail(const std::string& place, const std::string& fault) const {
    throw DatasetError(file_ + ": " + place + ": " + fault);
  }

  [[noreturn]] void FailDuplicate(const std::string& place, std::string_view name,
                                  std::string_view firstName, const std::string& firstPlace) const {
    Fail(place, "duplicate name " + Quoted(name) + " (the same as " + Quoted(firstName) + " at " +
                    firstPlace + ", without regard to case)");
  }

  std::optional<std::string_view> OptionalString(simdjson::dom::object object,
                                                 const std::string& place,
                                                 std::string_view key) const {
    const auto value = Member(object, key);
    if (!value) return std::nullopt;
    if (value->type() != Type::STRING) Fail(Child(place, key), "must be a string");
    return std::string_view(*value);
  }

  std::string_view RequiredString(simdjson::dom::object object, const std::string& place,
                                  std::string_view key) const {
    const auto value = OptionalString(object, place, key);
    if (!value) Fail(Child(place, key), "is missing");
    return *value;
  }

  void CheckNoNul(std::string_view name, const std::string& place) const {
    if (name.find('\0') != std::string_view::npos) {
      Fail(place, "must not hold the character U+0000");
    }
  }

  std::vector<VORN_Variable> ReadFields(simdjson::dom::object top) const {
    const std::string place = std::string("/") + kCodebookFieldsKey;
    const auto fields = Member(top, kCodebookFieldsKey);
    if (!fields) Fail(place, "is missing");
    if (fields->type() != Type::ARRAY) Fail(place, "must be an array");
    const simdjson::dom::array list(*fields);
    std::vector<VORN_Variable> variables;
    variables.reserve(list.size());
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    indexByFoldedName.reserve(list.size());
    std::size_t i = 0;
    for (const Element field : list) {
      variables.push_back(ReadField(field, Child(place, i)));
      const std::string name = variables.back().GetName();
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        FailDuplicate(Child(Child(place, i), "name"), name, variables[first->second].GetName(),
                      Child(Child(place, first->second), "name"));
      }
      ++i;
    }
    return variables;
  }

  VORN_Variable ReadField(const Element& element, const std::string& place) const {
    if (element.type() != Type::OBJECT) Fail(place, "must be an object");
    const simdjson::dom::object field(element);
    const std::string_view name = RequiredString(field, place, "name");
    CheckNoNul(name, Child(place, "name"));
    if (name.empty()) Fail(Child(place, "name"), "must not be empty");
    // Table Schema: a field without a type is a string field.
    const auto type = OptionalString(field, place, "type");
    if (type && std::find(kFieldTypes.begin(), kFieldTypes.end(), *type) == kFieldTypes.end()) {
      Fail(Child(place, "type"), "unknown type " + Quoted(*type));
    }
    const bool isString = !type || *type == "string";
    const int width = isString ? ReadWidth(field, place) : 0;
    const auto title = OptionalString(field, place, "title");
    return VORN_Variable(std::string(name), width, title ? std::string(*title) : std::string(),
                         ReadCategories(field, place, isString));
  }

  int ReadWidth(simdjson::dom::object field, const std::string& place) const {
    const auto constraints = Member(field, "constraints");
    if (!constraints) return kDefaultStringWidth;
    const std::string constraintsPlace = Child(place, "constraints");
    if (constraints->type() != Type::OBJECT) Fail(constraintsPlace, "must be an object");
    const auto maxLength = Member(simdjson::dom::object(*constraints), "maxLength");
    if (!maxLength) return kDefaultStringWidth;
    const bool isInteger = maxLength->type() == Type::INT64 || maxLength->type() == Type::UINT64;
    const double width = isInteger ? NumberOf(*maxLength) : 0;
    if (!isInteger || width < 1 || width > kMaxStringWidth) {
      Fail(Child(constraintsPlace, "maxLength"),
           "must be an integer from 1 to " + std::to_string(kMaxStringWidth));
    }
    return static_cast<int>(width);
  }

  VORN_ValueLabels ReadCategories(simdjson::dom::object field, const std::string& place,
                                  bool isString) const {
    VORN_ValueLabels labels;
    const auto categories = Member(field, "categories");
    if (!categories) return labels;
    const std::string categoriesPlace = Child(place, "categories");
    if (categories->type() != Type::ARRAY) Fail(categoriesPlace, "must be an array");
    std::map<double, std::size_t> numbers;
    std::map<std::string, std::size_t, std::less<>> texts;
    std::size_t i = 0;
    for (const Element entry : simdjson::dom::array(*categories)) {
      const std::string entryPlace = Child(categoriesPlace, i);
      // Table Schema allows a bare value as well as {"value": ..., "label": ...}.
      Element value = entry;
      std::string valuePlace = entryPlace;
      std::optional<std::string_view> label;
      if (entry.type() == Type::OBJECT) {
        valuePlace = Child(entryPlace, "value");
        const auto found = Member(simdjson::dom::object(entry), "value");
        if (!found) Fail(valuePlace, "is missing");
        value = *found;
        label = OptionalString(simdjson::dom::object(entry), entryPlace, "label");
      }
      const auto checkNew = [&](auto& seen, const auto& key) {
        const auto [first, inserted] = seen.emplace(key, i);
        if (!inserted) {
          Fail(valuePlace,
               "the value is already listed at " + Child(categoriesPlace, first->second));
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

  std::vector<VariableSet> ReadSets(simdjson::dom::object top) const {
    const auto sets = Member(top, kCodebookSetsKey);
    if (!sets) return {};
    const std::string place = std::string("/") + kCodebookSetsKey;
    if (sets->type() != Type::ARRAY) Fail(place, "must be an array");
    std::vector<VariableSet> result;
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    std::size_t i = 0;
    for (const Element entry : simdjson::dom::array(*sets)) {
      result.push_back(ReadSet(entry, Child(place, i)));
      const std::string name = result.back().GetName(kAsStored);
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        FailDuplicate(Child(Child(place, i), "name"), name,
                      result[first->second].GetName(kAsStored),
                      Child(Child(place, first->second), "name"));
      }
      ++i;
    }
    return result;
  }

  VariableSet ReadSet(const Element& element, const std::string& place) const {
    if (element.type() != Type::OBJECT) Fail(place, "must be an object");
    const simdjson::dom::object entry(element);
    const std::string name(RequiredString(entry, place, "name"));
    CheckNoNul(name, Child(place, "name"));
    const std::string_view type = RequiredString(entry, place, "type");
    const bool dichotomies = type == "dichotomies";
    if (!dichotomies && type != "categories") {
      Fail(Child(place, "type"), R"(must be "dichotomies" or "categories")");
    }
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    if (const auto label = OptionalString(entry, place, "label")) set.SetLabel(std::string(*label));
    if (const auto source = OptionalString(entry, place, "labelSource")) {
      if (*source != "variableLabel") {
        Fail(Child(place, "labelSource"), R"(must be "variableLabel")");
      }
      set.LabelSetByVariable(true);
    }
    if (dichotomies) {
      set.SetValue(std::string(RequiredString(entry, place, "countedValue")));
      if (const auto labels = OptionalString(entry, place, "categoryLabels")) {
        if (*labels != "countedValues" && *labels != "variableLabels") {
          Fail(Child(place, "categoryLabels"), R"(must be "countedValues" or "variableLabels")");
        }
        set.UseVariableCategoryLabels(*labels == "countedValues");
      }
    }
    const std::string variablesPlace = Child(place, "variables");
    const auto variables = Member(entry, "variables");
    if (!variables) Fail(variablesPlace, "is missing");
    if (variables->type() != Type::ARRAY) {
      Fail(variablesPlace, "must be an array of variable names");
    }
    std::size_t i = 0;
    for (const Element member : simdjson::dom::array(*variables)) {
      if (member.type() != Type::STRING) Fail(Child(variablesPlace, i), "must be a string");
      CheckNoNul(std::string_view(member), Child(variablesPlace, i));
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

SetsPlace LocateSets(std::string_view text, std::vector<VariableSet>& sets) {
  const std::size_t rootBegin = spans::SkipWhitespace(text, 0);
  const spans::Span root{rootBegin, spans::SkipValue(text, rootBegin)};
  const std::vector<spans::Member> members = spans::ObjectMembers(text, root);
  SetsPlace place;
  place.indent = members.empty() ? "  " : IndentBefore(text, members.front().key.begin);
  // A repeated key counts as its last value; that is the one replaced.
  for (const spans::Member& member : members) {
    if (spans::KeyText(text, member.key) == kCodebookSetsKey) {
      place.present = true;
      place.value = member.value;
      place.indent = IndentBefore(text, member.key.begin);
    }
  }
  place.insertAt = members.empty() ? root.begin + 1 : members.back().value.end;
  if (!place.present) return place;
  const std::vector<spans::Span> entries = spans::ArrayElements(text, place.value);
  for (std::size_t i = 0; i < sets.size() && i < entries.size(); ++i) {
    const bool dichotomies = sets[i].GetType() == VariableSet::kMultipleDichotomySet;
    sets[i].SetStoreExtras(RawExtras(text, entries[i], dichotomies));
  }
  return place;
}

CodebookText ReadCarefully(const std::string& text, const std::string& file) {
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
