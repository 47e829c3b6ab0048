// A Data Package (datapackage.json) as a dataset store: the schema of one of
// its tabular resources is the dictionary, and the sets are kept in that
// schema under "multipleResponseSets", as in a codebook file.
//
// "-d datapackage.json#NAME" picks the resource named NAME; without a name
// the package must have exactly one tabular resource (one with a schema).
// A schema kept in a file of its own (its path a string, beside the package
// or below) is read from there and the sets are saved there: the package is
// not touched. Save changes the bytes of the sets and nothing else.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hostlib/data/dataset_store.h"
#include "hostlib/files/env.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

class DataPackageStore final : public DatasetStore {
 public:
  DataPackageStore(std::filesystem::path path, std::string resource,
                   files::Env& env = files::DefaultEnv());
  ~DataPackageStore() override;

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  void Save(const Dataset& dataset) override;
  std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override { lock_.Release(); }
  void AbortCommand() noexcept override { lock_.Release(); }
  // The resource's schema, which is a codebook descriptor.
  DatasetContents Export() override;
  // Refused: a package is only changed, never made.
  void Create(const DatasetContents& contents) override;

 private:
  std::filesystem::path path_;
  std::string resource_;  // as asked; empty for "the only tabular one"
  files::Env& env_;
  std::string text_;  // the file as last read or written
  std::size_t resourceIndex_ = 0;
  std::shared_ptr<const Descriptor> schema_;
  std::filesystem::path schemaPath_;  // a schema of its own file; empty: inline
  std::string schemaText_;            // that file as last read or written
  files::FileIdentity schemaIdentity_;
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
std::unique_ptr<DatasetStore> OpenDataPackageStore(const std::filesystem::path& path,
                                                   files::Env& env = files::DefaultEnv());

// Puts `sets` into the schema at /resources/INDEX/schema of the package
// text, changing no other byte. Pure; used by Save.
std::string SpliceSets(const std::string& text, std::size_t resourceIndex,
                       const std::vector<VariableSet>& sets);
// The same for a schema file of its own, whose top level is the schema.
std::string SpliceSchemaSets(const std::string& text, const std::vector<VariableSet>& sets);

}  // namespace hostlib::data
