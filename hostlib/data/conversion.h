// Copies a dataset from one file to a new one, between the codebook file
// (JSON) and the dataset database (SQLite) or within one format, keeping
// everything the source holds: what the host interprets and what it does not.
#pragma once

#include <filesystem>
#include <optional>

namespace hostlib::data {

enum class DatasetFormat { kCodebook, kDatabase };

// By the file's name: .json a codebook, .db, .sqlite and .sqlite3 a database.
std::optional<DatasetFormat> FormatFromName(const std::filesystem::path& path);

// Reads `in` (whichever format it holds) and makes `out` in `format`, all or
// nothing. Throws DatasetError, naming the file and the fault, when `in`
// cannot be read or is refused, or `out` exists or cannot be written.
void ConvertDataset(const std::filesystem::path& in, const std::filesystem::path& out,
                    DatasetFormat format);

}  // namespace hostlib::data
