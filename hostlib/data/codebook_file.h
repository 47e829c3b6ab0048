// The codebook file: a dataset kept as a Table Schema descriptor (JSON) with
// one more property, "multipleResponseSets".
//
// Load interprets the fields (name, type, constraints.maxLength of strings,
// title, categories) and the sets; everything else of the file is kept and
// written back as it was. Save replaces only "multipleResponseSets". Unknown
// keys of a set travel with the set (VariableSet::StoreExtras, a JSON object
// text), so a set that a command copies keeps them and a redefined one drops
// them.
//
// A command holds an flock on "<file>.lock" beside the file (beside the file
// a symbolic link points at); the file is read anew when its inode, size or
// modification time differ from those of the file last read or written.
#pragma once

#include <filesystem>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset_store.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

inline constexpr const char* kCodebookFieldsKey = "fields";
inline constexpr const char* kCodebookSetsKey = "multipleResponseSets";

// A field and a set list as a new codebook file writes them.
nlohmann::ordered_json RenderCodebookField(const VORN_Variable& variable);
nlohmann::ordered_json RenderCodebookSets(const std::vector<VariableSet>& sets);

class CodebookFile final : public DatasetStore {
 public:
  explicit CodebookFile(std::filesystem::path path);

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  // Before any Load, writes a whole new descriptor from the dataset.
  void Save(const Dataset& dataset) override;
  std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override { lock_.Release(); }
  void AbortCommand() noexcept override { lock_.Release(); }

  // The descriptor as last loaded or saved; null before either.
  const nlohmann::ordered_json& Document() const { return document_; }

 private:
  nlohmann::ordered_json Render(const Dataset& dataset) const;

  std::filesystem::path path_;
  nlohmann::ordered_json document_;
  std::vector<VariableSet> storedSets_;  // the sets as the file holds them
  bool loaded_ = false;
  files::FileIdentity identity_;  // of the file last read or written
  files::FileLock lock_;
};

}  // namespace hostlib::data
