#include "hostlib/data/codebook/descriptor.h"

#include "hostlib/data/codebook/json_nesting.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "hostlib/strings/unicode.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

const std::string kFieldsKey = kCodebookFieldsKey;
const std::string kSetsKey = kCodebookSetsKey;
constexpr int kDefaultStringWidth = 255;
constexpr int kMaxStringWidth = 32767;

constexpr std::array<std::string_view, 16> kFieldTypes = {
    "string", "number",   "integer", "boolean",   "object",   "array",    "list",    "date",
    "time",   "datetime", "year",    "yearmonth", "duration", "geopoint", "geojson", "any"};

std::string Quoted(std::string_view text) {
  return Json(std::string(text)).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Child(const std::string& place, std::string_view key) {
  return place + "/" + std::string(key);
}

std::string Child(const std::string& place, std::size_t index) {
  return place + "/" + std::to_string(index);
}

// ---- reading -------------------------------------------------------------

// Line and column (in characters) of a byte offset, both from 1.
std::pair<std::size_t, std::size_t> LineAndColumn(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::string_view before = text.substr(0, offset);
  const std::size_t line =
      1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::size_t lineStart =
      before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  return {line, 1 + strings::CharacterCount(before.substr(lineStart))};
}

}  // namespace

namespace {

std::string Position(std::string_view text, std::size_t offset) {
  const auto [line, column] = LineAndColumn(text, offset);
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

Json ParseDescriptor(const std::string& text, const std::string& file) {
  if (const auto fault = FindNestingFault(text)) {
    throw DatasetError(file + ": " + Position(text, fault->offset) + ": " +
                       (fault->pointer.empty() ? "/" : fault->pointer) + ": nested more than " +
                       std::to_string(kMaxJsonNesting) + " levels deep");
  }
  try {
    return Json::parse(text);
  } catch (const Json::out_of_range& error) {
    // A number beyond what a double holds ("1e999"): point at its first
    // appearance.
    std::string_view detail = error.what();
    std::string place;
    if (const auto quote = detail.find('\''); quote != std::string_view::npos) {
      const std::string_view number = detail.substr(quote + 1, detail.rfind('\'') - quote - 1);
      if (const auto at = text.find(number); at != std::string::npos) {
        place = Position(text, at) + ": ";
      }
    }
    if (const auto cut = detail.find("] "); cut != std::string_view::npos) {
      detail.remove_prefix(cut + 2);
    }
    throw DatasetError(file + ": " + place + "not valid JSON: " + std::string(detail));
  } catch (const Json::parse_error& error) {
    // The library counts the offending byte from 1; point at it.
    const auto [line, column] = LineAndColumn(text, error.byte == 0 ? 0 : error.byte - 1);
    // Drop the library's own "[json.exception...] parse error at ...: " prefix.
    std::string_view detail = error.what();
    if (const auto cut = detail.find(": "); cut != std::string_view::npos) {
      detail.remove_prefix(cut + 2);
    }
    // "last read" quotes raw input, which need not be UTF-8; the position says enough.
    std::string fault(detail);
    if (const auto lastRead = fault.find("; last read: "); lastRead != std::string::npos) {
      const auto expected = fault.find("; expected", lastRead);
      fault.erase(lastRead,
                  expected == std::string::npos ? std::string::npos : expected - lastRead);
    }
    throw DatasetError(file + ": line " + std::to_string(line) + ", column " +
                       std::to_string(column) + ": not valid JSON: " + fault);
  }
}

namespace {

// Reads a parsed descriptor; every fault names the file and a JSON pointer.
class DescriptorReader {
 public:
  explicit DescriptorReader(std::string file, std::string pointer = {})
      : file_(std::move(file)), pointer_(std::move(pointer)) {}

  std::vector<VORN_Variable> ReadFields(const Json& document) const {
    const auto fields = document.find(kFieldsKey);
    const std::string place = pointer_ + "/" + kFieldsKey;
    if (fields == document.end()) {
      Fail(place, "is missing");
    }
    if (!fields->is_array()) {
      Fail(place, "must be an array");
    }
    std::vector<VORN_Variable> variables;
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    for (std::size_t i = 0; i < fields->size(); ++i) {
      variables.push_back(ReadField((*fields)[i], Child(place, i)));
      const std::string name = variables.back().GetName();
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        FailDuplicate(Child(Child(place, i), "name"), name, variables[first->second].GetName(),
                      Child(Child(place, first->second), "name"));
      }
    }
    return variables;
  }

  std::vector<VariableSet> ReadSets(const Json& document) const {
    const auto sets = document.find(kSetsKey);
    if (sets == document.end()) {
      return {};
    }
    const std::string place = pointer_ + "/" + kSetsKey;
    if (!sets->is_array()) {
      Fail(place, "must be an array");
    }
    std::vector<VariableSet> result;
    std::unordered_map<std::string, std::size_t> indexByFoldedName;
    for (std::size_t i = 0; i < sets->size(); ++i) {
      result.push_back(ReadSet((*sets)[i], Child(place, i)));
      const std::string name = result.back().GetName(kAsStored);
      const auto [first, inserted] = indexByFoldedName.emplace(FoldName(name), i);
      if (!inserted) {
        FailDuplicate(Child(Child(place, i), "name"), name,
                      result[first->second].GetName(kAsStored),
                      Child(Child(place, first->second), "name"));
      }
    }
    return result;
  }

 private:
  [[noreturn]] void Fail(const std::string& place, const std::string& fault) const {
    throw DatasetError(file_ + ": " + place + ": " + fault);
  }

  [[noreturn]] void FailDuplicate(const std::string& place, std::string_view name,
                                  std::string_view firstName, const std::string& firstPlace) const {
    Fail(place, "duplicate name " + Quoted(name) + " (the same as " + Quoted(firstName) + " at " +
                    firstPlace + ", without regard to case)");
  }

  // Null when the key is absent; otherwise the value, which must be a string.
  const std::string* OptionalString(const Json& object, const std::string& place,
                                    const std::string& key) const {
    const auto found = object.find(key);
    if (found == object.end()) {
      return nullptr;
    }
    if (!found->is_string()) {
      Fail(Child(place, key), "must be a string");
    }
    return found->get_ptr<const std::string*>();
  }

  const std::string& RequiredString(const Json& object, const std::string& place,
                                    const std::string& key) const {
    const std::string* value = OptionalString(object, place, key);
    if (value == nullptr) {
      Fail(Child(place, key), "is missing");
    }
    return *value;
  }

  // A name holds no NUL: the host passes names on as C strings.
  const std::string& RequiredName(const Json& object, const std::string& place) const {
    const std::string& name = RequiredString(object, place, "name");
    if (name.find('\0') != std::string::npos) {
      Fail(Child(place, "name"), "must not hold the character U+0000");
    }
    return name;
  }

  VORN_Variable ReadField(const Json& field, const std::string& place) const {
    if (!field.is_object()) {
      Fail(place, "must be an object");
    }
    const std::string& name = RequiredName(field, place);
    if (name.empty()) {
      Fail(Child(place, "name"), "must not be empty");
    }
    // Table Schema: a field without a type is a string field.
    const std::string* type = OptionalString(field, place, "type");
    if (type != nullptr &&
        std::find(kFieldTypes.begin(), kFieldTypes.end(), *type) == kFieldTypes.end()) {
      Fail(Child(place, "type"), "unknown type " + Quoted(*type));
    }
    const bool isString = type == nullptr || *type == "string";
    const int width = isString ? ReadWidth(field, place) : 0;
    // A field with no title is labelled by its description.
    const std::string* title = OptionalString(field, place, "title");
    if (title == nullptr) title = OptionalString(field, place, "description");
    return VORN_Variable(name, width, title != nullptr ? *title : std::string(),
                         ReadCategories(field, place, isString));
  }

  int ReadWidth(const Json& field, const std::string& place) const {
    const auto constraints = field.find("constraints");
    if (constraints == field.end()) {
      return kDefaultStringWidth;
    }
    const std::string constraintsPlace = Child(place, "constraints");
    if (!constraints->is_object()) {
      Fail(constraintsPlace, "must be an object");
    }
    const auto maxLength = constraints->find("maxLength");
    if (maxLength == constraints->end()) {
      return kDefaultStringWidth;
    }
    const bool inRange = maxLength->is_number_unsigned()
                             ? maxLength->get<std::uint64_t>() >= 1 &&
                                   maxLength->get<std::uint64_t>() <= kMaxStringWidth
                             : maxLength->is_number_integer() &&
                                   maxLength->get<std::int64_t>() >= 1 &&
                                   maxLength->get<std::int64_t>() <= kMaxStringWidth;
    if (!inRange) {
      Fail(Child(constraintsPlace, "maxLength"),
           "must be an integer from 1 to " + std::to_string(kMaxStringWidth));
    }
    return maxLength->get<int>();
  }

  VORN_ValueLabels ReadCategories(const Json& field, const std::string& place,
                                  bool isString) const {
    VORN_ValueLabels labels;
    const auto categories = field.find("categories");
    if (categories == field.end()) {
      return labels;
    }
    const std::string categoriesPlace = Child(place, "categories");
    if (!categories->is_array()) {
      Fail(categoriesPlace, "must be an array");
    }
    std::map<double, std::size_t> numbers;
    std::map<std::string, std::size_t> texts;
    for (std::size_t i = 0; i < categories->size(); ++i) {
      const Json& entry = (*categories)[i];
      const std::string entryPlace = Child(categoriesPlace, i);
      // Table Schema allows a bare value as well as {"value": ..., "label": ...}.
      const Json* value = &entry;
      std::string valuePlace = entryPlace;
      const std::string* label = nullptr;
      if (entry.is_object()) {
        valuePlace = Child(entryPlace, "value");
        const auto found = entry.find("value");
        if (found == entry.end()) {
          Fail(valuePlace, "is missing");
        }
        value = &*found;
        label = OptionalString(entry, entryPlace, "label");
      }
      const auto checkNew = [&](auto& seen, const auto& key) {
        const auto [first, inserted] = seen.emplace(key, i);
        if (!inserted) {
          Fail(valuePlace,
               "the value is already listed at " + Child(categoriesPlace, first->second));
        }
      };
      if (isString) {
        if (!value->is_string()) {
          Fail(valuePlace, "must be a string, as the field is a string field");
        }
        const auto& text = value->get_ref<const std::string&>();
        checkNew(texts, text);
        if (label != nullptr) {
          labels.text.emplace(text, *label);
        }
      } else {
        if (!value->is_number()) {
          Fail(valuePlace, "must be a number, as the field is numeric");
        }
        const double number = value->get<double>();
        checkNew(numbers, number);
        if (label != nullptr) {
          labels.numeric.emplace(number, *label);
        }
      }
    }
    return labels;
  }

  VariableSet ReadSet(const Json& entry, const std::string& place) const {
    if (!entry.is_object()) {
      Fail(place, "must be an object");
    }
    const std::string& name = RequiredName(entry, place);
    const std::string& type = RequiredString(entry, place, "type");
    const bool dichotomies = type == "dichotomies";
    if (!dichotomies && type != "categories") {
      Fail(Child(place, "type"), R"(must be "dichotomies" or "categories")");
    }
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    if (const std::string* label = OptionalString(entry, place, "label")) {
      set.SetLabel(*label);
    }
    if (const std::string* source = OptionalString(entry, place, "labelSource")) {
      if (*source != "variableLabel") {
        Fail(Child(place, "labelSource"), R"(must be "variableLabel")");
      }
      set.LabelSetByVariable(true);
    }
    if (dichotomies) {
      set.SetValue(RequiredString(entry, place, "countedValue"));
      if (const std::string* labels = OptionalString(entry, place, "categoryLabels")) {
        if (*labels != "countedValues" && *labels != "variableLabels") {
          Fail(Child(place, "categoryLabels"), R"(must be "countedValues" or "variableLabels")");
        }
        set.UseVariableCategoryLabels(*labels == "countedValues");
      }
    }
    const std::string variablesPlace = Child(place, "variables");
    const auto variables = entry.find("variables");
    if (variables == entry.end()) {
      Fail(variablesPlace, "is missing");
    }
    if (!variables->is_array()) {
      Fail(variablesPlace, "must be an array of variable names");
    }
    for (std::size_t i = 0; i < variables->size(); ++i) {
      if (!(*variables)[i].is_string()) {
        Fail(Child(variablesPlace, i), "must be a string");
      }
      const auto& member = (*variables)[i].get_ref<const std::string&>();
      if (member.find('\0') != std::string::npos) {
        Fail(Child(variablesPlace, i), "must not hold the character U+0000");
      }
      set.AddVariableName(member);
    }
    // A category set has no counted value or category labels; such keys are
    // kept with the set's other unknown keys.
    Json extras = Json::object();
    for (const auto& [key, value] : entry.items()) {
      const bool known = key == "name" || key == "type" || key == "label" || key == "labelSource" ||
                         key == "variables" ||
                         (dichotomies && (key == "countedValue" || key == "categoryLabels"));
      if (!known) {
        extras[key] = value;
      }
    }
    if (!extras.empty()) {
      set.SetStoreExtras(extras.dump());
    }
    return set;
  }

  std::string file_;
  std::string pointer_;  // where the descriptor stands in the file
};

// ---- writing -------------------------------------------------------------

Json RenderNumber(double value) {
  // Whole numbers as integers, so that 1 stays 1 rather than 1.0.
  constexpr double kExactIntegers = 9007199254740992.0;  // 2^53
  if (std::trunc(value) == value && std::fabs(value) <= kExactIntegers) {
    return static_cast<std::int64_t>(value);
  }
  return value;
}

}  // namespace

Json RenderCodebookField(const VORN_Variable& variable) {
  Json field = Json::object();
  field["name"] = variable.GetName();
  if (variable.GetType() > 0) {
    field["type"] = "string";
    field["constraints"] = {{"maxLength", variable.GetType()}};
  } else {
    field["type"] = "number";
  }
  if (variable.GetLabel() != nullptr) {
    field["title"] = variable.GetLabel();
  }
  const VORN_ValueLabels& labels = variable.GetValueLabels().Labels();
  Json categories = Json::array();
  if (variable.GetType() > 0) {
    for (const auto& [value, label] : labels.text) {
      categories.push_back({{"value", value}, {"label", label}});
    }
  } else {
    for (const auto& [value, label] : labels.numeric) {
      categories.push_back({{"value", RenderNumber(value)}, {"label", label}});
    }
  }
  if (!categories.empty()) {
    field["categories"] = std::move(categories);
  }
  return field;
}

namespace {

Json RenderSet(const VariableSet& set) {
  Json out = Json::object();
  const std::string name = set.GetName(kAsStored);
  out["name"] = name;
  const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
  out["type"] = dichotomies ? "dichotomies" : "categories";
  if (!set.GetLabel().empty()) {
    out["label"] = set.GetLabel();
  }
  if (dichotomies) {
    out["countedValue"] = set.GetValue();
    out["categoryLabels"] = set.qUseVariableCategoryLabels() ? "countedValues" : "variableLabels";
  }
  if (set.qLabelSetByVariable()) {
    out["labelSource"] = "variableLabel";
  }
  out["variables"] = set.GetVariableNames(kAsStored);
  if (!set.StoreExtras().empty()) {
    Json extras = Json::parse(set.StoreExtras(), nullptr, false);
    if (!extras.is_object()) {
      throw DatasetError("the stored extras of set " + Quoted(name) + " are not a JSON object");
    }
    for (auto& [key, value] : extras.items()) {
      if (!out.contains(key)) {
        out[key] = std::move(value);
      }
    }
  }
  return out;
}

}  // namespace

Json RenderCodebookSets(const std::vector<VariableSet>& sets) {
  Json out = Json::array();
  for (const auto& set : sets) {
    out.push_back(RenderSet(set));
  }
  return out;
}

DescriptorContents ReadDescriptor(const Json& document, const std::string& file,
                                  const std::string& pointer) {
  if (!document.is_object()) {
    throw DatasetError(file + ": " + (pointer.empty() ? "the top level" : pointer) +
                       " must be a JSON object");
  }
  const DescriptorReader reader(file, pointer);
  DescriptorContents contents;
  contents.variables = reader.ReadFields(document);
  contents.sets = reader.ReadSets(document);
  return contents;
}

std::string DumpDescriptor(const Json& document, const std::filesystem::path& path) {
  try {
    return document.dump(2) + "\n";
  } catch (const Json::exception& error) {
    throw DatasetError(path.string() + ": not saved: " + error.what());
  }
}

}  // namespace hostlib::data
