// The sets' rows in a dataset database.
#pragma once

#include <cstdint>
#include <vector>

#include "hostlib/data/database/sqlite_connection.h"
#include "hostlib/data/database/stored_sets.h"

namespace hostlib::data {

// Throws DatasetError for rows that break the format's rules.
StoredSets ReadStoredSets(const SqliteConnection& db);

// Stores sets as a codebook file would hold them.
class SetWriter {
 public:
  explicit SetWriter(const SqliteConnection& db);
  // Returns the set's row.
  std::int64_t Insert(const VariableSet& set, std::int64_t position);

 private:
  const SqliteConnection& db_;
  Statement insertSet_;
  Statement insertVariable_;
};

}  // namespace hostlib::data
