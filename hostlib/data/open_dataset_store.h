// Choosing the store for a dataset file: by what the file holds when it has
// contents, else by its name.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "hostlib/data/dataset_store.h"
#include "hostlib/files/env.h"

namespace hostlib::data {

enum class DatasetFormat { kCodebook, kDatabase };

// By the file's name: .json a codebook, .db, .sqlite and .sqlite3 a database.
std::optional<DatasetFormat> FormatFromName(const std::filesystem::path& path);

// The store for a dataset file, chosen by what the file holds: an SQLite
// database, a data package (datapackage.json[#RESOURCE]) or a codebook file
// (JSON). A missing or empty file gets the store
// its name suggests (.db, .sqlite, .sqlite3: the database), whose Load
// reports it. Throws DatasetError, naming the file, for a file that is
// neither.
std::unique_ptr<DatasetStore> OpenDatasetStore(const std::filesystem::path& path,
                                               files::Env& env = files::DefaultEnv());

// The store of `format` for a file that Create will make.
std::unique_ptr<DatasetStore> NewDatasetStore(const std::filesystem::path& path,
                                              DatasetFormat format,
                                              files::Env& env = files::DefaultEnv());

}  // namespace hostlib::data
