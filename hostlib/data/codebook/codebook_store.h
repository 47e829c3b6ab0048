// The codebook file as a dataset store (the format: descriptor.h).
//
// Load keeps the whole descriptor; Save replaces only "multipleResponseSets"
// and writes everything else back as it was read.
//
// A command holds an flock on "<file>.lock" beside the file (beside the file
// a symbolic link points at); the file is read anew when its inode, size or
// modification time differ from those of the file last read or written.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "hostlib/data/dataset_store.h"
#include "hostlib/files/env.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

class CodebookFile final : public DatasetStore {
 public:
  explicit CodebookFile(std::filesystem::path path, files::Env& env = files::DefaultEnv());
  ~CodebookFile() override;

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  // Before any Load, writes a whole new descriptor from the dataset.
  void Save(const Dataset& dataset) override;
  std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override { lock_.Release(); }
  void AbortCommand() noexcept override { lock_.Release(); }
  DatasetContents Export() override;
  void Create(const DatasetContents& contents) override;

 private:
  std::filesystem::path path_;
  files::Env& env_;
  std::shared_ptr<const Descriptor> document_;  // as last loaded or saved
  std::vector<VariableSet> storedSets_;         // the sets as the file holds them
  files::FileIdentity identity_;                // of the file last read or written
  files::FileLock lock_;
};

}  // namespace hostlib::data
