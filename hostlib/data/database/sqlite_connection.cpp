#include "hostlib/data/database/sqlite_connection.h"

#include <memory>

#include "hostlib/data/database/sqlite_vfs.h"

namespace hostlib::data {

SqliteConnection::SqliteConnection(const std::filesystem::path& path, bool create, std::string file,
                                   files::Env& env)
    : file_(std::move(file)) {
  const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) |
                    SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int status = sqlite3_open_v2(path.c_str(), &db_, flags, VfsName(env));
  if (status != SQLITE_OK) {
    const std::string message = Message("cannot be read");
    sqlite3_close_v2(std::exchange(db_, nullptr));  // the destructor will not run
    throw DatasetError(message);
  }
}

std::string SqliteConnection::Message(std::string doing) const {
  const int code = db_ != nullptr ? (sqlite3_extended_errcode(db_) & 0xff) : SQLITE_NOMEM;
  if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB) {
    doing = "not a valid dataset database: the file is damaged or truncated";
  }
  std::string reason = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
  int error = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
  if (error == 0 && code == SQLITE_IOERR) error = RefusedErrno(db_);
  if (error != 0 && reason.find(std::strerror(error)) == std::string::npos) {
    reason += std::string(" (") + std::strerror(error) + ")";
  }
  return file_ + ": " + doing + ": " + reason;
}

void SqliteConnection::Execute(std::string_view sql, const std::string& doing) const {
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

}  // namespace hostlib::data
