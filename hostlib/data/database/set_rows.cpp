#include "hostlib/data/database/set_rows.h"

#include "hostlib/data/database/dictionary_rows.h"

#include <string>
#include <unordered_map>

namespace hostlib::data {

namespace {

using Json = nlohmann::ordered_json;
constexpr const char* kReading = "cannot be read";

[[noreturn]] void Corrupt(const SqliteConnection& db, const std::string& fault) {
  throw DatasetError(db.File() + ": not a valid dataset database: " + fault);
}

}  // namespace

StoredSets ReadStoredSets(const SqliteConnection& db) {
  StoredSets stored;
  std::unordered_map<std::int64_t, std::size_t> indexById;
  Statement sets(db,
                 "SELECT id, position, name, type, label, counted_value, category_labels, "
                 "label_from_variables, extras, folded_name FROM sets ORDER BY position",
                 kReading);
  while (sets.Step()) {
    const std::string name = sets.Text(2);
    if (name.find('\0') != std::string::npos) {
      Corrupt(db, "a set name holds the character U+0000");
    }
    if (sets.Text(9) != FoldName(name)) {
      Corrupt(db, "set \"" + name + "\": folded_name does not match the name");
    }
    const bool dichotomies = sets.Text(3) == "dichotomies";
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    if (!sets.IsNull(4)) set.SetLabel(sets.Text(4));
    if (dichotomies) {
      set.SetValue(sets.Text(5));
      set.UseVariableCategoryLabels(sets.Text(6) == "countedValues");
    }
    set.LabelSetByVariable(sets.Int(7) != 0);
    if (!sets.IsNull(8)) {
      const std::string extras = sets.Text(8);
      CheckLayout(db, extras, "set \"" + name + "\"");
      if (!Json::parse(extras, nullptr, false).is_object()) {
        Corrupt(db, "set \"" + name + "\": extras must be a JSON object");
      }
      set.SetStoreExtras(extras);
    }
    indexById.emplace(sets.Int(0), stored.sets.size());
    stored.ids.push_back(sets.Int(0));
    stored.positions.push_back(sets.Int(1));
    stored.sets.push_back(std::move(set));
  }
  // Every row of set_variables belongs to a set (a foreign key).
  std::vector<std::vector<std::string>> members(stored.sets.size());
  Statement setVariables(db, "SELECT set_id, name FROM set_variables ORDER BY set_id, position",
                         kReading);
  while (setVariables.Step()) {
    const auto found = indexById.find(setVariables.Int(0));
    if (found == indexById.end())
      Corrupt(db, "a row refers to a variable or set that is not there");
    std::string member = setVariables.Text(1);
    if (member.find('\0') != std::string::npos) {
      Corrupt(db, "a set's variable name holds the character U+0000");
    }
    members[found->second].push_back(std::move(member));
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    for (const std::string& name : members[i]) stored.sets[i].AddVariableName(name);
  }
  return stored;
}

SetWriter::SetWriter(const SqliteConnection& db)
    : db_(db),
      insertSet_(
          db,
          "INSERT INTO sets (position, name, folded_name, type, label, counted_value, "
          "category_labels, label_from_variables, extras) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
          "not saved"),
      insertVariable_(db, "INSERT INTO set_variables (set_id, position, name) VALUES (?, ?, ?)",
                      "not saved") {}

std::int64_t SetWriter::Insert(const VariableSet& set, std::int64_t position) {
  const std::string name = set.GetName(kAsStored);
  const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
  insertSet_.BindInt(1, position).BindText(2, name).BindText(3, FoldName(name));
  insertSet_.BindText(4, std::string_view(dichotomies ? "dichotomies" : "categories"));
  insertSet_.BindOptional(5, set.GetLabel().empty() ? std::nullopt : std::optional(set.GetLabel()));
  if (dichotomies) {
    insertSet_.BindText(6, set.GetValue());
    insertSet_.BindText(
        7, std::string_view(set.qUseVariableCategoryLabels() ? "countedValues" : "variableLabels"));
  }
  insertSet_.BindInt(8, std::int64_t{set.qLabelSetByVariable() ? 1 : 0});
  insertSet_.BindOptional(
      9, set.StoreExtras().empty() ? std::nullopt : std::optional(set.StoreExtras()));
  insertSet_.Run();
  const std::int64_t id = sqlite3_last_insert_rowid(db_.Get());
  std::int64_t index = 0;
  for (const std::string& variable : set.GetVariableNames(kAsStored)) {
    insertVariable_.BindInt(1, id).BindInt(2, index++).BindText(3, variable).Run();
  }
  return id;
}

}  // namespace hostlib::data
