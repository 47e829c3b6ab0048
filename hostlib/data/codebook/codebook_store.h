// The codebook file as a dataset store (the format: descriptor.h).
//
// Load keeps the file's text; Save replaces only the value of
// "multipleResponseSets" in it (splice_writer.h), so every other byte is
// written back as it was read.
//
// A command holds an flock on "<file>.lock" beside the file (beside the file
// a symbolic link points at); the file is read anew when its inode, size or
// modification time differ from those of the file last read or written.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "hostlib/data/codebook/fast_reader.h"
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
  void SaveWhole(std::string_view text);

  std::filesystem::path path_;
  files::Env& env_;
  bool loaded_ = false;
  std::string text_;  // as last loaded or saved
  SetsPlace setsPlace_;
  std::vector<VariableSet> storedSets_;  // the sets as the file holds them
  files::FileIdentity identity_;         // of the file last read or written
  files::FileLock lock_;
};

}  // namespace hostlib::data
