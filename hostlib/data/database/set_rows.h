// The sets' rows in a dataset database.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "hostlib/data/database/sqlite_connection.h"
#include "hostlib/data/database/stored_sets.h"

namespace hostlib::data {

// The sets in order, by their names only: the rest of a set is read from
// `db` when it is first asked for, so a command that shows or changes a few
// of thousands of sets reads a few. The order is that of `set_order` when
// `listed` (format 2), else of the rows' positions. Throws DatasetError for
// rows that break the format's rules (a set's other rows: when they are
// read).
StoredSets ReadStoredSets(const std::shared_ptr<const SqliteConnection>& db, bool listed);

// The sets in order, each read whole now (for a whole-file export).
StoredSets ReadWholeStoredSets(const SqliteConnection& db, bool listed);

// Lists the sets' ids, in order, in `set_order`, where it listed `before`:
// only the chunks that differ are written.
void WriteSetOrder(const SqliteConnection& db, const std::vector<std::int64_t>& ids,
                   const std::vector<std::int64_t>& before);

// Reads one set's rows: nothing when the row is gone or holds another name.
class SetRowReader {
 public:
  explicit SetRowReader(const SqliteConnection& db);
  std::optional<VariableSet> Read(std::int64_t id, const std::string& name);

 private:
  const SqliteConnection& db_;
  Statement readSet_;
  Statement readMembers_;
};

// Stores sets as a codebook file would hold them.
class SetWriter {
 public:
  explicit SetWriter(const SqliteConnection& db);
  // Returns the set's row.
  std::int64_t Insert(const VariableSet& set, std::int64_t position);

 private:
  const SqliteConnection& db_;
  Statement insertSet_;
  Statement dropStrayVariables_;
  Statement insertVariable_;
  SetRowReader readBack_;
};

}  // namespace hostlib::data
