#include "hostlib/data/database/set_rows.h"

#include "hostlib/data/database/dictionary_rows.h"
#include "hostlib/data/database/schema.h"
#include "hostlib/data/name_index.h"
#include "hostlib/data/radix_sort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace hostlib::data {

namespace {

using Json = nlohmann::ordered_json;
constexpr const char* kReading = "cannot be read";

[[noreturn]] void Corrupt(const SqliteConnection& db, const std::string& fault) {
  throw DatasetError(db.File() + ": not a valid dataset database: " + fault);
}

constexpr const char* kSetColumns =
    "name, type, label, counted_value, category_labels, label_from_variables, extras";

// A set from its row (kSetColumns from column `first`), without its
// variables.
VariableSet SetOfRow(const SqliteConnection& db, const Statement& row, int first) {
  const std::string name = row.Text(first);
  const bool dichotomies = row.Text(first + 1) == "dichotomies";
  VariableSet set(
      name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
  if (!row.IsNull(first + 2)) set.SetLabel(row.Text(first + 2));
  if (dichotomies) {
    set.SetValue(row.Text(first + 3));
    set.UseVariableCategoryLabels(row.Text(first + 4) == "countedValues");
  }
  set.LabelSetByVariable(row.Int(first + 5) != 0);
  if (!row.IsNull(first + 6)) {
    const std::string extras = row.Text(first + 6);
    CheckLayout(db, extras, "set \"" + name + "\"");
    if (!Json::parse(extras, nullptr, false).is_object()) {
      Corrupt(db, "set \"" + name + "\": extras must be a JSON object");
    }
    set.SetStoreExtras(extras);
  }
  return set;
}

void AddMember(const SqliteConnection& db, std::string member, VariableSet& set) {
  if (member.find('\0') != std::string::npos) {
    Corrupt(db, "a set's variable name holds the character U+0000");
  }
  set.AddVariableName(member);
}

// The ids and positions of the set rows, in the table's order.
struct RowKeys {
  std::vector<std::int64_t> ids;
  std::vector<std::int64_t> positions;
};

// The set rows' keys in order of position.
struct SetRows {
  StoredSets stored;                   // ids; no sets
  std::vector<std::size_t> rows;       // per set, its row's place in the table's order
  std::vector<std::int64_t> tableIds;  // the ids in the table's order
};

// Moves the item at order[i] to place i, for every i, in place: each item
// moves once, along the cycles of the permutation.
void Permute(std::vector<VariableSet>& items, const std::vector<std::size_t>& wanted) {
  std::size_t start = 0;
  while (start < wanted.size() && wanted[start] == start) ++start;
  if (start == wanted.size()) return;
  std::vector<std::size_t> order = wanted;
  for (; start < order.size(); ++start) {
    if (order[start] == start) continue;
    VariableSet first = std::move(items[start]);
    std::size_t at = start;
    for (std::size_t from = order[at]; from != start; from = order[at]) {
      items[at] = std::move(items[from]);
      order[at] = at;
      at = from;
    }
    order[at] = at;
    items[at] = std::move(first);
  }
}

// The rows in order of their positions (unique, by an index; rows that
// share one keep the table's order). Positions within 2^32 of the least are
// sorted as one number per row (its offset above the least, then its row),
// by radix.
std::vector<std::size_t> PositionOrder(const std::vector<std::int64_t>& positions) {
  std::vector<std::size_t> order;
  order.reserve(positions.size());
  if (std::is_sorted(positions.begin(), positions.end())) {
    // Rows written in order of position, as most are.
    for (std::size_t i = 0; i < positions.size(); ++i) order.push_back(i);
    return order;
  }
  const auto [low, high] = std::minmax_element(positions.begin(), positions.end());
  const auto span = static_cast<std::uint64_t>(*high) - static_cast<std::uint64_t>(*low);
  if (span > UINT32_MAX || positions.size() > UINT32_MAX) {
    for (std::size_t i = 0; i < positions.size(); ++i) order.push_back(i);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return positions[a] < positions[b]; });
    return order;
  }
  std::vector<std::uint64_t> keys(positions.size());
  for (std::size_t i = 0; i < positions.size(); ++i) {
    const auto offset = static_cast<std::uint64_t>(positions[i]) - static_cast<std::uint64_t>(*low);
    keys[i] = offset << 32 | i;
  }
  SortByUpperHalf(keys, static_cast<unsigned>(std::bit_width(span)));
  for (const std::uint64_t key : keys) order.push_back(key & UINT32_MAX);
  return order;
}

// Room reserved per set name read (longer names make the room grow).
constexpr std::size_t kTypicalNameBytes = 16;

// Room for the rows, guessed from the span of their ids (no count, which
// reads the whole table once more) and bounded, since the file decides it.
std::size_t ExpectedRows(const SqliteConnection& db) {
  constexpr std::int64_t kMostReserved = std::int64_t{1} << 20;
  Statement span(db, "SELECT (SELECT max(id) FROM sets) - (SELECT min(id) FROM sets) + 1",
                 kReading);
  if (!span.Step() || span.IsNull(0)) return 0;
  return static_cast<std::size_t>(std::clamp<std::int64_t>(span.Int(0), 0, kMostReserved));
}

// Reads the table in its own order, which is the file's (following the
// index on position would seek for every row): `take(name, row)` gets each
// row with its name checked; `extra` columns follow the name's. Positions
// are read when they order the sets (format 1).
template <typename Take>
RowKeys ReadRowKeys(const SqliteConnection& db, std::size_t expected, bool withPositions,
                    const std::string& extra, Take take) {
  RowKeys keys;
  keys.ids.reserve(expected);
  if (withPositions) keys.positions.reserve(expected);
  Statement rows(db,
                 std::string("SELECT id, ") + (withPositions ? "position" : "NULL") +
                     ", name, folded_name" + extra + " FROM sets",
                 kReading);
  std::array<char, kShortName> buffer{};
  std::string other;
  while (rows.Step()) {
    const std::string_view name = rows.View(2);
    if (name.find('\0') != std::string_view::npos) {
      Corrupt(db, "a set name holds the character U+0000");
    }
    if (rows.View(3) != FoldedName(name, buffer, other)) {
      Corrupt(db, "set \"" + std::string(name) + "\": folded_name does not match the name");
    }
    keys.ids.push_back(rows.Int(0));
    if (withPositions) keys.positions.push_back(rows.Int(1));
    take(name, rows);
  }
  return keys;
}

// The rows of the table by id. Ids made here are dense (about one per row):
// an array holds them; others, sparse, are looked up among the ids sorted.
class RowsById {
 public:
  static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

  explicit RowsById(const std::vector<std::int64_t>& ids) : ids_(ids) {
    if (ids.empty()) return;
    const auto [low, high] = std::minmax_element(ids.begin(), ids.end());
    least_ = *low;
    const auto span = static_cast<std::uint64_t>(*high) - static_cast<std::uint64_t>(*low);
    if (span < 4 * static_cast<std::uint64_t>(ids.size()) && ids.size() < kNoRow) {
      rows_.assign(static_cast<std::size_t>(span) + 1, kNoRow);
      for (std::size_t i = 0; i < ids.size(); ++i)
        rows_[Offset(ids[i])] = static_cast<std::uint32_t>(i);
      return;
    }
    for (std::size_t i = 0; i < ids.size(); ++i) sorted_.push_back(i);
    std::sort(sorted_.begin(), sorted_.end(),
              [&](std::size_t a, std::size_t b) { return ids[a] < ids[b]; });
  }

  // The row of `id`, or kNone.
  std::size_t Find(std::int64_t id) const {
    if (!rows_.empty()) {
      const std::size_t offset = Offset(id);
      return offset < rows_.size() && rows_[offset] != kNoRow ? rows_[offset] : kNone;
    }
    const auto found =
        std::lower_bound(sorted_.begin(), sorted_.end(), id,
                         [&](std::size_t row, std::int64_t wanted) { return ids_[row] < wanted; });
    return found == sorted_.end() || ids_[*found] != id ? kNone : *found;
  }

 private:
  static constexpr std::uint32_t kNoRow = std::numeric_limits<std::uint32_t>::max();
  std::size_t Offset(std::int64_t id) const {
    return static_cast<std::size_t>(static_cast<std::uint64_t>(id) -
                                    static_cast<std::uint64_t>(least_));
  }

  const std::vector<std::int64_t>& ids_;
  std::int64_t least_ = 0;
  std::vector<std::uint32_t> rows_;
  std::vector<std::size_t> sorted_;
};

// The rows in the order `set_order` lists their ids; rows it does not list
// (another program's) follow in order of position, and ids of no row are
// passed over, so that no set is lost. `asWritten`: whether the chunks hold
// exactly those ids as a save here writes them.
std::vector<std::size_t> ListedOrder(const SqliteConnection& db, const RowKeys& keys,
                                     bool& asWritten) {
  const RowsById rows(keys.ids);
  std::vector<std::size_t> order;
  order.reserve(keys.ids.size());
  std::vector<bool> placed(keys.ids.size(), false);
  asWritten = true;
  std::size_t listed = 0;
  std::int64_t expectedChunk = 0;
  Statement chunks(db, "SELECT chunk, ids FROM set_order ORDER BY chunk", kReading);
  while (chunks.Step()) {
    const std::string_view bytes = chunks.BlobView(1);
    if (bytes.size() % 8 != 0) Corrupt(db, "the sets' order is not a list of ids");
    // Chunks 0, 1, 2, ..., each full but the last, none empty.
    const std::size_t count = bytes.size() / 8;
    asWritten = asWritten && chunks.Int(0) == expectedChunk &&
                listed == static_cast<std::size_t>(expectedChunk) * kIdsPerOrderChunk &&
                count > 0 && count <= kIdsPerOrderChunk;
    ++expectedChunk;
    listed += count;
    for (std::size_t at = 0; at < bytes.size(); at += 8) {
      std::uint64_t id = 0;
      for (std::size_t k = 0; k < 8; ++k) {
        id |= std::uint64_t{static_cast<unsigned char>(bytes[at + k])} << (8 * k);
      }
      const std::size_t row = rows.Find(static_cast<std::int64_t>(id));
      if (row == RowsById::kNone || placed[row]) continue;
      placed[row] = true;
      order.push_back(row);
    }
  }
  asWritten = asWritten && listed == order.size();
  if (order.size() == keys.ids.size()) return order;
  asWritten = false;
  std::vector<std::pair<std::int64_t, std::size_t>> unlisted;  // position, row
  Statement positions(db, "SELECT id, position FROM sets", kReading);
  while (positions.Step()) {
    const std::size_t row = rows.Find(positions.Int(0));
    if (row != RowsById::kNone && !placed[row]) unlisted.emplace_back(positions.Int(1), row);
  }
  std::sort(unlisted.begin(), unlisted.end());
  for (const auto& [position, row] : unlisted) order.push_back(row);
  return order;
}

// The rows' keys in order (`listed`: that of `set_order`, else of
// position), and the order itself.
SetRows OrderRows(const SqliteConnection& db, RowKeys keys, bool listed) {
  SetRows read;
  read.rows =
      listed ? ListedOrder(db, keys, read.stored.orderAsWritten) : PositionOrder(keys.positions);
  read.stored.ids.reserve(read.rows.size());
  for (const std::size_t i : read.rows) read.stored.ids.push_back(keys.ids[i]);
  read.tableIds = std::move(keys.ids);
  return read;
}

}  // namespace

SetRowReader::SetRowReader(const SqliteConnection& db)
    : db_(db),
      readSet_(db, std::string("SELECT ") + kSetColumns + " FROM sets WHERE id = ?", kReading),
      readMembers_(db, "SELECT name FROM set_variables WHERE set_id = ? ORDER BY position",
                   kReading) {}

std::optional<VariableSet> SetRowReader::Read(std::int64_t id, const std::string& name) {
  // Reset whatever happens: a statement left open would hold a read lock.
  struct Resetter {
    Statement& statement;
    ~Resetter() { statement.Reset(); }
  } resetSet{readSet_}, resetMembers{readMembers_};
  readSet_.BindInt(1, id);
  if (!readSet_.Step() || readSet_.Text(0) != name) return std::nullopt;
  VariableSet set = SetOfRow(db_, readSet_, 0);
  readMembers_.BindInt(1, id);
  while (readMembers_.Step()) AddMember(db_, readMembers_.Text(0), set);
  return set;
}

namespace {

// The sets of one state of a database, each read by its row when first
// asked for. Between commands another program may change the file: a set
// whose row is gone or renamed is refused rather than read wrongly.
class StoredSetSource final : public VariableSetSource {
 public:
  explicit StoredSetSource(std::shared_ptr<const SqliteConnection> db) : db_(std::move(db)) {}

  // The rows of the sets, once they are all known (before any is loaded).
  void SetIds(std::vector<std::int64_t> ids) { ids_ = std::move(ids); }

  VariableSet Load(std::size_t index, const std::string& name) const override {
    if (!reader_) reader_.emplace(*db_);
    std::optional<VariableSet> set = reader_->Read(ids_.at(index), name);
    if (!set) {
      throw DatasetError(db_->File() + ": set " + name +
                         " was changed by another program while in use: run the command again");
    }
    return std::move(*set);
  }

 private:
  std::shared_ptr<const SqliteConnection> db_;
  std::vector<std::int64_t> ids_;
  mutable std::optional<SetRowReader> reader_;
};

}  // namespace

StoredSets ReadStoredSets(const std::shared_ptr<const SqliteConnection>& db, bool listed) {
  const auto source = std::make_shared<StoredSetSource>(db);
  // The names first, end to end: the sets are then made in order of
  // position, rather than made in the table's order and moved.
  std::string names;
  std::vector<std::size_t> nameEnds;
  const std::size_t expected = ExpectedRows(*db);
  names.reserve(expected * kTypicalNameBytes);  // reserved, not yet touched
  nameEnds.reserve(expected);
  SetRows read = OrderRows(*db,
                           ReadRowKeys(*db, expected, !listed, "",
                                       [&](std::string_view name, const Statement&) {
                                         names += name;
                                         nameEnds.push_back(names.size());
                                       }),
                           listed);
  std::vector<VariableSet> sets;
  sets.reserve(read.rows.size());
  // A set is its row's place in the table's order: the source keeps the ids
  // in that order.
  for (const std::size_t row : read.rows) {
    const std::size_t begin = row == 0 ? 0 : nameEnds[row - 1];
    sets.emplace_back(names.substr(begin, nameEnds[row] - begin), source, row);
  }
  source->SetIds(std::move(read.tableIds));
  read.stored.sets = std::make_shared<const std::vector<VariableSet>>(std::move(sets));
  read.stored.source = source;
  read.stored.sourceIndexes = std::move(read.rows);
  return std::move(read.stored);
}

StoredSets ReadWholeStoredSets(const SqliteConnection& db, bool listed) {
  std::vector<VariableSet> sets;
  SetRows read = OrderRows(
      db,
      ReadRowKeys(
          db, ExpectedRows(db), !listed, std::string(", ") + kSetColumns,
          [&](std::string_view, const Statement& at) { sets.push_back(SetOfRow(db, at, 4)); }),
      listed);
  Permute(sets, read.rows);
  std::unordered_map<std::int64_t, std::size_t> indexById;
  for (std::size_t i = 0; i < read.stored.ids.size(); ++i) indexById.emplace(read.stored.ids[i], i);
  // Every row of set_variables belongs to a set (a foreign key).
  Statement setVariables(db, "SELECT set_id, name FROM set_variables ORDER BY set_id, position",
                         kReading);
  while (setVariables.Step()) {
    const auto found = indexById.find(setVariables.Int(0));
    if (found == indexById.end()) {
      Corrupt(db, "a row refers to a variable or set that is not there");
    }
    AddMember(db, setVariables.Text(1), sets[found->second]);
  }
  read.stored.sets = std::make_shared<const std::vector<VariableSet>>(std::move(sets));
  return std::move(read.stored);
}

SetWriter::SetWriter(const SqliteConnection& db)
    : db_(db),
      insertSet_(
          db,
          "INSERT INTO sets (position, name, folded_name, type, label, counted_value, "
          "category_labels, label_from_variables, extras) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
          "not saved"),
      dropStrayVariables_(db, "DELETE FROM set_variables WHERE set_id = ?", "not saved"),
      insertVariable_(db, "INSERT INTO set_variables (set_id, position, name) VALUES (?, ?, ?)",
                      "not saved"),
      readBack_(db) {}

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
  // Another program may have left member rows without their set; a new set
  // that gets that set's id must not take them for its own.
  dropStrayVariables_.BindInt(1, id).Run();
  std::int64_t index = 0;
  for (const std::string& variable : set.GetVariableNames(kAsStored)) {
    insertVariable_.BindInt(1, id).BindInt(2, index++).BindText(3, variable).Run();
  }
  // A damaged page can take rows in without a fault and lose them: a set
  // that does not read back as written is not saved.
  const std::optional<VariableSet> written = readBack_.Read(id, name);
  if (!written || !(*written == set)) {
    Corrupt(db_,
            "the file is damaged or truncated: set " + name + " does not read back as written");
  }
  return id;
}

void WriteSetOrder(const SqliteConnection& db, const std::vector<std::int64_t>& ids,
                   const std::vector<std::int64_t>& before) {
  const std::string doing = "not saved";
  Statement write(db, "INSERT OR REPLACE INTO set_order (chunk, ids) VALUES (?, ?)", doing);
  std::vector<unsigned char> bytes;
  std::int64_t chunk = 0;
  for (std::size_t first = 0; first < ids.size(); first += kIdsPerOrderChunk, ++chunk) {
    const std::size_t end = std::min(ids.size(), first + kIdsPerOrderChunk);
    // The chunk as it was written before, when `before` was.
    const std::size_t beforeEnd = std::min(before.size(), first + kIdsPerOrderChunk);
    const bool same =
        beforeEnd == end && std::equal(ids.begin() + static_cast<std::ptrdiff_t>(first),
                                       ids.begin() + static_cast<std::ptrdiff_t>(end),
                                       before.begin() + static_cast<std::ptrdiff_t>(first));
    if (same) continue;
    bytes.clear();
    for (std::size_t i = first; i < end; ++i) {
      const auto value = static_cast<std::uint64_t>(ids[i]);
      for (std::size_t k = 0; k < 8; ++k) {
        bytes.push_back(static_cast<unsigned char>(value >> (8 * k)));
      }
    }
    write.BindInt(1, chunk).BindStaticBlob(2, bytes).Run();
  }
  Statement drop(db, "DELETE FROM set_order WHERE chunk >= ?", doing);
  drop.BindInt(1, chunk).Run();
}

}  // namespace hostlib::data
