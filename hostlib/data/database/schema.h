// The dataset database's format: its identity and its tables (the README's
// "Dataset databases" describes them).
#pragma once

#include <cstddef>
#include <string_view>

namespace hostlib::data {

inline constexpr int kApplicationId = 0x4D525344;  // "MRSD"
// Format 1 ordered the sets by their rows' `position`; format 2 lists them
// in `set_order`, so that a save that reorders thousands of sets writes one
// value rather than thousands of rows. Format 1 is read, and becomes format
// 2 at its first save.
inline constexpr int kFormatVersion = 2;
inline constexpr int kOldestFormatVersion = 1;
inline constexpr std::string_view kSqliteHeader("SQLite format 3\0", 16);
// The page size of a database made here (any other is read as well): a
// command reads every set row, and a 16 KB page holds four times as many
// as SQLite's default, in a quarter of the reads.
inline constexpr int kPageSize = 16384;

// The tables of format 1; the README describes them.
inline constexpr const char* kSchema = R"sql(
CREATE TABLE dataset (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  revision INTEGER NOT NULL CHECK (revision >= 0),
  layout TEXT
);
CREATE TABLE variables (
  position INTEGER PRIMARY KEY CHECK (position >= 0),
  name TEXT NOT NULL CHECK (name <> ''),
  folded_name TEXT NOT NULL UNIQUE,
  width INTEGER NOT NULL CHECK (width BETWEEN 0 AND 32767),
  type TEXT,
  label TEXT,
  layout TEXT
);
CREATE TABLE categories (
  variable INTEGER NOT NULL REFERENCES variables (position) ON DELETE CASCADE,
  position INTEGER NOT NULL CHECK (position >= 0),
  value NOT NULL CHECK (typeof(value) IN ('integer', 'real', 'text')),
  label TEXT,
  bare INTEGER NOT NULL DEFAULT 0 CHECK (bare IN (0, 1)),
  layout TEXT,
  PRIMARY KEY (variable, position),
  UNIQUE (variable, value),
  CHECK (bare = 0 OR (label IS NULL AND layout IS NULL))
) WITHOUT ROWID;
CREATE TABLE sets (
  id INTEGER PRIMARY KEY,
  position INTEGER NOT NULL UNIQUE,
  name TEXT NOT NULL,
  folded_name TEXT NOT NULL UNIQUE,
  type TEXT NOT NULL CHECK (type IN ('dichotomies', 'categories')),
  label TEXT CHECK (label <> ''),
  counted_value TEXT,
  category_labels TEXT CHECK (category_labels IN ('countedValues', 'variableLabels')),
  label_from_variables INTEGER NOT NULL DEFAULT 0 CHECK (label_from_variables IN (0, 1)),
  extras TEXT,
  CHECK ((type = 'dichotomies') = (counted_value IS NOT NULL)),
  CHECK ((type = 'dichotomies') = (category_labels IS NOT NULL))
);
CREATE TABLE set_variables (
  set_id INTEGER NOT NULL REFERENCES sets (id) ON DELETE CASCADE,
  position INTEGER NOT NULL CHECK (position >= 0),
  name TEXT NOT NULL,
  PRIMARY KEY (set_id, position)
) WITHOUT ROWID;
)sql";

// Added by format 2: the sets' ids in order, in chunks (in order of
// `chunk`) of eight bytes per id, least significant first. In format 2 a
// set's `position` only tells the rows apart.
inline constexpr const char* kSetOrderSchema = R"sql(
CREATE TABLE set_order (
  chunk INTEGER PRIMARY KEY CHECK (chunk >= 0),
  ids BLOB NOT NULL CHECK (typeof(ids) = 'blob' AND length(ids) % 8 = 0)
);
)sql";
// The ids a chunk of `set_order` holds when written here (512 KB): a save
// rewrites the chunks that changed, and no value nears SQLite's limit.
inline constexpr std::size_t kIdsPerOrderChunk = 65536;

}  // namespace hostlib::data
