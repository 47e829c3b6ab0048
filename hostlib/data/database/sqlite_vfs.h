// SQLite's own file operations through an Env: a VFS that wraps the default
// one and asks the Env before every write, sync, truncation and deletion of
// the database and its journal, so that a fault an Env injects reaches them.
#pragma once

#include <sqlite3.h>

#include "hostlib/files/env.h"

namespace hostlib::data {

// The name of the VFS registered for `env` (registered on first use; the
// registration lasts as long as the process).
const char* VfsName(files::Env& env);

// The errno of the last call the Env refused on `db`'s files, 0 when none
// (SQLite does not record the system's error of every failure, a commit's).
int RefusedErrno(sqlite3* db);

}  // namespace hostlib::data
