// The dataset database: a dataset kept in SQLite tables (see the README's
// "Dataset databases" for the schema).
//
// Load reads one consistent snapshot. A command is one transaction, begun
// with BEGIN IMMEDIATE (other writers wait up to the lock timeout), in which
// the dataset is read anew when the revision counter moved, the sets are
// written, and which commits when the command ends. Save writes only the
// sets that differ from the stored ones.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset_store.h"

namespace hostlib::data {

class SqliteConnection;

class SqliteStore final : public DatasetStore {
 public:
  // Opens nothing yet; a missing file is refused by Load, never made.
  explicit SqliteStore(std::filesystem::path path);
  ~SqliteStore() override;

  const std::filesystem::path& Path() const override { return path_; }
  Dataset Load() override;
  bool WouldChange(const Dataset& dataset) const override;
  void Save(const Dataset& dataset) override;
  std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) override;
  void EndCommand() override;
  void AbortCommand() noexcept override;

  // The database as a codebook descriptor: for a database made from a
  // codebook file, that file's descriptor with the sets as they are now.
  nlohmann::ordered_json ExportCodebook();

  // Makes a new database at `path` holding `dataset`, all or nothing; fails
  // when `path` exists. `codebook`, when given, is the descriptor the dataset
  // was read from: what the host does not interpret is kept from it.
  static void Create(const std::filesystem::path& path, const Dataset& dataset,
                     const nlohmann::ordered_json* codebook = nullptr);

  // Whether a file that begins with `head` is an SQLite database.
  static bool HasHeader(std::string_view head);
  // .db, .sqlite, .sqlite3
  static bool NameSuggestsDatabase(const std::filesystem::path& path);

 private:
  SqliteConnection& Open();
  Dataset ReadDataset(SqliteConnection& db);
  Dataset ReadRows(SqliteConnection& db);
  void ReadRevision(SqliteConnection& db);
  void WriteSets(SqliteConnection& db, const std::vector<VariableSet>& sets);
  void DropPending() noexcept;

  std::filesystem::path path_;
  std::unique_ptr<SqliteConnection> db_;
  std::chrono::milliseconds busyTimeout_;
  bool loaded_ = false;
  bool inCommand_ = false;
  std::int64_t revision_ = -1;  // of what was last read or written

  // The sets as the database holds them, with their rows.
  struct StoredSets {
    std::vector<VariableSet> sets;
    std::vector<std::int64_t> ids;
    std::vector<std::int64_t> positions;
  };
  StoredSets stored_;
  // What a command's Save wrote, kept once the command commits.
  std::optional<StoredSets> pending_;
  std::int64_t pendingRevision_ = -1;
};

}  // namespace hostlib::data
