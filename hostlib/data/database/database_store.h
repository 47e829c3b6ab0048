// The dataset database: a dataset kept in SQLite tables (see the README's
// "Dataset databases" for the schema).
//
// Load reads the sets; the dictionary is read on demand, a variable at a
// time through the indexes, so a damaged page is refused when a read meets
// it (Export, which reads everything, checks the whole file first). A command is one transaction,
// begun with BEGIN IMMEDIATE (other writers wait up to the lock timeout), in which the dataset is
// read anew when the revision counter moved, the sets are written, and which commits when the
// command ends. Save writes only the sets that differ from the stored ones. SQLite's own file
// operations go through the store's Env.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "hostlib/data/database/stored_sets.h"
#include "hostlib/data/dataset_store.h"
#include "hostlib/files/env.h"

namespace hostlib::data {

class SqliteConnection;
struct FieldRecord;

class SqliteStore final : public DatasetStore {
 public:
  // Opens nothing yet; a missing file is refused by Load, never made.
  explicit SqliteStore(std::filesystem::path path, files::Env& env = files::DefaultEnv());
  ~SqliteStore() override;

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  void Save(const Dataset& dataset) override;
  std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override;
  void AbortCommand() noexcept override;
  // The descriptor of a database made from a codebook file is that file's,
  // with the sets as they are now.
  DatasetContents Export() override;
  void Create(const DatasetContents& contents) override;

  // Whether a file that begins with `head` is an SQLite database.
  static bool HasHeader(std::string_view head);

 private:
  SqliteConnection& Open();
  static int FormatOf(const SqliteConnection& db);
  Dataset ReadDataset(SqliteConnection& db);
  Dataset ReadWholeDataset(SqliteConnection& db, std::vector<FieldRecord>& records);
  void ReadRevision(SqliteConnection& db);
  // Per set of a list, the stored set whose row it keeps, or kNotKept.
  static constexpr std::size_t kNotKept = static_cast<std::size_t>(-1);
  std::vector<std::size_t> MatchStoredSets(const std::vector<VariableSet>& sets) const;
  void WriteSets(SqliteConnection& db, const SharedSetList& list);
  void DropPending() noexcept;

  std::filesystem::path path_;
  files::Env& env_;
  // Shared with the dictionaries of the datasets it loaded.
  std::shared_ptr<SqliteConnection> db_;
  std::chrono::milliseconds busyTimeout_;
  bool loaded_ = false;
  bool inCommand_ = false;
  std::int64_t revision_ = -1;  // of what was last read or written
  int format_ = 0;              // of what was last read or written

  StoredSets stored_;
  // What a command's Save wrote, kept once the command commits.
  std::optional<StoredSets> pending_;
  std::int64_t pendingRevision_ = -1;
};

}  // namespace hostlib::data
