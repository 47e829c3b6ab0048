// An open SQLite database and its prepared statements. Every failure throws
// DatasetError naming the file, what was being done and SQLite's reason (a
// damaged file: "not a valid dataset database: the file is damaged or
// truncated").
//
// Private to the data layer: SQLite's and the JSON library's types do not
// leave it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "hostlib/data/dataset.h"
#include "hostlib/files/env.h"

namespace hostlib::data {

// One open database; every failure names the file and what was being done.
class SqliteConnection {
 public:
  // Opens `path` through the file system `env` (whose faults reach SQLite's
  // own reads and writes); `file` names the database in messages.
  SqliteConnection(const std::filesystem::path& path, bool create, std::string file,
                   files::Env& env);
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;
  ~SqliteConnection() { sqlite3_close_v2(db_); }

  sqlite3* Get() const { return db_; }
  const std::string& File() const { return file_; }

  [[noreturn]] void Fail(const std::string& doing) const { throw DatasetError(Message(doing)); }
  std::string Message(std::string doing) const;

  // Runs every statement of `sql`, which takes no parameters.
  void Execute(std::string_view sql, const std::string& doing) const;

 private:
  sqlite3* db_ = nullptr;
  std::string file_;
};

// A prepared statement of a connection; a failing step throws as the
// connection's Fail.
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
  // Binds the bytes themselves, not a copy: they must outlive the binding.
  Statement& BindStaticBlob(int index, const std::vector<unsigned char>& bytes) {
    // An empty vector's data may be null, which would bind NULL.
    if (bytes.empty()) return Check(sqlite3_bind_zeroblob64(statement_, index, 0));
    return Check(sqlite3_bind_blob64(statement_, index, bytes.data(), bytes.size(), SQLITE_STATIC));
  }
  Statement& BindOptional(int index, const std::optional<std::string>& value) {
    return value ? BindText(index, *value) : Check(sqlite3_bind_null(statement_, index));
  }
  // A JSON number or string, keeping whether the number was written whole.
  Statement& BindValue(int index, const nlohmann::ordered_json& value) {
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
  std::string Text(int column) const { return std::string(View(column)); }
  // The text of a column, valid until the next step.
  std::string_view View(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text == nullptr
               ? std::string_view()
               : std::string_view(
                     text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }
  // The bytes of a blob column, valid until the next step.
  std::string_view BlobView(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    return bytes == nullptr
               ? std::string_view()
               : std::string_view(
                     static_cast<const char*>(bytes),
                     static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
  }
  std::optional<std::string> OptionalText(int column) const {
    if (IsNull(column)) return std::nullopt;
    return Text(column);
  }
  nlohmann::ordered_json Value(int column) const {
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

}  // namespace hostlib::data
