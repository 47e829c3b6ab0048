// A dataset database is someone else's file: what it holds must not run, hang
// or exhaust the program. Opening one goes through here.
#pragma once

#include <filesystem>

#include "hostlib/data/database/sqlite_connection.h"

namespace hostlib::data {

// Before anything is read: defensive mode, the schema untrusted, no
// extensions, and limits on what one value or statement may take.
void GuardConnection(const SqliteConnection& db);

// Refuses a database whose tables, indexes, views or triggers are not
// exactly those of its format (`version`), naming the first object that
// differs.
void CheckSchema(const SqliteConnection& db, int version);

// Whether the file's header says write-ahead logging, which this program
// does not use (another program may have switched it).
bool InWriteAheadLogMode(const std::filesystem::path& path, files::Env& env);

// Switches a database another program left in write-ahead logging back to a
// rollback journal; refuses it, with a message saying so, where it cannot.
void LeaveWriteAheadLogMode(const SqliteConnection& db);

}  // namespace hostlib::data
