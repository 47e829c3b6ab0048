// A Data Package (datapackage.json) as a dataset store: the schema of one of
// its tabular resources is the dictionary, and the sets are kept in that
// schema under "multipleResponseSets", as in a codebook file.
//
// "-d datapackage.json#NAME" picks the resource named NAME; without a name
// the package must have exactly one tabular resource (one with a schema).
// Only a schema written inside the package can be opened. Save changes the
// bytes of the sets and nothing else of the file.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset_store.h"
#include "hostlib/files/files.h"

namespace hostlib::formats {

class DataPackageStore final : public data::DatasetStore {
 public:
  DataPackageStore(std::filesystem::path path, std::string resource);

  const std::filesystem::path& Path() const override { return path_; }
  data::Dataset Load() override;
  bool WouldChange(const data::Dataset& dataset) const override;
  void Save(const data::Dataset& dataset) override;
  std::optional<data::Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override { lock_.Release(); }
  void AbortCommand() noexcept override { lock_.Release(); }

  // The chosen resource's schema as last loaded (a codebook descriptor).
  const nlohmann::ordered_json& Schema() const { return schema_; }

 private:
  std::filesystem::path path_;
  std::string resource_;  // as asked; empty for "the only tabular one"
  std::string text_;      // the file as last read or written
  std::size_t resourceIndex_ = 0;
  nlohmann::ordered_json schema_;
  std::vector<VariableSet> storedSets_;
  bool loaded_ = false;
  files::FileIdentity identity_;
  files::FileLock lock_;
};

// Whether `text` (the start of a JSON file) looks like a package descriptor.
bool LooksLikeDataPackage(std::string_view text);

// The store for "FILE" or "FILE#RESOURCE" when that names a data package
// (by the name datapackage.json, a #RESOURCE after an existing file, or the
// contents); none otherwise.
std::unique_ptr<data::DatasetStore> OpenDataPackageStore(const std::filesystem::path& path);

// Puts `sets` into the schema at /resources/INDEX/schema of the package
// text, changing no other byte. Pure; used by Save.
std::string SpliceSets(const std::string& text, std::size_t resourceIndex,
                       const std::vector<VariableSet>& sets);

}  // namespace hostlib::formats
