// Copies a dataset from one file to a new one, between the codebook file
// (JSON) and the dataset database (SQLite) or within one format, keeping
// everything the source holds: what the host interprets and what it does not.
#pragma once

#include <filesystem>

#include "hostlib/data/open_dataset_store.h"

namespace hostlib::data {

// Reads `in` (whichever format it holds) and makes `out` in `format`, all or
// nothing. Throws DatasetError, naming the file and the fault, when `in`
// cannot be read or is refused, or `out` exists or cannot be written.
void ConvertDataset(const std::filesystem::path& in, const std::filesystem::path& out,
                    DatasetFormat format, files::Env& env = files::DefaultEnv());

}  // namespace hostlib::data
