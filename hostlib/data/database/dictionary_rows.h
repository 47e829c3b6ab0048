// The dictionary's rows in a dataset database: the variables and their
// categories, each with the layout of the codebook entry it came from.
#pragma once

#include <vector>

#include "hostlib/data/codebook/field_layout.h"
#include "hostlib/data/database/sqlite_connection.h"

namespace hostlib::data {

// Every variable row in position order, with its categories. Throws
// DatasetError for rows that break the format's rules.
std::vector<FieldRecord> ReadFieldRecords(const SqliteConnection& db);

// Refuses a layout (or a set's extras) that nests deeper than a JSON text may
// before anything parses it; `owner` names what holds it.
void CheckLayout(const SqliteConnection& db, const std::optional<std::string>& layout,
                 const std::string& owner);

// The dictionary the records describe.
std::vector<VORN_Variable> VariablesOf(const std::vector<FieldRecord>& records);

void InsertFieldRecords(const SqliteConnection& db, const std::vector<FieldRecord>& records);

}  // namespace hostlib::data
