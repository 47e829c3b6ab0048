#include "hostlib/data/database/database_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/field_layout.h"
#include "hostlib/data/database/dictionary_rows.h"
#include "hostlib/data/database/guard.h"
#include "hostlib/data/database/schema.h"
#include "hostlib/data/database/set_rows.h"
#include "hostlib/data/database/sqlite_connection.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

// Positions for the sets a save adds. From format 2 they only tell the rows
// apart: each new set takes the next above the greatest, or, where the
// greatest leaves no room (a file made elsewhere), the next below the least.
class NewPositions {
 public:
  NewPositions(const SqliteConnection& db, std::size_t most) {
    // Apart, each bound is one look-up in the index on position; together
    // they would read every row.
    Statement bounds(db,
                     "SELECT (SELECT min(position) FROM sets), (SELECT max(position) FROM sets)",
                     "not saved");
    bounds.Step();
    if (bounds.IsNull(0)) return;
    const auto room = static_cast<std::int64_t>(most);
    const std::int64_t least = bounds.Int(0);
    const std::int64_t greatest = bounds.Int(1);
    if (greatest < std::numeric_limits<std::int64_t>::max() - room) {
      next_ = greatest + 1;
    } else if (least > std::numeric_limits<std::int64_t>::min() + room) {
      next_ = least - 1;
      step_ = -1;
    } else {
      throw DatasetError(db.File() + ": not saved: no room for the sets' positions");
    }
  }
  std::int64_t Next() {
    const std::int64_t position = next_;
    next_ += step_;
    return position;
  }

 private:
  std::int64_t next_ = 0;
  std::int64_t step_ = 1;
};

}  // namespace

SqliteStore::SqliteStore(fs::path path, files::Env& env)
    : path_(std::move(path)), env_(env), busyTimeout_(std::chrono::seconds(10)) {}

SqliteStore::~SqliteStore() { AbortCommand(); }

bool SqliteStore::HasHeader(std::string_view head) { return head.substr(0, 16) == kSqliteHeader; }

SqliteConnection& SqliteStore::Open() {
  if (db_) return *db_;
  const std::string file = path_.string();
  // Never made here: a missing database is refused like a missing file.
  struct stat info {};
  if (::stat(path_.c_str(), &info) != 0) {
    throw DatasetError(file + ": cannot be read: " + std::strerror(errno));
  }
  const bool writeAheadLog = InWriteAheadLogMode(path_, env_);
  auto db = std::make_shared<SqliteConnection>(path_, false, file, env_);
  GuardConnection(*db);
  sqlite3_busy_timeout(db->Get(), static_cast<int>(busyTimeout_.count()));
  if (writeAheadLog) LeaveWriteAheadLogMode(*db);
  // A rollback journal, synced at each commit: a killed process leaves a hot
  // journal that the next opener rolls back. Reading, SQLite's default page
  // cache of 2 MB: the sets' rows are read once, and pages it reuses cost no
  // fresh memory (see Save for writing).
  db->Execute("PRAGMA foreign_keys = ON; PRAGMA synchronous = FULL; PRAGMA cache_size = -2048;",
              "cannot be read");
  Statement application(*db, "PRAGMA application_id", "cannot be read");
  application.Step();
  if (application.Int(0) != kApplicationId) {
    throw DatasetError(file + ": an SQLite database, but not a dataset database");
  }
  CheckSchema(*db, FormatOf(*db));
  db_ = std::move(db);
  return *db_;
}

// The file's format, one this program reads.
int SqliteStore::FormatOf(const SqliteConnection& db) {
  Statement version(db, "PRAGMA user_version", "cannot be read");
  version.Step();
  const std::int64_t format = version.Int(0);
  if (format > kFormatVersion) {
    throw DatasetError(db.File() + ": a dataset database of format " + std::to_string(format) +
                       ", newer than this program reads (" + std::to_string(kFormatVersion) + ")");
  }
  if (format < kOldestFormatVersion) {
    throw DatasetError(db.File() + ": not a valid dataset database: unknown format " +
                       std::to_string(format));
  }
  return static_cast<int>(format);
}

Dataset SqliteStore::Load() {
  SqliteConnection& db = Open();
  db.Execute("BEGIN", "cannot be read");
  try {
    Dataset dataset = ReadDataset(db);
    db.Execute("COMMIT", "cannot be read");
    return dataset;
  } catch (...) {
    sqlite3_exec(db.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

// Inside a transaction: the sets, and the dictionary as a source that reads
// a variable when it is asked for.
Dataset SqliteStore::ReadDataset(SqliteConnection& db) {
  // Another program may have saved the file in a later format since.
  format_ = FormatOf(db);
  StoredSets stored = ReadStoredSets(db_, format_ >= 2);
  ReadRevision(db);
  Dataset dataset(std::make_shared<const DatabaseDictionary>(db_), stored.sets);
  stored_ = std::move(stored);
  loaded_ = true;
  return dataset;
}

// Inside a transaction: the whole dataset with the rows of its variables,
// the whole file checked first.
Dataset SqliteStore::ReadWholeDataset(SqliteConnection& db, std::vector<FieldRecord>& records) {
  {
    Statement check(db, "PRAGMA quick_check(1)", "cannot be read");
    if (check.Step() && check.Text(0) != "ok") {
      throw DatasetError(db.File() + ": not a valid dataset database: " + check.Text(0));
    }
  }
  records = ReadFieldRecords(db);
  format_ = FormatOf(db);
  StoredSets stored = ReadWholeStoredSets(db, format_ >= 2);
  ReadRevision(db);
  Dataset dataset(VariablesOf(records), *stored.sets);
  stored_ = std::move(stored);
  loaded_ = true;
  return dataset;
}

void SqliteStore::ReadRevision(SqliteConnection& db) {
  Statement revision(db, "SELECT revision FROM dataset WHERE id = 1", "cannot be read");
  if (!revision.Step()) {
    throw DatasetError(db.File() + ": not a valid dataset database: the dataset row is missing");
  }
  revision_ = revision.Int(0);
}

bool SqliteStore::WouldChange(const Dataset& dataset) const {
  return !loaded_ || (dataset.SharedMultipleResponseSets() != stored_.sets &&
                      dataset.MultipleResponseSets() != *stored_.sets);
}

std::optional<Dataset> SqliteStore::BeginCommand(std::chrono::milliseconds timeout) {
  SqliteConnection& db = Open();
  busyTimeout_ = timeout;
  sqlite3_busy_timeout(db.Get(), static_cast<int>(timeout.count()));
  // A database this process may not write is only read: its command cannot
  // save, and taking the write lock would fail.
  const bool readOnly = sqlite3_db_readonly(db.Get(), "main") == 1;
  Statement begin(db, readOnly ? "BEGIN" : "BEGIN IMMEDIATE", "cannot be read");
  try {
    begin.Run();
  } catch (const DatasetError&) {
    const int code = sqlite3_errcode(db.Get());
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
      throw DatasetError(LockTimeoutMessage(path_, timeout));
    }
    throw;
  }
  inCommand_ = true;
  // Under the write lock no conversion of this process is under way.
  if (!readOnly) files::RemoveLeftoversBeside(path_, env_);
  try {
    const std::int64_t known = revision_;
    ReadRevision(db);
    if (loaded_ && revision_ == known) return std::nullopt;
    return ReadDataset(db);
  } catch (...) {
    AbortCommand();
    throw;
  }
}

void SqliteStore::Save(const Dataset& dataset) {
  SqliteConnection& db = Open();
  const bool ownUnit = !inCommand_;
  if (ownUnit) BeginCommand(busyTimeout_);
  try {
    // A page cache of up to 32 MB (taken as used) holds the pages a save
    // that writes thousands of sets changes; 2 MB would spill them to the
    // file before the commit.
    db.Execute("PRAGMA cache_size = -32768", "not saved");
    WriteSets(db, dataset.SharedMultipleResponseSets());
  } catch (...) {
    AbortCommand();
    throw;
  }
  if (ownUnit) EndCommand();
}

// Per set, the stored set whose row it keeps (or kNotKept). A set unchanged
// since it was read is the stored set it was read as, known without a look
// at its name; another keeps the row of an unmatched stored set of the same
// name that it equals (a set made again as it was).
std::vector<std::size_t> SqliteStore::MatchStoredSets(const std::vector<VariableSet>& sets) const {
  std::vector<std::size_t> kept(sets.size(), kNotKept);
  std::vector<bool> used(stored_.sets->size(), false);
  std::vector<std::size_t> storedOfRead;
  if (stored_.source) {
    for (std::size_t j = 0; j < stored_.sourceIndexes.size(); ++j) {
      const std::size_t read = stored_.sourceIndexes[j];
      if (read == StoredSets::kNotRead) continue;
      if (read >= storedOfRead.size()) storedOfRead.resize(read + 1, StoredSets::kNotRead);
      storedOfRead[read] = j;
    }
  }
  bool unmatched = false;
  for (std::size_t i = 0; i < sets.size(); ++i) {
    const std::size_t read = sets[i].StoredIndex();
    if (stored_.source && sets[i].StoredSource() == stored_.source.get() &&
        read < storedOfRead.size() && storedOfRead[read] != StoredSets::kNotRead &&
        !used[storedOfRead[read]]) {
      kept[i] = storedOfRead[read];
      used[storedOfRead[read]] = true;
    } else {
      unmatched = true;
    }
  }
  if (!unmatched) return kept;
  std::unordered_map<std::string, std::size_t> unusedByName;
  for (std::size_t j = 0; j < stored_.sets->size(); ++j) {
    if (!used[j]) unusedByName.emplace(FoldName((*stored_.sets)[j].GetName(kAsStored)), j);
  }
  for (std::size_t i = 0; i < sets.size(); ++i) {
    if (kept[i] != kNotKept || unusedByName.empty()) continue;
    const auto found = unusedByName.find(FoldName(sets[i].GetName(kAsStored)));
    if (found != unusedByName.end() && (*stored_.sets)[found->second] == sets[i]) {
      kept[i] = found->second;
      unusedByName.erase(found);
    }
  }
  return kept;
}

// Rewrites only the sets that differ from the stored ones, and renumbers
// the rest: a command that adds one set to thousands writes one set.
void SqliteStore::WriteSets(SqliteConnection& db, const SharedSetList& list) {
  const std::vector<VariableSet>& sets = *list;
  const std::string doing = "not saved";
  const std::vector<std::size_t> kept = MatchStoredSets(sets);
  std::vector<bool> used(stored_.sets->size(), false);
  for (const std::size_t match : kept) {
    if (match != kNotKept) used[match] = true;
  }
  // A set to be written anew may still be a stored one's copy not yet read
  // (under another name's row): read it before any row goes.
  for (std::size_t i = 0; i < sets.size(); ++i) {
    if (kept[i] == kNotKept) sets[i].GetType();
  }
  Statement remove(db, "DELETE FROM sets WHERE id = ?", doing);
  for (std::size_t i = 0; i < stored_.sets->size(); ++i) {
    if (!used[i]) remove.BindInt(1, stored_.ids[i]).Run();
  }
  if (format_ < kFormatVersion) {
    // The first save of a format 1 file lists its sets from now on.
    db.Execute(kSetOrderSchema, doing);
    db.Execute("PRAGMA user_version = " + std::to_string(kFormatVersion), doing);
  }
  SetWriter writer(db);
  NewPositions positions(db, sets.size());
  StoredSets written;
  written.sets = list;
  written.source = stored_.source;
  written.ids.reserve(sets.size());
  written.sourceIndexes.reserve(sets.size());
  for (std::size_t i = 0; i < sets.size(); ++i) {
    written.ids.push_back(kept[i] != kNotKept ? stored_.ids[kept[i]]
                                              : writer.Insert(sets[i], positions.Next()));
    written.sourceIndexes.push_back(kept[i] != kNotKept ? stored_.sourceIndexes[kept[i]]
                                                        : StoredSets::kNotRead);
  }
  WriteSetOrder(db, written.ids,
                stored_.orderAsWritten ? stored_.ids : std::vector<std::int64_t>());
  written.orderAsWritten = true;
  // The revision only tells one state from the next: at its greatest it
  // wraps to 0, and stays an integer.
  db.Execute(
      "UPDATE dataset SET revision = CASE WHEN revision >= 9223372036854775807 THEN 0 "
      "ELSE revision + 1 END WHERE id = 1",
      doing);
  pending_ = std::move(written);
  pendingRevision_ = revision_ == std::numeric_limits<std::int64_t>::max() ? 0 : revision_ + 1;
}

void SqliteStore::EndCommand() {
  if (!inCommand_) return;
  try {
    db_->Execute("COMMIT", "not saved");
  } catch (...) {
    AbortCommand();
    throw;
  }
  inCommand_ = false;
  if (pending_) {
    stored_ = std::move(*pending_);
    revision_ = pendingRevision_;
    format_ = kFormatVersion;
    loaded_ = true;
  }
  DropPending();
}

void SqliteStore::AbortCommand() noexcept {
  if (inCommand_ && db_ && sqlite3_get_autocommit(db_->Get()) == 0) {
    sqlite3_exec(db_->Get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  inCommand_ = false;
  DropPending();
}

void SqliteStore::DropPending() noexcept {
  pending_.reset();
  pendingRevision_ = -1;
}

DatasetContents SqliteStore::Export() {
  SqliteConnection& db = Open();
  db.Execute("BEGIN", "cannot be read");
  try {
    std::vector<FieldRecord> records;
    Dataset dataset = ReadWholeDataset(db, records);
    Statement document(db, "SELECT layout FROM dataset WHERE id = 1", "cannot be read");
    document.Step();
    const std::optional<std::string> layout = document.OptionalText(0);
    db.Execute("COMMIT", "cannot be read");

    Json fields = Json::array();
    for (const FieldRecord& record : records) fields.push_back(JoinField(record));
    auto descriptor = std::make_shared<Descriptor>(Descriptor{JoinDocument(
        layout, std::move(fields), RenderCodebookSets(dataset.MultipleResponseSets()))});
    return {std::move(dataset), std::move(descriptor)};
  } catch (const Json::exception& error) {
    sqlite3_exec(db.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw DatasetError(db.File() +
                       ": not a valid dataset database: a layout is not valid: " + error.what());
  } catch (...) {
    sqlite3_exec(db.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void SqliteStore::Create(const DatasetContents& contents) {
  const std::string file = path_.string();
  const Dataset& dataset = contents.dataset;
  // What the host does not interpret is kept from the descriptor the dataset
  // was read from.
  std::vector<FieldRecord> records;
  std::optional<std::string> layout;
  const auto& variables = dataset.Variables();
  records.reserve(variables.size());
  if (contents.descriptor != nullptr) {
    const Json& descriptor = contents.descriptor->json;
    layout = SplitDocument(descriptor);
    const Json& fields = descriptor.at(kCodebookFieldsKey);
    for (std::size_t i = 0; i < variables.size(); ++i) {
      records.push_back(SplitField(fields.at(i), variables[i]));
    }
  } else {
    for (const VORN_Variable& variable : variables) records.push_back(FieldOf(variable));
  }
  const auto fill = [&](const fs::path& temporary) {
    SqliteConnection db(temporary, true, file, env_);
    const std::string doing = "not saved";
    db.Execute("PRAGMA page_size = " + std::to_string(kPageSize) +
                   "; PRAGMA journal_mode = DELETE; PRAGMA synchronous = FULL; "
                   "PRAGMA foreign_keys = ON; PRAGMA application_id = " +
                   std::to_string(kApplicationId) +
                   "; PRAGMA user_version = " + std::to_string(kFormatVersion) + ";",
               doing);
    db.Execute("BEGIN", doing);
    db.Execute(kSchema, doing);
    db.Execute(kSetOrderSchema, doing);
    Statement meta(db, "INSERT INTO dataset (id, revision, layout) VALUES (1, 0, ?)", doing);
    meta.BindOptional(1, layout).Run();
    InsertFieldRecords(db, records);
    SetWriter writer(db);
    std::vector<std::int64_t> ids;
    std::int64_t position = 0;
    for (const VariableSet& set : dataset.MultipleResponseSets()) {
      ids.push_back(writer.Insert(set, position++));
    }
    WriteSetOrder(db, ids, {});
    db.Execute("COMMIT", doing);
  };
  try {
    files::CreateFileAtomically(path_, fill, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

}  // namespace hostlib::data
