// Both stores through the DatasetStore interface: conversion that keeps
// everything, per-command locking and reloading, refusals and failed saves.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <nlohmann/json.hpp>

#include "hostlib/data/codebook/codebook_store.h"
#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/conversion.h"
#include "hostlib/data/database/database_store.h"
#include "hostlib/data/dataset_store.h"
#include "hostlib/data/open_dataset_store.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using std::chrono::milliseconds;

// Unknown keys at every level, bare and unlabelled categories, a float that
// is whole, a field without a type, a numeric field with a maxLength.
constexpr const char* kRichFile = R"({
  "profile": "tabular-data-resource",
  "fields": [
    {"name": "like1", "type": "integer", "title": "Likes apples", "format": "default",
     "categories": [{"value": 1, "label": "Yes", "note": "kept"}, {"value": 0.0, "label": "No"}, 9],
     "x-origin": {"survey": [1, 2, {"deep": null}]}},
    {"title": "", "name": "like2", "type": "number", "constraints": {"minimum": 0, "maxLength": 3}},
    {"name": "first", "type": "string", "constraints": {"pattern": "[a-z]*", "maxLength": 8},
     "categories": [{"value": "apple", "label": "Apple"}, {"value": "pear"}]},
    {"name": "comment"},
    {"name": "Größe", "type": "date", "categories": []}
  ],
  "x-middle": [],
  "multipleResponseSets": [
    {"name": "$likes", "type": "dichotomies", "label": "Liked items", "countedValue": "1",
     "categoryLabels": "variableLabels", "variables": ["like1", "like2"], "x-note": [true]},
    {"name": "$first", "type": "categories", "variables": ["first", "gone"], "countedValue": "odd"}
  ],
  "x-trailer": 1.5
})";

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::path(::testing::TempDir()) / "stores-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path Write(const std::string& name, const std::string& text) const {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return dir_ / name;
  }
  static std::string Read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  // The rich codebook as `name`, converted when a database is asked for.
  fs::path MakeDataset(const std::string& name) const {
    const fs::path json = Write("source.json", kRichFile);
    if (FormatFromName(name) == DatasetFormat::kCodebook) return Write(name, kRichFile);
    ConvertDataset(json, dir_ / name, DatasetFormat::kDatabase);
    return dir_ / name;
  }

  fs::path dir_;
};

VariableSet Category(const std::string& name) {
  VariableSet set(name, VariableSet::kMultipleCategorySet);
  set.AddVariableName("first");
  return set;
}

TEST_F(StoreTest, ConversionKeepsEverythingBothWays) {
  const fs::path json = Write("a.json", kRichFile);
  ConvertDataset(json, dir_ / "b.db", DatasetFormat::kDatabase);
  ConvertDataset(dir_ / "b.db", dir_ / "c.json", DatasetFormat::kCodebook);
  ConvertDataset(dir_ / "c.json", dir_ / "d.db", DatasetFormat::kDatabase);
  ConvertDataset(dir_ / "d.db", dir_ / "e.json", DatasetFormat::kCodebook);
  const Json original = Json::parse(kRichFile);
  EXPECT_EQ(Json::parse(Read(dir_ / "c.json")).dump(2), original.dump(2));
  EXPECT_EQ(Read(dir_ / "e.json"), Read(dir_ / "c.json"));

  CodebookFile codebook(json);
  SqliteStore database(dir_ / "d.db");
  const Dataset fromJson = codebook.Load();
  const Dataset fromDb = database.Load();
  ASSERT_EQ(fromJson.ColumnCount(), fromDb.ColumnCount());
  for (unsigned i = 0; i < fromJson.ColumnCount(); ++i) {
    const auto& a = fromJson.Variable(static_cast<int>(i));
    const auto& b = fromDb.Variable(static_cast<int>(i));
    EXPECT_STREQ(a.GetName(), b.GetName());
    EXPECT_EQ(a.GetType(), b.GetType());
    EXPECT_EQ(a.GetLabel() == nullptr, b.GetLabel() == nullptr) << a.GetName();
    EXPECT_EQ(a.GetValueLabels().Labels().numeric, b.GetValueLabels().Labels().numeric);
    EXPECT_EQ(a.GetValueLabels().Labels().text, b.GetValueLabels().Labels().text);
  }
  EXPECT_EQ(fromJson.MultipleResponseSets(), fromDb.MultipleResponseSets());

  // The output is never replaced.
  EXPECT_THROW(ConvertDataset(json, dir_ / "b.db", DatasetFormat::kDatabase), DatasetError);
  EXPECT_THROW(ConvertDataset(json, dir_ / "c.json", DatasetFormat::kCodebook), DatasetError);
}

class BothStores : public StoreTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(BothStores, SavesReloadsAndLocksPerCommand) {
  const fs::path path = MakeDataset(GetParam());
  const auto first = OpenDatasetStore(path);
  const auto second = OpenDatasetStore(path);
  Dataset mine = first->Load();
  Dataset theirs = second->Load();

  // Nothing changed: no reload.
  EXPECT_FALSE(first->BeginCommand(milliseconds(0)).has_value());
  // The other store waits in vain while the lock is held, and learns why.
  try {
    second->BeginCommand(milliseconds(50));
    ADD_FAILURE() << "locked twice";
  } catch (const DatasetError& error) {
    EXPECT_EQ(error.what(), LockTimeoutMessage(path, milliseconds(50)));
  }
  // Adding one set, removing one and reordering in one save.
  std::vector<VariableSet> sets = {Category("$new"), mine.MultipleResponseSets()[0]};
  mine.ReplaceMultipleResponseSets(sets);
  first->Save(mine);
  first->EndCommand();
  EXPECT_FALSE(first->WouldChange(mine));

  auto reloaded = second->BeginCommand(milliseconds(1000));
  ASSERT_TRUE(reloaded.has_value());
  EXPECT_EQ(reloaded->MultipleResponseSets(), sets);
  sets.push_back(Category("$more"));
  reloaded->ReplaceMultipleResponseSets(sets);
  second->Save(*reloaded);
  second->EndCommand();

  // A command that is dropped leaves the lock free and nothing written.
  ASSERT_TRUE(first->BeginCommand(milliseconds(1000)).has_value());
  first->AbortCommand();
  EXPECT_EQ(OpenDatasetStore(path)->Load().MultipleResponseSets(), sets);
}

TEST_P(BothStores, FailedSaveLeavesTheOldContents) {
  const fs::path path = MakeDataset(GetParam());
  const std::string before = Read(path);
  const auto store = OpenDatasetStore(path);
  Dataset dataset = store->Load();
  dataset.ReplaceMultipleResponseSets({Category("$x")});
  ASSERT_FALSE(store->BeginCommand(milliseconds(0)).has_value());
  // A file size limit makes writing fail whatever the user's rights.
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = 16;
  const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  try {
    store->Save(dataset);
    store->EndCommand();
    ADD_FAILURE() << "saved";
  } catch (const DatasetError& error) {
    EXPECT_EQ(std::string(error.what()).rfind(path.string() + ": not saved: ", 0), 0u)
        << error.what();
  }
  store->AbortCommand();
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, previousHandler);
  EXPECT_EQ(Read(path), before);
  EXPECT_TRUE(store->WouldChange(dataset));
  EXPECT_EQ(OpenDatasetStore(path)->Load().MultipleResponseSets().size(), 2u);
}

TEST_P(BothStores, CommandsRemoveWhatDeadWritersLeft) {
  const fs::path path = MakeDataset(GetParam());
  const pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ::waitpid(dead, nullptr, 0);
  const std::string stem = "." + path.filename().string() + ".tmp";
  const std::string gone = std::to_string(dead);
  const std::string alive = std::to_string(::getppid());
  const std::vector<std::string> removed = {stem + gone + ".1", stem + gone + ".2-journal"};
  const std::vector<std::string> kept = {stem + alive + ".1", stem + gone + ".x",
                                         "." + path.filename().string() + ".tmpx.1"};
  for (const auto& name : removed) Write(name, "left");
  for (const auto& name : kept) Write(name, "left");
  const auto store = OpenDatasetStore(path);
  store->Load();
  store->BeginCommand(milliseconds(0));
  store->AbortCommand();
  for (const auto& name : removed) EXPECT_FALSE(fs::exists(dir_ / name)) << name;
  for (const auto& name : kept) EXPECT_TRUE(fs::exists(dir_ / name)) << name;
}

INSTANTIATE_TEST_SUITE_P(Stores, BothStores, ::testing::Values("data.json", "data.db"),
                         [](const auto& info) {
                           return FormatFromName(info.param) == DatasetFormat::kCodebook
                                      ? std::string("codebook")
                                      : std::string("database");
                         });

// The dictionary of a database is read on demand: a damaged page is met by
// the read that needs it, which refuses it as the open used to.
TEST_F(StoreTest, DatabaseRefusesADamagedPageWhenAReadMeetsIt) {
  std::vector<VORN_Variable> variables;
  for (int i = 0; i < 3000; ++i) {
    variables.emplace_back("v" + std::to_string(i), 0, "A label long enough to fill pages",
                           VORN_ValueLabels{{{1.0, "Yes"}, {0.0, "No"}}, {}});
  }
  const fs::path path = dir_ / "big.db";
  SqliteStore(path).Create({Dataset(std::move(variables)), nullptr});
  std::string bytes = Read(path);
  // The page that holds v2000's row (its name, then its folded name), away
  // from the first and the last variables; pages are as large as the
  // file's header says (big-endian, at offset 16; 1 for 65,536).
  std::size_t page =
      static_cast<unsigned char>(bytes[16]) << 8 | static_cast<unsigned char>(bytes[17]);
  if (page == 1) page = 65536;
  const std::size_t row = bytes.find("v2000v2000");
  ASSERT_NE(row, std::string::npos);
  const std::size_t damaged = row / page * page;
  bytes.replace(damaged, page, std::string(page, '\xff'));
  Write("big.db", bytes);

  SqliteStore store(path);
  const Dataset dataset = store.Load();
  EXPECT_EQ(dataset.ColumnCount(), 3000u);
  EXPECT_EQ(dataset.FindVarIndex("V1"), 1);
  EXPECT_STREQ(dataset.Variable(1).GetLabel(), "A label long enough to fill pages");
  try {
    dataset.Variables();
    ADD_FAILURE() << "read a damaged page";
  } catch (const DatasetError& error) {
    EXPECT_NE(std::string(error.what())
                  .find(path.string() +
                        ": not a valid dataset database: the file is damaged or truncated"),
              std::string::npos)
        << error.what();
  }
  EXPECT_EQ(Read(path), bytes);
}

// A database's sets are read by name; the rest of a set when it is asked
// for, so a fault in a set's rows, or a set another program changed since,
// is met then.
TEST_F(StoreTest, DatabaseReadsASetWhenItIsAskedFor) {
  const fs::path path = MakeDataset("sets.db");
  SqliteStore store(path);
  const Dataset dataset = store.Load();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "UPDATE sets SET name = '$liked', folded_name = '$liked' "
                         "WHERE name = '$likes'; UPDATE sets SET extras = '[]' "
                         "WHERE name = '$first'",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);

  const std::vector<VariableSet>& sets = dataset.MultipleResponseSets();
  ASSERT_EQ(sets.size(), 2u);
  EXPECT_EQ(sets[0].GetName(kAsStored), "$likes");
  const std::vector<std::pair<const VariableSet*, std::string>> faults = {
      {&sets[0], ": set $likes was changed by another program while in use"},
      {&sets[1], ": not a valid dataset database: set \"$first\": extras must be a JSON object"}};
  for (const auto& [set, fault] : faults) {
    try {
      set->GetLabel();
      ADD_FAILURE() << "read " << set->GetName(kAsStored);
    } catch (const DatasetError& error) {
      EXPECT_NE(std::string(error.what()).find(path.string() + fault), std::string::npos)
          << error.what();
    }
  }
}

// A database of format 1 whose sets are $s0, $s1, ... in table order, at
// `positions`, which order them.
fs::path FormatOneDatabaseWithSetsAt(const fs::path& path,
                                     const std::vector<long long>& positions) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  std::string sql = "DROP TABLE set_order; PRAGMA user_version = 1; DELETE FROM sets;";
  for (std::size_t i = 0; i < positions.size(); ++i) {
    sql += "INSERT INTO sets (position, name, folded_name, type) VALUES (" +
           std::to_string(positions[i]) + ", '$s" + std::to_string(i) + "', '$s" +
           std::to_string(i) + "', 'categories');";
  }
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  return path;
}

std::vector<std::string> NamesOf(const std::vector<VariableSet>& sets) {
  std::vector<std::string> names;
  for (const VariableSet& set : sets) names.push_back(set.GetName(kAsStored));
  return names;
}

// In format 1 rows are listed by position whatever their order in the
// table, their spacing or their sign.
TEST_F(StoreTest, FormatOneDatabaseListsSetsInOrderOfPosition) {
  const std::vector<std::vector<long long>> cases = {
      {1, 2, 3, 4},                             // in table order
      {4, 3, 2, 1},                             // reversed
      {2048, 3, 1 << 20, 1},                    // spread
      {256, 1, 0, 257},                         // alike in their low bits
      {(1 << 30) + (1 << 23), 3, 1 << 30, 2},   // alike but in their high bits
      {-5, 7, -9, 0},                           // signed
      {1LL << 40, -(1LL << 40), 5, 1LL << 62},  // beyond 32 bits apart
  };
  for (const std::vector<long long>& positions : cases) {
    const fs::path path = FormatOneDatabaseWithSetsAt(MakeDataset("order.db"), positions);
    std::vector<std::size_t> expected(positions.size());
    for (std::size_t i = 0; i < expected.size(); ++i) expected[i] = i;
    std::sort(expected.begin(), expected.end(),
              [&](std::size_t a, std::size_t b) { return positions[a] < positions[b]; });
    std::vector<std::string> expectedNames;
    for (const std::size_t i : expected) expectedNames.push_back("$s" + std::to_string(i));
    SqliteStore store(path);
    const Dataset dataset = store.Load();
    EXPECT_EQ(NamesOf(dataset.MultipleResponseSets()), expectedNames)
        << positions[0] << " " << positions[1];
    // Each set's rest is read from its own row.
    for (const VariableSet& set : dataset.MultipleResponseSets()) {
      EXPECT_EQ(set.GetType(), VariableSet::kMultipleCategorySet) << set.GetName(kAsStored);
    }
    fs::remove(path);
  }
}

// The ids of the sets' rows, in the table's order.
std::vector<long long> SetIds(const fs::path& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  std::vector<long long> ids;
  sqlite3_stmt* rows = nullptr;
  sqlite3_prepare_v2(db, "SELECT id FROM sets", -1, &rows, nullptr);
  while (sqlite3_step(rows) == SQLITE_ROW) ids.push_back(sqlite3_column_int64(rows, 0));
  sqlite3_finalize(rows);
  sqlite3_close(db);
  return ids;
}

// A list put in another order keeps its sets' rows and reads back in its
// order; a file of format 1 is then of format 2.
TEST_F(StoreTest, DatabaseSavesAListPutInAnotherOrder) {
  std::vector<long long> spaced;
  for (long long i = 0; i < 100; ++i) spaced.push_back(1024 * (i + 1));
  for (const std::vector<long long>& positions : {spaced, std::vector<long long>{5, -1, 3, 9}}) {
    const fs::path path = FormatOneDatabaseWithSetsAt(MakeDataset("reorder.db"), positions);
    const std::vector<long long> ids = SetIds(path);
    std::vector<VariableSet> sets;
    {
      SqliteStore store(path);
      Dataset dataset = store.Load();
      sets = dataset.MultipleResponseSets();
      std::reverse(sets.begin(), sets.end());
      std::swap(sets.front(), sets.back());
      dataset.ReplaceMultipleResponseSets(sets);
      store.Save(dataset);
    }
    EXPECT_EQ(SetIds(path), ids);
    SqliteStore reread(path);
    EXPECT_EQ(NamesOf(reread.Load().MultipleResponseSets()), NamesOf(sets)) << positions.size();
    EXPECT_EQ(Read(path).substr(60, 4), std::string("\0\0\0\2", 4));
    fs::remove(path);
  }
}

TEST_F(StoreTest, RefusesFilesThatAreNoDatasetAndLeavesThemAlone) {
  const std::string database = Read(MakeDataset("good.db"));
  // The header holds user_version at 60 and application_id at 68 (big-endian).
  const auto withHeaderWord = [&](std::size_t offset, int value) {
    std::string bytes = database;
    bytes[offset] = bytes[offset + 1] = bytes[offset + 2] = 0;
    bytes[offset + 3] = static_cast<char>(value);
    return bytes;
  };
  const std::vector<std::pair<std::string, std::string>> cases = {
      {std::string("\x89PNG\r\n\x1a\n\0\0\0", 11),
       "neither a codebook file (JSON) nor a dataset database (SQLite)"},
      {database.substr(0, 5000), "not a valid dataset database: the file is damaged or truncated"},
      {database.substr(0, 100), "not a valid dataset database: the file is damaged or truncated"},
      {withHeaderWord(60, 3), "a dataset database of format 3, newer than this program reads (2)"},
      {withHeaderWord(60, 0), "not a valid dataset database: unknown format 0"},
      {withHeaderWord(60, 1),
       R"(not a valid dataset database: table "set_order" is not the format's)"},
      {withHeaderWord(68, 0), "an SQLite database, but not a dataset database"},
      {std::string(R"({"fields": [)"), "line 1, column 13: not valid JSON"},
  };
  for (const auto& [bytes, fault] : cases) {
    const fs::path path = Write("bad.db", bytes);
    try {
      OpenDatasetStore(path)->Load();
      ADD_FAILURE() << "accepted: " << fault;
    } catch (const DatasetError& error) {
      EXPECT_NE(std::string(error.what()).find(path.string() + ": " + fault), std::string::npos)
          << error.what();
    }
    EXPECT_EQ(Read(path), bytes) << fault;
    fs::remove(path);
  }

  // A missing database is refused like a missing file, and not made.
  try {
    OpenDatasetStore(dir_ / "none.db")->Load();
    ADD_FAILURE() << "opened a missing database";
  } catch (const DatasetError& error) {
    EXPECT_EQ(error.what(),
              (dir_ / "none.db").string() + ": cannot be read: No such file or directory");
  }
  EXPECT_FALSE(fs::exists(dir_ / "none.db"));
}

// Runs SQL on a database as another program would.
void Tamper(const fs::path& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
  sqlite3_free(error);
  sqlite3_close(db);
}

TEST_F(StoreTest, RefusesDatabasesWhoseSchemaIsNotTheFormats) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"CREATE TRIGGER t AFTER INSERT ON sets BEGIN UPDATE variables SET label = 'PWNED'; END",
       R"(trigger "t" is not the format's)"},
      {"DROP TABLE set_variables; CREATE VIEW set_variables AS "
       "SELECT 1 AS set_id, 0 AS position, 'x' AS name",
       R"(view "set_variables" is not the format's)"},
      {"ALTER TABLE sets ADD COLUMN note TEXT", R"(table "sets" is not the format's)"},
      {"CREATE INDEX extra ON variables (label)", R"(index "extra" is not the format's)"},
  };
  for (const auto& [sql, fault] : cases) {
    const fs::path path = MakeDataset("hostile.db");
    Tamper(path, sql);
    const std::string bytes = Read(path);
    try {
      OpenDatasetStore(path)->Load();
      ADD_FAILURE() << "accepted: " << sql;
    } catch (const DatasetError& error) {
      EXPECT_EQ(error.what(), path.string() + ": not a valid dataset database: " + fault);
    }
    EXPECT_EQ(Read(path), bytes) << sql;
    fs::remove(path);
  }
}

// In format 2 `set_order` lists the sets by their ids. Sets it does not
// list (rows another program added) follow by position; ids of no set and
// ids listed again are passed over: no set is lost.
TEST_F(StoreTest, DatabaseListsSetsAsItsOrderSays) {
  // The rows of $likes and $first have the ids 1 and 2.
  const std::string one = "0100000000000000";
  const std::string two = "0200000000000000";
  const std::string nine = "0900000000000000";
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"", {"$likes", "$first"}},
      {"UPDATE set_order SET ids = x'" + two + one + "'", {"$first", "$likes"}},
      {"UPDATE set_order SET ids = x'" + nine + two + two + one + "'", {"$first", "$likes"}},
      {"UPDATE set_order SET ids = x'" + two + "'", {"$first", "$likes"}},
      {"DELETE FROM set_order", {"$likes", "$first"}},
      {"DELETE FROM set_order; INSERT INTO set_order VALUES (7, x'" + one + "'), (0, x'" + two +
           "')",
       {"$first", "$likes"}},
      {"INSERT INTO sets (position, name, folded_name, type) "
       "VALUES (-7, '$new', '$new', 'categories')",
       {"$likes", "$first", "$new"}},
  };
  for (const auto& [sql, names] : cases) {
    const fs::path path = MakeDataset("listed.db");
    if (!sql.empty()) Tamper(path, sql);
    EXPECT_EQ(NamesOf(OpenDatasetStore(path)->Load().MultipleResponseSets()), names) << sql;
    fs::remove(path);
  }

  const fs::path path = MakeDataset("odd.db");
  Tamper(path, "PRAGMA ignore_check_constraints = ON; UPDATE set_order SET ids = x'01'");
  try {
    OpenDatasetStore(path)->Load();
    ADD_FAILURE() << "accepted an order of one byte";
  } catch (const DatasetError& error) {
    EXPECT_EQ(error.what(), path.string() +
                                ": not a valid dataset database: the sets' order is not a list "
                                "of ids");
  }
}

// The order is kept in chunks of 65,536 ids. A save rewrites the chunks
// that changed and drops those left over; the chunks of a file laid out
// otherwise are all rewritten.
TEST_F(StoreTest, DatabaseOrderOfManySetsReadsBackAfterEachSave) {
  const fs::path path = MakeDataset("chunks.db");
  const int count = 65536 + 3;
  // Rows $s1, $s2, ... that the order does not list: read by position.
  Tamper(path,
         "DELETE FROM sets; DELETE FROM set_order; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
         "SELECT i + 1 FROM n WHERE i < " +
             std::to_string(count) +
             ") INSERT INTO sets (position, name, folded_name, type) "
             "SELECT i, '$s' || i, '$s' || i, 'categories' FROM n");
  const auto edit = [&](const std::function<void(std::vector<VariableSet>&)>& change) {
    SqliteStore store(path);
    Dataset dataset = store.Load();
    std::vector<VariableSet> sets = dataset.MultipleResponseSets();
    change(sets);
    dataset.ReplaceMultipleResponseSets(sets);
    store.Save(dataset);
    return NamesOf(sets);
  };
  const auto chunks = [&] {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    sqlite3_stmt* rows = nullptr;
    sqlite3_prepare_v2(db, "SELECT count(*) FROM set_order", -1, &rows, nullptr);
    sqlite3_step(rows);
    const int found = sqlite3_column_int(rows, 0);
    sqlite3_finalize(rows);
    sqlite3_close(db);
    return found;
  };
  const std::vector<std::function<void(std::vector<VariableSet>&)>> changes = {
      // the last first: every chunk written
      [](auto& sets) { std::rotate(sets.begin(), sets.end() - 1, sets.end()); },
      // one set of the second chunk gone
      [](auto& sets) { sets.erase(sets.end() - 2); },
      // two at the front: one chunk left
      [](auto& sets) { sets.erase(sets.begin(), sets.begin() + 2); },
  };
  const std::vector<int> chunksAfter = {2, 2, 1};
  for (std::size_t k = 0; k < changes.size(); ++k) {
    const std::vector<std::string> expected = edit(changes[k]);
    SqliteStore reread(path);
    EXPECT_EQ(NamesOf(reread.Load().MultipleResponseSets()), expected) << k;
    EXPECT_EQ(chunks(), chunksAfter[k]) << k;
  }
}

TEST_F(StoreTest, DatabaseLeftInWriteAheadLogModeIsSetBack) {
  const fs::path path = MakeDataset("wal.db");
  Tamper(path, "PRAGMA journal_mode = WAL");
  ASSERT_EQ(static_cast<int>(Read(path)[18]), 2);
  const auto store = OpenDatasetStore(path);
  Dataset dataset = store->Load();
  EXPECT_EQ(dataset.MultipleResponseSets().size(), 2u);
  EXPECT_EQ(static_cast<int>(Read(path)[18]), 1);
}

// Found by fuzzing: a layout without the fields' place lost every variable
// on the way into another file.
TEST_F(StoreTest, DatabaseLayoutWithoutTheFieldsStillCopiesThem) {
  const fs::path path = MakeDataset("nofields.db");
  Tamper(path, "UPDATE dataset SET layout = '{\"name\": \"x\"}'");
  const DatasetContents contents = OpenDatasetStore(path)->Export();
  EXPECT_EQ(contents.descriptor->json.at("fields").size(), contents.dataset.ColumnCount());
}

// Found by fuzzing: member rows another program left without their set were
// taken by the next new set that got that set's id.
TEST_F(StoreTest, NewSetDoesNotTakeMemberRowsLeftWithoutTheirSet) {
  const fs::path path = MakeDataset("stray.db");
  Tamper(path,
         "INSERT INTO set_variables (set_id, position, name) "
         "SELECT max(id) + 1, 7, 'ghost' FROM sets");
  const auto store = OpenDatasetStore(path);
  Dataset dataset = store->Load();
  std::vector<VariableSet> sets = dataset.MultipleResponseSets();
  sets.push_back(Category("$x"));
  dataset.ReplaceMultipleResponseSets(sets);
  ASSERT_FALSE(store->BeginCommand(milliseconds(0)).has_value());
  store->Save(dataset);
  store->EndCommand();
  EXPECT_EQ(OpenDatasetStore(path)->Load().MultipleResponseSets(), sets);
}

TEST_F(StoreTest, RevisionWrapsAndStaysAnInteger) {
  const fs::path path = MakeDataset("full.db");
  Tamper(path, "UPDATE dataset SET revision = 9223372036854775807");
  const auto store = OpenDatasetStore(path);
  Dataset dataset = store->Load();
  dataset.ReplaceMultipleResponseSets({Category("$x")});
  ASSERT_FALSE(store->BeginCommand(milliseconds(0)).has_value());
  store->Save(dataset);
  store->EndCommand();
  // Unchanged since this store saved: no reload.
  EXPECT_FALSE(store->BeginCommand(milliseconds(0)).has_value());
  store->AbortCommand();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, "SELECT typeof(revision), revision FROM dataset", -1, &statement, nullptr);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "integer");
  EXPECT_EQ(sqlite3_column_int64(statement, 1), 0);
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

}  // namespace
}  // namespace hostlib::data
