#include "hostlib/data/codebook/field_layout.h"

#include <utility>

#include "hostlib/data/codebook/descriptor.h"

namespace hostlib::data {

using Json = nlohmann::ordered_json;

Json JoinCategory(const CategoryRecord& record) {
  if (record.bare) return record.value;
  if (!record.layout) {
    Json entry = {{"value", record.value}};
    if (record.label) entry["label"] = *record.label;
    return entry;
  }
  Json entry = Json::parse(*record.layout);
  for (auto& [key, value] : entry.items()) {
    if (key == "value") value = record.value;
    if (key == "label" && record.label) value = *record.label;
  }
  return entry;
}

Json JoinField(const FieldRecord& record) {
  const std::string type = record.type.value_or(record.width > 0 ? "string" : "number");
  Json categories = Json::array();
  for (const CategoryRecord& category : record.categories) {
    categories.push_back(JoinCategory(category));
  }
  if (!record.layout) {
    Json field = {{"name", record.name}, {"type", type}};
    if (record.width > 0) field["constraints"] = {{"maxLength", record.width}};
    if (record.label) field["title"] = *record.label;
    if (!categories.empty()) field["categories"] = std::move(categories);
    return field;
  }
  Json field = Json::parse(*record.layout);
  for (auto& [key, value] : field.items()) {
    if (key == "name") {
      value = record.name;
    } else if (key == "type") {
      value = type;
    } else if (key == "title" && record.label) {
      value = *record.label;
    } else if (key == "categories") {
      value = categories;
    } else if (key == "constraints" && record.width > 0 && value.is_object() &&
               value.contains("maxLength") && value["maxLength"].is_null()) {
      value["maxLength"] = record.width;
    }
  }
  return field;
}

namespace {

CategoryRecord SplitCategory(const Json& entry) {
  CategoryRecord record;
  if (!entry.is_object()) {
    record.value = entry;
    record.bare = true;
    return record;
  }
  record.value = entry.at("value");
  if (const auto label = entry.find("label"); label != entry.end()) {
    record.label = label->get<std::string>();
  }
  if (JoinCategory(record) != entry) {
    Json layout = entry;
    layout["value"] = nullptr;
    if (record.label) layout["label"] = nullptr;
    record.layout = layout.dump();
  }
  return record;
}

}  // namespace

FieldRecord SplitField(const Json& field, const VORN_Variable& variable) {
  FieldRecord record{variable.GetName(), variable.GetType(), {}, {}, {}, {}};
  if (const auto type = field.find("type"); type != field.end()) {
    record.type = type->get<std::string>();
  }
  if (const auto title = field.find("title"); title != field.end()) {
    record.label = title->get<std::string>();
  }
  if (const auto categories = field.find("categories"); categories != field.end()) {
    for (const Json& entry : *categories) record.categories.push_back(SplitCategory(entry));
  }
  if (JoinField(record) != field) {
    Json layout = field;
    for (const char* key : {"name", "type", "title", "categories"}) {
      if (layout.contains(key)) layout[key] = nullptr;
    }
    if (record.width > 0 && layout.contains("constraints") &&
        layout["constraints"].contains("maxLength")) {
      layout["constraints"]["maxLength"] = nullptr;
    }
    record.layout = layout.dump();
  }
  return record;
}

FieldRecord FieldOf(const VORN_Variable& variable) {
  const Json field = RenderCodebookField(variable);
  FieldRecord record = SplitField(field, variable);
  return record;
}

Json JoinDocument(const std::optional<std::string>& layout, Json fields, Json sets) {
  if (!layout) {
    return {{kCodebookFieldsKey, std::move(fields)}, {kCodebookSetsKey, std::move(sets)}};
  }
  Json document = Json::parse(*layout);
  const bool hasSets = document.contains(kCodebookSetsKey);
  for (auto& [key, value] : document.items()) {
    if (key == kCodebookFieldsKey) value = fields;
    if (key == kCodebookSetsKey) value = sets;
  }
  // A layout always marks where the fields go; one that lost the mark (a
  // file changed by hand) still gets them.
  if (!document.contains(kCodebookFieldsKey)) document[kCodebookFieldsKey] = std::move(fields);
  // An absent list stays absent while there is nothing to put in it.
  if (!hasSets && !sets.empty()) document[kCodebookSetsKey] = std::move(sets);
  return document;
}

std::string SplitDocument(const Json& descriptor) {
  // Member by member: a copy of the whole descriptor would copy every field.
  Json top = Json::object();
  for (const auto& [key, value] : descriptor.items()) {
    const bool split = key == kCodebookFieldsKey || key == kCodebookSetsKey;
    top[key] = split ? Json(nullptr) : value;
  }
  if (!descriptor.contains(kCodebookFieldsKey)) top[kCodebookFieldsKey] = nullptr;
  return top.dump();
}

}  // namespace hostlib::data
