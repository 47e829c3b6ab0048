// The dictionary's rows in a dataset database: the variables and their
// categories, each with the layout of the codebook entry it came from.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "hostlib/data/codebook/field_layout.h"
#include "hostlib/data/database/sqlite_connection.h"
#include "hostlib/data/dictionary_source.h"

namespace hostlib::data {

// Every variable row in position order, with its categories. Throws
// DatasetError for rows that break the format's rules.
std::vector<FieldRecord> ReadFieldRecords(const SqliteConnection& db);

// Refuses a layout (or a set's extras) that nests deeper than a JSON text may
// before anything parses it; `owner` names what holds it.
void CheckLayout(const SqliteConnection& db, const std::optional<std::string>& layout,
                 const std::string& owner);

// The dictionary the records describe.
VORN_Variable VariableOf(const FieldRecord& record);
std::vector<VORN_Variable> VariablesOf(const std::vector<FieldRecord>& records);

// The dictionary read row by row through the indexes on position and
// folded_name. Each row read is checked as ReadFieldRecords checks it (its
// folded_name among them: the unique index on folded_name then keeps names
// unique without regard to case); nothing else is read.
class DatabaseDictionary final : public DictionarySource {
 public:
  // Throws DatasetError when the positions do not start at 0.
  explicit DatabaseDictionary(std::shared_ptr<const SqliteConnection> db);

  unsigned int Count() const override { return count_; }
  int FindFolded(std::string_view folded) const override;
  VORN_Variable Read(int index) const override;
  std::vector<VORN_Variable> ReadAll() const override;

 private:
  FieldRecord ReadRecord(int index) const;

  std::shared_ptr<const SqliteConnection> db_;
  mutable Statement find_;
  mutable Statement read_;
  mutable Statement categories_;
  unsigned int count_ = 0;
};

void InsertFieldRecords(const SqliteConnection& db, const std::vector<FieldRecord>& records);

}  // namespace hostlib::data
