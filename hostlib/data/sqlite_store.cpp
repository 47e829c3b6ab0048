#include "hostlib/data/sqlite_store.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "hostlib/data/codebook_file.h"
#include "hostlib/files/files.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kApplicationId = 0x4D525344;  // "MRSD"
constexpr int kFormatVersion = 1;
constexpr std::string_view kHeader("SQLite format 3\0", 16);

// The format's tables; the README describes them.
constexpr const char* kSchema = R"sql(
CREATE TABLE dataset (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  revision INTEGER NOT NULL CHECK (revision >= 0),
  layout TEXT
);
CREATE TABLE variables (
  position INTEGER PRIMARY KEY CHECK (position >= 0),
  name TEXT NOT NULL CHECK (name <> ''),
  folded_name TEXT NOT NULL UNIQUE,
  width INTEGER NOT NULL CHECK (width BETWEEN 0 AND 32767),
  type TEXT,
  label TEXT,
  layout TEXT
);
CREATE TABLE categories (
  variable INTEGER NOT NULL REFERENCES variables (position) ON DELETE CASCADE,
  position INTEGER NOT NULL CHECK (position >= 0),
  value NOT NULL CHECK (typeof(value) IN ('integer', 'real', 'text')),
  label TEXT,
  bare INTEGER NOT NULL DEFAULT 0 CHECK (bare IN (0, 1)),
  layout TEXT,
  PRIMARY KEY (variable, position),
  UNIQUE (variable, value),
  CHECK (bare = 0 OR (label IS NULL AND layout IS NULL))
) WITHOUT ROWID;
CREATE TABLE sets (
  id INTEGER PRIMARY KEY,
  position INTEGER NOT NULL UNIQUE,
  name TEXT NOT NULL,
  folded_name TEXT NOT NULL UNIQUE,
  type TEXT NOT NULL CHECK (type IN ('dichotomies', 'categories')),
  label TEXT CHECK (label <> ''),
  counted_value TEXT,
  category_labels TEXT CHECK (category_labels IN ('countedValues', 'variableLabels')),
  label_from_variables INTEGER NOT NULL DEFAULT 0 CHECK (label_from_variables IN (0, 1)),
  extras TEXT,
  CHECK ((type = 'dichotomies') = (counted_value IS NOT NULL)),
  CHECK ((type = 'dichotomies') = (category_labels IS NOT NULL))
);
CREATE TABLE set_variables (
  set_id INTEGER NOT NULL REFERENCES sets (id) ON DELETE CASCADE,
  position INTEGER NOT NULL CHECK (position >= 0),
  name TEXT NOT NULL,
  PRIMARY KEY (set_id, position)
) WITHOUT ROWID;
)sql";

}  // namespace

// ---- the connection ------------------------------------------------------

// One open database; every failure names the file and what was being done.
class SqliteConnection {
 public:
  SqliteConnection(const fs::path& path, bool create, std::string file) : file_(std::move(file)) {
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int status = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
    if (status != SQLITE_OK) {
      const std::string message = Message("cannot be read");
      sqlite3_close_v2(std::exchange(db_, nullptr));  // the destructor will not run
      throw DatasetError(message);
    }
  }
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;
  ~SqliteConnection() { sqlite3_close_v2(db_); }

  sqlite3* Get() const { return db_; }
  const std::string& File() const { return file_; }

  [[noreturn]] void Fail(const std::string& doing) const { throw DatasetError(Message(doing)); }
  std::string Message(std::string doing) const {
    const int code = db_ != nullptr ? (sqlite3_extended_errcode(db_) & 0xff) : SQLITE_NOMEM;
    if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB) {
      doing = "not a valid dataset database: the file is damaged or truncated";
    }
    std::string reason = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    const int error = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
    if (error != 0 && reason.find(std::strerror(error)) == std::string::npos) {
      reason += std::string(" (") + std::strerror(error) + ")";
    }
    return file_ + ": " + doing + ": " + reason;
  }

  // Runs every statement of `sql`, which takes no parameters.
  void Execute(std::string_view sql, const std::string& doing);

 private:
  sqlite3* db_ = nullptr;
  std::string file_;
};

namespace {

class Statement {
 public:
  Statement(const SqliteConnection& db, std::string_view sql, std::string doing)
      : db_(db), doing_(std::move(doing)) {
    if (sqlite3_prepare_v2(db.Get(), sql.data(), static_cast<int>(sql.size()), &statement_,
                           nullptr) != SQLITE_OK) {
      db_.Fail(doing_);
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(statement_); }

  Statement& BindInt(int index, std::int64_t value) {
    return Check(sqlite3_bind_int64(statement_, index, value));
  }
  Statement& BindText(int index, std::string_view value) {
    return Check(sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                                   SQLITE_TRANSIENT));
  }
  Statement& BindOptional(int index, const std::optional<std::string>& value) {
    return value ? BindText(index, *value) : Check(sqlite3_bind_null(statement_, index));
  }
  // A JSON number or string, keeping whether the number was written whole.
  Statement& BindValue(int index, const Json& value) {
    if (value.is_string()) return BindText(index, value.get_ref<const std::string&>());
    if (value.is_number_integer() &&
        !(value.is_number_unsigned() &&
          value.get<std::uint64_t>() >
              static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))) {
      return BindInt(index, value.get<std::int64_t>());
    }
    return Check(sqlite3_bind_double(statement_, index, value.get<double>()));
  }

  // True while there is a row.
  bool Step() {
    const int status = sqlite3_step(statement_);
    if (status == SQLITE_ROW) return true;
    if (status == SQLITE_DONE) return false;
    db_.Fail(doing_);
  }
  void Run() {
    while (Step()) {
    }
    Reset();
  }
  void Reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

  bool IsNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  std::int64_t Int(int column) const { return sqlite3_column_int64(statement_, column); }
  double Real(int column) const { return sqlite3_column_double(statement_, column); }
  std::string Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text == nullptr
               ? std::string()
               : std::string(text,
                             static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }
  std::optional<std::string> OptionalText(int column) const {
    if (IsNull(column)) return std::nullopt;
    return Text(column);
  }
  Json Value(int column) const {
    switch (sqlite3_column_type(statement_, column)) {
      case SQLITE_INTEGER:
        return Int(column);
      case SQLITE_FLOAT:
        return Real(column);
      default:
        return Text(column);
    }
  }

 private:
  Statement& Check(int status) {
    if (status != SQLITE_OK) db_.Fail(doing_);
    return *this;
  }

  const SqliteConnection& db_;
  sqlite3_stmt* statement_ = nullptr;
  std::string doing_;
};

}  // namespace

void SqliteConnection::Execute(std::string_view sql, const std::string& doing) {
  while (!sql.empty()) {
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &raw, &tail) !=
        SQLITE_OK) {
      Fail(doing);
    }
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(raw, sqlite3_finalize);
    sql.remove_prefix(static_cast<std::size_t>(tail - sql.data()));
    if (raw == nullptr) continue;  // blanks or a comment
    int status = SQLITE_ROW;
    while (status == SQLITE_ROW) status = sqlite3_step(raw);
    if (status != SQLITE_DONE) Fail(doing);
  }
}

namespace {

// ---- what a codebook holds beyond the dictionary --------------------------
//
// A field or category entry is stored as columns plus a layout: the object as
// the codebook had it, with the keys the columns hold set to null, so that
// the other keys and the order of all come back. No layout: the object is
// the one a new codebook file would write.

struct CategoryRecord {
  Json value;
  std::optional<std::string> label;
  bool bare = false;
  std::optional<std::string> layout;
};

struct FieldRecord {
  std::string name;
  int width = 0;
  std::optional<std::string> type;
  std::optional<std::string> label;
  std::optional<std::string> layout;
  std::vector<CategoryRecord> categories;
};

Json JoinCategory(const CategoryRecord& record) {
  if (record.bare) return record.value;
  if (!record.layout) {
    Json entry = {{"value", record.value}};
    if (record.label) entry["label"] = *record.label;
    return entry;
  }
  Json entry = Json::parse(*record.layout);
  for (auto& [key, value] : entry.items()) {
    if (key == "value") value = record.value;
    if (key == "label" && record.label) value = *record.label;
  }
  return entry;
}

Json JoinField(const FieldRecord& record) {
  const std::string type = record.type.value_or(record.width > 0 ? "string" : "number");
  Json categories = Json::array();
  for (const CategoryRecord& category : record.categories) {
    categories.push_back(JoinCategory(category));
  }
  if (!record.layout) {
    Json field = {{"name", record.name}, {"type", type}};
    if (record.width > 0) field["constraints"] = {{"maxLength", record.width}};
    if (record.label) field["title"] = *record.label;
    if (!categories.empty()) field["categories"] = std::move(categories);
    return field;
  }
  Json field = Json::parse(*record.layout);
  for (auto& [key, value] : field.items()) {
    if (key == "name") {
      value = record.name;
    } else if (key == "type") {
      value = type;
    } else if (key == "title" && record.label) {
      value = *record.label;
    } else if (key == "categories") {
      value = categories;
    } else if (key == "constraints" && record.width > 0 && value.is_object() &&
               value.contains("maxLength") && value["maxLength"].is_null()) {
      value["maxLength"] = record.width;
    }
  }
  return field;
}

CategoryRecord SplitCategory(const Json& entry) {
  CategoryRecord record;
  if (!entry.is_object()) {
    record.value = entry;
    record.bare = true;
    return record;
  }
  record.value = entry.at("value");
  if (const auto label = entry.find("label"); label != entry.end()) {
    record.label = label->get<std::string>();
  }
  if (JoinCategory(record) != entry) {
    Json layout = entry;
    layout["value"] = nullptr;
    if (record.label) layout["label"] = nullptr;
    record.layout = layout.dump();
  }
  return record;
}

// A field of a codebook the dataset was read from.
FieldRecord SplitField(const Json& field, const VORN_Variable& variable) {
  FieldRecord record{variable.GetName(), variable.GetType(), {}, {}, {}, {}};
  if (const auto type = field.find("type"); type != field.end()) {
    record.type = type->get<std::string>();
  }
  if (const auto title = field.find("title"); title != field.end()) {
    record.label = title->get<std::string>();
  }
  if (const auto categories = field.find("categories"); categories != field.end()) {
    for (const Json& entry : *categories) record.categories.push_back(SplitCategory(entry));
  }
  if (JoinField(record) != field) {
    Json layout = field;
    for (const char* key : {"name", "type", "title", "categories"}) {
      if (layout.contains(key)) layout[key] = nullptr;
    }
    if (record.width > 0 && layout.contains("constraints") &&
        layout["constraints"].contains("maxLength")) {
      layout["constraints"]["maxLength"] = nullptr;
    }
    record.layout = layout.dump();
  }
  return record;
}

// A variable of a dataset that no codebook file describes.
FieldRecord FieldOf(const VORN_Variable& variable) {
  const Json field = RenderCodebookField(variable);
  FieldRecord record = SplitField(field, variable);
  return record;
}

Json JoinDocument(const std::optional<std::string>& layout, Json fields, Json sets) {
  if (!layout) {
    return {{kCodebookFieldsKey, std::move(fields)}, {kCodebookSetsKey, std::move(sets)}};
  }
  Json document = Json::parse(*layout);
  const bool hasSets = document.contains(kCodebookSetsKey);
  for (auto& [key, value] : document.items()) {
    if (key == kCodebookFieldsKey) value = fields;
    if (key == kCodebookSetsKey) value = sets;
  }
  // An absent list stays absent while there is nothing to put in it.
  if (!hasSets && !sets.empty()) document[kCodebookSetsKey] = std::move(sets);
  return document;
}

// ---- sets ------------------------------------------------------------------

constexpr const char* kInsertSet =
    "INSERT INTO sets (position, name, folded_name, type, label, counted_value, "
    "category_labels, label_from_variables, extras) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kInsertSetVariable =
    "INSERT INTO set_variables (set_id, position, name) VALUES (?, ?, ?)";

// Stores a set as a codebook file would hold it; returns its row.
std::int64_t InsertSet(const SqliteConnection& db, Statement& insertSet, Statement& insertVariable,
                       const VariableSet& set, std::int64_t position) {
  const std::string name = set.GetName(kAsStored);
  const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
  insertSet.BindInt(1, position).BindText(2, name).BindText(3, FoldName(name));
  insertSet.BindText(4, std::string_view(dichotomies ? "dichotomies" : "categories"));
  insertSet.BindOptional(5, set.GetLabel().empty() ? std::nullopt : std::optional(set.GetLabel()));
  if (dichotomies) {
    insertSet.BindText(6, set.GetValue());
    insertSet.BindText(
        7, std::string_view(set.qUseVariableCategoryLabels() ? "countedValues" : "variableLabels"));
  }
  insertSet.BindInt(8, std::int64_t{set.qLabelSetByVariable() ? 1 : 0});
  insertSet.BindOptional(
      9, set.StoreExtras().empty() ? std::nullopt : std::optional(set.StoreExtras()));
  insertSet.Run();
  const std::int64_t id = sqlite3_last_insert_rowid(db.Get());
  std::int64_t index = 0;
  for (const std::string& variable : set.GetVariableNames(kAsStored)) {
    insertVariable.BindInt(1, id).BindInt(2, index++).BindText(3, variable).Run();
  }
  return id;
}

}  // namespace

// ---- the store ---------------------------------------------------------------

SqliteStore::SqliteStore(fs::path path)
    : path_(std::move(path)), busyTimeout_(std::chrono::seconds(10)) {}

SqliteStore::~SqliteStore() { AbortCommand(); }

bool SqliteStore::HasHeader(std::string_view head) { return head.substr(0, 16) == kHeader; }

bool SqliteStore::NameSuggestsDatabase(const fs::path& path) {
  const std::string extension = path.extension().string();
  return extension == ".db" || extension == ".sqlite" || extension == ".sqlite3";
}

SqliteConnection& SqliteStore::Open() {
  if (db_) return *db_;
  const std::string file = path_.string();
  // Never made here: a missing database is refused like a missing file.
  struct stat info {};
  if (::stat(path_.c_str(), &info) != 0) {
    throw DatasetError(file + ": cannot be read: " + std::strerror(errno));
  }
  auto db = std::make_unique<SqliteConnection>(path_, false, file);
  sqlite3_busy_timeout(db->Get(), static_cast<int>(busyTimeout_.count()));
  // A rollback journal, synced at each commit: a killed process leaves a hot
  // journal that the next opener rolls back.
  db->Execute("PRAGMA foreign_keys = ON; PRAGMA synchronous = FULL;", "cannot be read");
  Statement application(*db, "PRAGMA application_id", "cannot be read");
  application.Step();
  Statement version(*db, "PRAGMA user_version", "cannot be read");
  version.Step();
  if (application.Int(0) != kApplicationId) {
    throw DatasetError(file + ": an SQLite database, but not a dataset database");
  }
  if (version.Int(0) > kFormatVersion) {
    throw DatasetError(file + ": a dataset database of format " + std::to_string(version.Int(0)) +
                       ", newer than this program reads (" + std::to_string(kFormatVersion) + ")");
  }
  if (version.Int(0) != kFormatVersion) {
    throw DatasetError(file + ": not a valid dataset database: unknown format " +
                       std::to_string(version.Int(0)));
  }
  db_ = std::move(db);
  return *db_;
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

// Inside a transaction.
Dataset SqliteStore::ReadDataset(SqliteConnection& db) {
  const std::string& file = db.File();
  const auto corrupt = [&file](const std::string& fault) -> DatasetError {
    return DatasetError(file + ": not a valid dataset database: " + fault);
  };
  try {
    return ReadRows(db);
  } catch (const std::out_of_range&) {
    throw corrupt("a row refers to a variable or set that is not there");
  }
}

Dataset SqliteStore::ReadRows(SqliteConnection& db) {
  const std::string& file = db.File();
  const auto corrupt = [&file](const std::string& fault) -> DatasetError {
    return DatasetError(file + ": not a valid dataset database: " + fault);
  };
  {
    Statement check(db, "PRAGMA quick_check(1)", "cannot be read");
    if (check.Step() && check.Text(0) != "ok") throw corrupt(check.Text(0));
  }

  struct Field {
    std::string name;
    int width;
    std::string label;
    VORN_ValueLabels labels;
  };
  std::vector<Field> fields;
  std::unordered_map<std::int64_t, std::size_t> indexByPosition;
  Statement variables(db,
                      "SELECT position, name, folded_name, width, label FROM variables "
                      "ORDER BY position",
                      "cannot be read");
  while (variables.Step()) {
    Field field{variables.Text(1), static_cast<int>(variables.Int(3)), variables.Text(4), {}};
    if (variables.Text(2) != FoldName(field.name)) {
      throw corrupt("variable \"" + field.name + "\": folded_name does not match the name");
    }
    indexByPosition.emplace(variables.Int(0), fields.size());
    fields.push_back(std::move(field));
  }
  Statement categories(db, "SELECT variable, value, label FROM categories", "cannot be read");
  while (categories.Step()) {
    Field& field = fields.at(indexByPosition.at(categories.Int(0)));
    const Json value = categories.Value(1);
    if (value.is_string() != (field.width > 0)) {
      throw corrupt("variable \"" + field.name + "\": a category value must be " +
                    (field.width > 0 ? "text, as the variable is a string variable"
                                     : "a number, as the variable is numeric"));
    }
    if (categories.IsNull(2)) continue;
    if (field.width > 0) {
      field.labels.text.emplace(value.get<std::string>(), categories.Text(2));
    } else {
      field.labels.numeric.emplace(value.get<double>(), categories.Text(2));
    }
  }
  std::vector<VORN_Variable> dictionary;
  dictionary.reserve(fields.size());
  for (Field& field : fields) {
    dictionary.emplace_back(std::move(field.name), field.width, std::move(field.label),
                            std::move(field.labels));
  }

  StoredSets stored;
  std::unordered_map<std::int64_t, std::size_t> indexById;
  Statement sets(db,
                 "SELECT id, position, name, type, label, counted_value, category_labels, "
                 "label_from_variables, extras, folded_name FROM sets ORDER BY position",
                 "cannot be read");
  while (sets.Step()) {
    const std::string name = sets.Text(2);
    if (sets.Text(9) != FoldName(name)) {
      throw corrupt("set \"" + name + "\": folded_name does not match the name");
    }
    const bool dichotomies = sets.Text(3) == "dichotomies";
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    if (!sets.IsNull(4)) set.SetLabel(sets.Text(4));
    if (dichotomies) {
      set.SetValue(sets.Text(5));
      set.UseVariableCategoryLabels(sets.Text(6) == "countedValues");
    }
    set.LabelSetByVariable(sets.Int(7) != 0);
    if (!sets.IsNull(8)) {
      const std::string extras = sets.Text(8);
      if (!Json::parse(extras, nullptr, false).is_object()) {
        throw corrupt("set \"" + name + "\": extras must be a JSON object");
      }
      set.SetStoreExtras(extras);
    }
    indexById.emplace(sets.Int(0), stored.sets.size());
    stored.ids.push_back(sets.Int(0));
    stored.positions.push_back(sets.Int(1));
    stored.sets.push_back(std::move(set));
  }
  // Every row of set_variables belongs to a set (a foreign key).
  std::vector<std::vector<std::string>> members(stored.sets.size());
  Statement setVariables(db, "SELECT set_id, name FROM set_variables ORDER BY set_id, position",
                         "cannot be read");
  while (setVariables.Step()) {
    members.at(indexById.at(setVariables.Int(0))).push_back(setVariables.Text(1));
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    for (const std::string& name : members[i]) stored.sets[i].AddVariableName(name);
  }
  ReadRevision(db);

  Dataset dataset(std::move(dictionary), stored.sets);
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
  return !loaded_ || dataset.MultipleResponseSets() != stored_.sets;
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
    WriteSets(db, dataset.MultipleResponseSets());
  } catch (...) {
    AbortCommand();
    throw;
  }
  if (ownUnit) EndCommand();
}

// Rewrites only the sets that differ from the stored ones, and renumbers
// the rest: a command that adds one set to thousands writes one set.
void SqliteStore::WriteSets(SqliteConnection& db, const std::vector<VariableSet>& sets) {
  const std::string doing = "not saved";
  std::unordered_map<std::string, std::size_t> storedByName;
  for (std::size_t i = 0; i < stored_.sets.size(); ++i) {
    storedByName.emplace(FoldName(stored_.sets[i].GetName(kAsStored)), i);
  }
  std::vector<std::optional<std::size_t>> kept(sets.size());
  std::vector<bool> used(stored_.sets.size(), false);
  for (std::size_t i = 0; i < sets.size(); ++i) {
    const auto found = storedByName.find(FoldName(sets[i].GetName(kAsStored)));
    if (found != storedByName.end() && !used[found->second] &&
        stored_.sets[found->second] == sets[i]) {
      kept[i] = found->second;
      used[found->second] = true;
    }
  }
  Statement remove(db, "DELETE FROM sets WHERE id = ?", doing);
  for (std::size_t i = 0; i < stored_.sets.size(); ++i) {
    if (!used[i]) remove.BindInt(1, stored_.ids[i]).Run();
  }
  // Through negative positions, so that no two rows share one on the way.
  Statement move(db, "UPDATE sets SET position = ? WHERE id = ?", doing);
  for (int pass = 0; pass < 2; ++pass) {
    for (std::size_t i = 0; i < sets.size(); ++i) {
      if (!kept[i] || stored_.positions[*kept[i]] == static_cast<std::int64_t>(i)) continue;
      const auto position = static_cast<std::int64_t>(i);
      move.BindInt(1, pass == 0 ? -1 - position : position).BindInt(2, stored_.ids[*kept[i]]).Run();
    }
  }
  Statement insertSet(db, kInsertSet, doing);
  Statement insertVariable(db, kInsertSetVariable, doing);
  StoredSets written;
  written.sets = sets;
  for (std::size_t i = 0; i < sets.size(); ++i) {
    const auto position = static_cast<std::int64_t>(i);
    written.ids.push_back(kept[i] ? stored_.ids[*kept[i]]
                                  : InsertSet(db, insertSet, insertVariable, sets[i], position));
    written.positions.push_back(position);
  }
  db.Execute("UPDATE dataset SET revision = revision + 1 WHERE id = 1", doing);
  pending_ = std::move(written);
  pendingRevision_ = revision_ + 1;
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

// ---- conversion ----------------------------------------------------------------

Json SqliteStore::ExportCodebook() {
  SqliteConnection& db = Open();
  db.Execute("BEGIN", "cannot be read");
  try {
    const Dataset dataset = ReadDataset(db);
    std::vector<FieldRecord> records;
    std::unordered_map<std::int64_t, std::size_t> indexByPosition;
    Statement variables(db,
                        "SELECT position, name, width, type, label, layout FROM variables "
                        "ORDER BY position",
                        "cannot be read");
    while (variables.Step()) {
      indexByPosition.emplace(variables.Int(0), records.size());
      records.push_back({variables.Text(1),
                         static_cast<int>(variables.Int(2)),
                         variables.OptionalText(3),
                         variables.OptionalText(4),
                         variables.OptionalText(5),
                         {}});
    }
    Statement categories(db,
                         "SELECT variable, value, label, bare, layout FROM categories "
                         "ORDER BY variable, position",
                         "cannot be read");
    while (categories.Step()) {
      records.at(indexByPosition.at(categories.Int(0)))
          .categories.push_back({categories.Value(1), categories.OptionalText(2),
                                 categories.Int(3) != 0, categories.OptionalText(4)});
    }
    Statement document(db, "SELECT layout FROM dataset WHERE id = 1", "cannot be read");
    document.Step();
    const std::optional<std::string> layout = document.OptionalText(0);
    db.Execute("COMMIT", "cannot be read");

    Json fields = Json::array();
    for (const FieldRecord& record : records) fields.push_back(JoinField(record));
    return JoinDocument(layout, std::move(fields),
                        RenderCodebookSets(dataset.MultipleResponseSets()));
  } catch (const Json::exception& error) {
    sqlite3_exec(db.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw DatasetError(db.File() +
                       ": not a valid dataset database: a layout is not valid: " + error.what());
  } catch (...) {
    sqlite3_exec(db.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void SqliteStore::Create(const fs::path& path, const Dataset& dataset, const Json* codebook) {
  const std::string file = path.string();
  const auto fill = [&](const fs::path& temporary) {
    SqliteConnection db(temporary, true, file);
    const std::string doing = "not saved";
    db.Execute(
        "PRAGMA journal_mode = DELETE; PRAGMA synchronous = FULL; "
        "PRAGMA foreign_keys = ON; PRAGMA application_id = " +
            std::to_string(kApplicationId) +
            "; PRAGMA user_version = " + std::to_string(kFormatVersion) + ";",
        doing);
    db.Execute("BEGIN", doing);
    db.Execute(kSchema, doing);

    std::optional<std::string> layout;
    const Json* fields = nullptr;
    if (codebook != nullptr) {
      Json top = *codebook;
      top[kCodebookFieldsKey] = nullptr;
      if (top.contains(kCodebookSetsKey)) top[kCodebookSetsKey] = nullptr;
      layout = top.dump();
      fields = &codebook->at(kCodebookFieldsKey);
    }
    Statement meta(db, "INSERT INTO dataset (id, revision, layout) VALUES (1, 0, ?)", doing);
    meta.BindOptional(1, layout).Run();

    Statement insertVariable(db,
                             "INSERT INTO variables (position, name, folded_name, width, type, "
                             "label, layout) VALUES (?, ?, ?, ?, ?, ?, ?)",
                             doing);
    Statement insertCategory(db,
                             "INSERT INTO categories (variable, position, value, label, bare, "
                             "layout) VALUES (?, ?, ?, ?, ?, ?)",
                             doing);
    const auto& variables = dataset.Variables();
    for (std::size_t i = 0; i < variables.size(); ++i) {
      const FieldRecord record =
          fields != nullptr ? SplitField(fields->at(i), variables[i]) : FieldOf(variables[i]);
      const auto position = static_cast<std::int64_t>(i);
      insertVariable.BindInt(1, position)
          .BindText(2, record.name)
          .BindText(3, FoldName(record.name));
      insertVariable.BindInt(4, std::int64_t{record.width}).BindOptional(5, record.type);
      insertVariable.BindOptional(6, record.label).BindOptional(7, record.layout).Run();
      std::int64_t index = 0;
      for (const CategoryRecord& category : record.categories) {
        insertCategory.BindInt(1, position).BindInt(2, index++).BindValue(3, category.value);
        insertCategory.BindOptional(4, category.label)
            .BindInt(5, std::int64_t{category.bare ? 1 : 0});
        insertCategory.BindOptional(6, category.layout).Run();
      }
    }
    Statement insertSet(db, kInsertSet, doing);
    Statement insertSetVariable(db, kInsertSetVariable, doing);
    std::int64_t position = 0;
    for (const VariableSet& set : dataset.MultipleResponseSets()) {
      InsertSet(db, insertSet, insertSetVariable, set, position++);
    }
    db.Execute("COMMIT", doing);
  };
  try {
    files::CreateFileAtomically(path, fill);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

}  // namespace hostlib::data
