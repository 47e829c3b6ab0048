#include "hostlib/data/database/dictionary_rows.h"

#include <cstdint>
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

std::vector<FieldRecord> ReadFieldRecords(const SqliteConnection& db) {
  std::vector<FieldRecord> records;
  std::unordered_map<std::int64_t, std::size_t> indexByPosition;
  Statement variables(db,
                      "SELECT position, name, folded_name, width, type, label, layout "
                      "FROM variables ORDER BY position",
                      kReading);
  while (variables.Step()) {
    FieldRecord record{variables.Text(1),         static_cast<int>(variables.Int(3)),
                       variables.OptionalText(4), variables.OptionalText(5),
                       variables.OptionalText(6), {}};
    if (record.name.find('\0') != std::string::npos) {
      Corrupt(db, "a variable name holds the character U+0000");
    }
    CheckLayout(db, record.layout, "variable \"" + record.name + "\"");
    if (variables.Text(2) != FoldName(record.name)) {
      Corrupt(db, "variable \"" + record.name + "\": folded_name does not match the name");
    }
    indexByPosition.emplace(variables.Int(0), records.size());
    records.push_back(std::move(record));
  }
  Statement categories(db,
                       "SELECT variable, value, label, bare, layout FROM categories "
                       "ORDER BY variable, position",
                       kReading);
  while (categories.Step()) {
    const auto found = indexByPosition.find(categories.Int(0));
    if (found == indexByPosition.end()) {
      Corrupt(db, "a row refers to a variable or set that is not there");
    }
    FieldRecord& record = records[found->second];
    CategoryRecord category{categories.Value(1), categories.OptionalText(2), categories.Int(3) != 0,
                            categories.OptionalText(4)};
    if (category.value.is_string() != (record.width > 0)) {
      Corrupt(db, "variable \"" + record.name + "\": a category value must be " +
                      (record.width > 0 ? "text, as the variable is a string variable"
                                        : "a number, as the variable is numeric"));
    }
    CheckLayout(db, category.layout, "variable \"" + record.name + "\"");
    record.categories.push_back(std::move(category));
  }
  return records;
}

std::vector<VORN_Variable> VariablesOf(const std::vector<FieldRecord>& records) {
  std::vector<VORN_Variable> variables;
  variables.reserve(records.size());
  for (const FieldRecord& record : records) {
    VORN_ValueLabels labels;
    for (const CategoryRecord& category : record.categories) {
      if (!category.label) continue;
      if (record.width > 0) {
        labels.text.emplace(category.value.get<std::string>(), *category.label);
      } else {
        labels.numeric.emplace(category.value.get<double>(), *category.label);
      }
    }
    variables.emplace_back(record.name, record.width, record.label.value_or(std::string()),
                           std::move(labels));
  }
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
