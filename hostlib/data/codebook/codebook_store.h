// The codebook file as a dataset store (the format: descriptor.h).
//
// Load reads the file once, in slices, and keeps it open: the dictionary
// reads a field's bytes from it on demand (fast_reader.h). Save writes the
// file with only the value of "multipleResponseSets" replaced
// (splice_writer.h), so every other byte is written back as it was read:
// copied from the file read.
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
  std::optional<std::map<std::string, std::string>> TopLevelMembers(
      const std::vector<std::string>& keys) override;

 private:
  void SaveWhole(std::string_view text);

  std::filesystem::path path_;
  files::Env& env_;
  bool loaded_ = false;
  // The file last loaded, shared with the dictionary read from it and open
  // still after a save replaced it: the file holds its bytes with those at
  // the set list's place replaced by those last written.
  std::shared_ptr<const SourceFile> source_;
  SetsPlace setsPlace_;
  std::vector<json_spans::Member> topLevel_;  // in source_
  std::vector<VariableSet> storedSets_;       // the sets as the file holds them
  files::FileIdentity identity_;              // of the file last read or written
  files::FileLock lock_;
};

}  // namespace hostlib::data
