// The codebook format: a Table Schema descriptor (JSON) with one more
// property, "multipleResponseSets". Reading interprets the fields (name,
// type, constraints.maxLength of strings, title, categories) and the sets;
// every fault names the file and a JSON pointer. Unknown keys of a set
// travel with the set (VariableSet::StoreExtras, a JSON object text).
//
// Private to the data layer: the JSON type does not leave it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset.h"

namespace hostlib::data {

inline constexpr const char* kCodebookFieldsKey = "fields";
inline constexpr const char* kCodebookSetsKey = "multipleResponseSets";

struct Descriptor {
  nlohmann::ordered_json json;
};

// The parsed text; throws DatasetError naming the line and column of a
// fault.
nlohmann::ordered_json ParseDescriptor(const std::string& text, const std::string& file);

struct DescriptorContents {
  std::vector<VORN_Variable> variables;
  std::vector<VariableSet> sets;
};
// What the host interprets of a parsed descriptor; throws DatasetError.
// `pointer` is where the descriptor stands in a larger document (a data
// package's resource); messages name places from it.
DescriptorContents ReadDescriptor(const nlohmann::ordered_json& document, const std::string& file,
                                  const std::string& pointer = {});

// A field and a set list as a new codebook file writes them.
nlohmann::ordered_json RenderCodebookField(const VORN_Variable& variable);
nlohmann::ordered_json RenderCodebookSets(const std::vector<VariableSet>& sets);

// The text a codebook file holds; throws DatasetError ("`path`: not saved:
// ...") for what cannot be written as JSON.
std::string DumpDescriptor(const nlohmann::ordered_json& document,
                           const std::filesystem::path& path);

}  // namespace hostlib::data
