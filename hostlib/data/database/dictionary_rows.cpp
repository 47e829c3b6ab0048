#include "hostlib/data/database/dictionary_rows.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>

#include "hostlib/data/codebook/json_nesting.h"

namespace hostlib::data {

namespace {

constexpr const char* kReading = "cannot be read";

[[noreturn]] void Corrupt(const SqliteConnection& db, const std::string& fault) {
  throw DatasetError(db.File() + ": not a valid dataset database: " + fault);
}

}  // namespace

void CheckLayout(const SqliteConnection& db, const std::optional<std::string>& layout,
                 const std::string& owner) {
  if (layout && FindNestingFault(*layout)) {
    Corrupt(db, owner + ": a layout nests more than " + std::to_string(kMaxJsonNesting) +
                    " levels deep");
  }
}

namespace {

constexpr const char* kFieldColumns = "name, folded_name, width, type, label, layout";
constexpr const char* kCategoryColumns = "value, label, bare, layout";

// A variable row of the columns kFieldColumns, its categories not yet read.
FieldRecord FieldOfRow(const SqliteConnection& db, const Statement& row) {
  FieldRecord record{row.Text(0),         static_cast<int>(row.Int(2)), row.OptionalText(3),
                     row.OptionalText(4), row.OptionalText(5),          {}};
  if (record.name.find('\0') != std::string::npos) {
    Corrupt(db, "a variable name holds the character U+0000");
  }
  CheckLayout(db, record.layout, "variable \"" + record.name + "\"");
  if (row.Text(1) != FoldName(record.name)) {
    Corrupt(db, "variable \"" + record.name + "\": folded_name does not match the name");
  }
  return record;
}

// Adds the category row (columns kCategoryColumns from `first`) to `record`.
void AddCategoryOfRow(const SqliteConnection& db, const Statement& row, int first,
                      FieldRecord& record) {
  CategoryRecord category{row.Value(first), row.OptionalText(first + 1), row.Int(first + 2) != 0,
                          row.OptionalText(first + 3)};
  if (category.value.is_string() != (record.width > 0)) {
    Corrupt(db, "variable \"" + record.name + "\": a category value must be " +
                    (record.width > 0 ? "text, as the variable is a string variable"
                                      : "a number, as the variable is numeric"));
  }
  CheckLayout(db, category.layout, "variable \"" + record.name + "\"");
  record.categories.push_back(std::move(category));
}

}  // namespace

std::vector<FieldRecord> ReadFieldRecords(const SqliteConnection& db) {
  std::vector<FieldRecord> records;
  std::unordered_map<std::int64_t, std::size_t> indexByPosition;
  Statement variables(
      db, std::string("SELECT ") + kFieldColumns + ", position FROM variables ORDER BY position",
      kReading);
  while (variables.Step()) {
    indexByPosition.emplace(variables.Int(6), records.size());
    records.push_back(FieldOfRow(db, variables));
  }
  Statement categories(db,
                       std::string("SELECT variable, ") + kCategoryColumns +
                           " FROM categories ORDER BY variable, position",
                       kReading);
  while (categories.Step()) {
    const auto found = indexByPosition.find(categories.Int(0));
    if (found == indexByPosition.end()) {
      Corrupt(db, "a row refers to a variable or set that is not there");
    }
    AddCategoryOfRow(db, categories, 1, records[found->second]);
  }
  return records;
}

DatabaseDictionary::DatabaseDictionary(std::shared_ptr<const SqliteConnection> db)
    : db_(std::move(db)),
      find_(*db_, "SELECT position, name FROM variables WHERE folded_name = ?", kReading),
      read_(*db_, std::string("SELECT ") + kFieldColumns + " FROM variables WHERE position = ?",
            kReading),
      categories_(*db_,
                  std::string("SELECT ") + kCategoryColumns +
                      " FROM categories WHERE variable = ? ORDER BY position",
                  kReading) {
  // Positions run from 0 without gaps (a gap is refused where a read meets
  // it), so the greatest gives the count without a scan (min and max asked
  // apart: together they would scan the table).
  Statement last(*db_,
                 "SELECT (SELECT min(position) FROM variables), "
                 "(SELECT max(position) FROM variables)",
                 kReading);
  last.Step();
  if (last.IsNull(0)) return;
  if (last.Int(0) != 0 || last.Int(1) >= std::numeric_limits<int>::max()) {
    Corrupt(*db_, "the variable positions do not run from 0 without gaps");
  }
  count_ = static_cast<unsigned int>(last.Int(1) + 1);
}

int DatabaseDictionary::FindFolded(std::string_view folded) const {
  find_.Reset();
  find_.BindText(1, folded);
  if (!find_.Step()) {
    find_.Reset();
    return -1;
  }
  const std::int64_t position = find_.Int(0);
  const std::string name = find_.Text(1);
  find_.Reset();
  if (FoldName(name) != folded) {
    Corrupt(*db_, "variable \"" + name + "\": folded_name does not match the name");
  }
  if (position < 0 || position >= count_) {
    Corrupt(*db_, "the variable positions do not run from 0 without gaps");
  }
  return static_cast<int>(position);
}

FieldRecord DatabaseDictionary::ReadRecord(int index) const {
  read_.Reset();
  read_.BindInt(1, index);
  if (!read_.Step()) Corrupt(*db_, "the variable positions do not run from 0 without gaps");
  FieldRecord record = FieldOfRow(*db_, read_);
  read_.Reset();
  categories_.Reset();
  categories_.BindInt(1, index);
  while (categories_.Step()) AddCategoryOfRow(*db_, categories_, 0, record);
  categories_.Reset();
  return record;
}

VORN_Variable DatabaseDictionary::Read(int index) const { return VariableOf(ReadRecord(index)); }

std::vector<VORN_Variable> DatabaseDictionary::ReadAll() const {
  return VariablesOf(ReadFieldRecords(*db_));
}

VORN_Variable VariableOf(const FieldRecord& record) {
  VORN_ValueLabels labels;
  for (const CategoryRecord& category : record.categories) {
    if (!category.label) continue;
    if (record.width > 0) {
      labels.text.emplace(category.value.get<std::string>(), *category.label);
    } else {
      labels.numeric.emplace(category.value.get<double>(), *category.label);
    }
  }
  return VORN_Variable(record.name, record.width, record.label.value_or(std::string()),
                       std::move(labels));
}

std::vector<VORN_Variable> VariablesOf(const std::vector<FieldRecord>& records) {
  std::vector<VORN_Variable> variables;
  variables.reserve(records.size());
  for (const FieldRecord& record : records) variables.push_back(VariableOf(record));
  return variables;
}

void InsertFieldRecords(const SqliteConnection& db, const std::vector<FieldRecord>& records) {
  const std::string doing = "not saved";
  Statement insertVariable(db,
                           "INSERT INTO variables (position, name, folded_name, width, type, "
                           "label, layout) VALUES (?, ?, ?, ?, ?, ?, ?)",
                           doing);
  Statement insertCategory(db,
                           "INSERT INTO categories (variable, position, value, label, bare, "
                           "layout) VALUES (?, ?, ?, ?, ?, ?)",
                           doing);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const FieldRecord& record = records[i];
    const auto position = static_cast<std::int64_t>(i);
    insertVariable.BindInt(1, position).BindText(2, record.name).BindText(3, FoldName(record.name));
    insertVariable.BindInt(4, std::int64_t{record.width}).BindOptional(5, record.type);
    insertVariable.BindOptional(6, record.label).BindOptional(7, record.layout).Run();
    std::int64_t index = 0;
    for (const CategoryRecord& category : record.categories) {
      insertCategory.BindInt(1, position).BindInt(2, index++).BindValue(3, category.value);
      insertCategory.BindOptional(4, category.label)
          .BindInt(5, std::int64_t{category.bare ? 1 : 0});
      insertCategory.BindOptional(6, category.layout).Run();
    }
  }
}

}  // namespace hostlib::data
