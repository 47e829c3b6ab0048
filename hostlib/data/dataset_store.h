// Where a dataset lives between runs: a file that the program loads once and
// writes back after each command that saved sets.
#pragma once

#include <filesystem>
#include <memory>

#include "hostlib/data/dataset.h"

namespace hostlib::data {

class DatasetStore {
 public:
  DatasetStore() = default;
  DatasetStore(const DatasetStore&) = delete;
  DatasetStore& operator=(const DatasetStore&) = delete;
  virtual ~DatasetStore() = default;

  virtual const std::filesystem::path& Path() const = 0;

  // Reads the file. Throws DatasetError (naming the file, the place and the
  // fault) when it cannot be read or breaks the format's rules.
  virtual Dataset Load() = 0;

  // Whether Save(dataset) would change what the file holds. A store that has
  // not loaded its file always answers true.
  virtual bool WouldChange(const Dataset& dataset) const = 0;

  // Writes the dataset back, all or nothing: on failure the file is as it
  // was, and DatasetError names the file and the fault. Whatever the store
  // read and does not interpret is written back unchanged.
  virtual void Save(const Dataset& dataset) = 0;
};

// The store for a dataset file.
std::unique_ptr<DatasetStore> OpenDatasetStore(const std::filesystem::path& path);

}  // namespace hostlib::data
