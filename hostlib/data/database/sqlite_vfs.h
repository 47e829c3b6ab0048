// SQLite's own file operations through an Env: a VFS that wraps the default
// one and asks the Env before every write, sync, truncation and deletion of
// the database and its journal, so that a fault an Env injects reaches them.
#pragma once

#include "hostlib/files/env.h"

namespace hostlib::data {

// The name of the VFS registered for `env` (registered on first use; the
// registration lasts as long as the process).
const char* VfsName(files::Env& env);

}  // namespace hostlib::data
