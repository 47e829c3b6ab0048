// The codebook file: a dataset kept as a Table Schema descriptor (JSON) with
// one more property, "multipleResponseSets".
//
// Load interprets the fields (name, type, constraints.maxLength of strings,
// title, categories) and the sets; everything else of the file is kept and
// written back as it was. Save replaces only "multipleResponseSets". Unknown
// keys of a set travel with the set (VariableSet::StoreExtras, a JSON object
// text), so a set that a command copies keeps them and a redefined one drops
// them.
#pragma once

#include <filesystem>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset_store.h"

namespace hostlib::data {

class CodebookFile final : public DatasetStore {
 public:
  explicit CodebookFile(std::filesystem::path path);

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  // Before any Load, writes a whole new descriptor from the dataset.
  void Save(const Dataset& dataset) override;

  // The descriptor as last loaded or saved; null before either.
  const nlohmann::ordered_json& Document() const { return document_; }

 private:
  nlohmann::ordered_json Render(const Dataset& dataset) const;

  std::filesystem::path path_;
  nlohmann::ordered_json document_;
  std::vector<VariableSet> storedSets_;  // the sets as the file holds them
  bool loaded_ = false;
};

}  // namespace hostlib::data
