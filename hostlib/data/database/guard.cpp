#include "hostlib/data/database/guard.h"

#include <fcntl.h>

#include <array>
#include <set>
#include <string>
#include <tuple>

#include "hostlib/data/database/schema.h"
#include "hostlib/files/files.h"

namespace hostlib::data {
namespace {

// type, name, table, sql
using SchemaRow = std::tuple<std::string, std::string, std::string, std::string>;

std::set<SchemaRow> SchemaOf(const SqliteConnection& db) {
  std::set<SchemaRow> rows;
  Statement schema(db, "SELECT type, name, tbl_name, sql FROM sqlite_schema", "cannot be read");
  while (schema.Step()) {
    rows.emplace(schema.Text(0), schema.Text(1), schema.Text(2), schema.Text(3));
  }
  return rows;
}

// The schema as a format makes it, read back from a database in memory.
std::set<SchemaRow> MadeSchema(bool withSetOrder) {
  files::Env& env = files::DefaultEnv();
  const SqliteConnection db(":memory:", true, "the format's schema", env);
  db.Execute(kSchema, "cannot be made");
  if (withSetOrder) db.Execute(kSetOrderSchema, "cannot be made");
  return SchemaOf(db);
}

const std::set<SchemaRow>& FormatSchema(int version) {
  static const std::set<SchemaRow> first = MadeSchema(false);
  static const std::set<SchemaRow> current = MadeSchema(true);
  return version == kOldestFormatVersion ? first : current;
}

}  // namespace

void GuardConnection(const SqliteConnection& db) {
  sqlite3* raw = db.Get();
  sqlite3_db_config(raw, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(raw, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(raw, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  sqlite3_db_config(raw, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(raw, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  // No name, label or layout needs more than a few megabytes.
  sqlite3_limit(raw, SQLITE_LIMIT_LENGTH, 16 << 20);
  sqlite3_limit(raw, SQLITE_LIMIT_SQL_LENGTH, 1 << 20);
  sqlite3_limit(raw, SQLITE_LIMIT_EXPR_DEPTH, 100);
  sqlite3_limit(raw, SQLITE_LIMIT_ATTACHED, 0);
  db.Execute("PRAGMA trusted_schema = OFF", "cannot be read");
}

void CheckSchema(const SqliteConnection& db, int version) {
  const std::set<SchemaRow> found = SchemaOf(db);
  const std::set<SchemaRow>& expected = FormatSchema(version);
  const auto fail = [&db](const SchemaRow& row, const char* fault) {
    throw DatasetError(db.File() + ": not a valid dataset database: " + std::get<0>(row) + " \"" +
                       std::get<1>(row) + "\" " + fault);
  };
  for (const SchemaRow& row : found) {
    if (expected.count(row) == 0) fail(row, "is not the format's");
  }
  for (const SchemaRow& row : expected) {
    if (found.count(row) == 0) fail(row, "is missing");
  }
}

bool InWriteAheadLogMode(const std::filesystem::path& path, files::Env& env) {
  files::FileDescriptor fd(env.Open(path, O_RDONLY));
  std::array<unsigned char, 20> header{};
  if (!fd || env.Read(fd.Get(), path, header.data(), header.size()) != 20) return false;
  // Bytes 18 and 19: the write and read format versions, 2 for WAL.
  return header[18] == 2 || header[19] == 2;
}

void LeaveWriteAheadLogMode(const SqliteConnection& db) {
  const std::string refused =
      db.File() +
      ": the dataset database is in write-ahead-log mode, which this program does not read; "
      "open it once where its folder can be written, and it is set back to a rollback journal";
  try {
    Statement mode(db, "PRAGMA journal_mode = DELETE", "cannot be read");
    if (mode.Step() && mode.Text(0) == "delete") return;
  } catch (const DatasetError&) {
  }
  throw DatasetError(refused);
}

}  // namespace hostlib::data
