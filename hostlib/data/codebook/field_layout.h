// A codebook field or category entry as columns plus a layout: the object as
// the codebook had it, with the keys the columns hold set to null, so that
// the other keys and the order of all come back. No layout: the object is
// the one a new codebook file would write. The dataset database keeps fields
// and categories so.
//
// Private to the data layer: the JSON type does not leave it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/data_source.h"

namespace hostlib::data {

struct CategoryRecord {
  nlohmann::ordered_json value;
  std::optional<std::string> label;
  bool bare = false;
  std::optional<std::string> layout;
};

struct FieldRecord {
  std::string name;
  int width = 0;
  std::optional<std::string> type;
  std::optional<std::string> label;
  std::optional<std::string> layout;
  std::vector<CategoryRecord> categories;
};

// The entries as a codebook holds them.
nlohmann::ordered_json JoinCategory(const CategoryRecord& record);
nlohmann::ordered_json JoinField(const FieldRecord& record);

// A field of a codebook the variable was read from.
FieldRecord SplitField(const nlohmann::ordered_json& field, const VORN_Variable& variable);
// A variable that no codebook file describes.
FieldRecord FieldOf(const VORN_Variable& variable);

// The descriptor from its top level's layout (the top-level object with
// "fields" and "multipleResponseSets" null), its fields and its sets.
nlohmann::ordered_json JoinDocument(const std::optional<std::string>& layout,
                                    nlohmann::ordered_json fields, nlohmann::ordered_json sets);
// The layout JoinDocument takes.
std::string SplitDocument(const nlohmann::ordered_json& descriptor);

}  // namespace hostlib::data
