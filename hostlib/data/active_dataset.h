// The active dataset, for the procedure data sources of host/data_source.h.
// The session installs itself; with none installed no dataset is open.
#pragma once

#include <memory>

#include "hostlib/data/dataset.h"

class VORN_DataSource;

namespace hostlib::data {

class ActiveDatasetSource {
 public:
  virtual ~ActiveDatasetSource() = default;
  virtual std::shared_ptr<Dataset> ActiveDataset() const = 0;
  // The data source behind every procedure's view of the active dataset.
  virtual const VORN_DataSource* RootSource() const = 0;
};

// Null when none is installed.
const ActiveDatasetSource* CurrentActiveDatasetSource();
// Installs `source` (null: none); returns the one it replaces.
const ActiveDatasetSource* InstallActiveDatasetSource(const ActiveDatasetSource* source);

}  // namespace hostlib::data
