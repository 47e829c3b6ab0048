// The host's side of the data sources of host/data_source.h: a data source
// views a dataset, which may be none.
#pragma once

#include <memory>

#include "host/data_source.h"
#include "hostlib/data/dataset.h"

struct VORN_DataSource::HostState {
  std::shared_ptr<hostlib::data::Dataset> dataset;
};

namespace hostlib::data {

std::unique_ptr<VORN_DataSource> DataSourceOver(std::shared_ptr<Dataset> dataset);
std::shared_ptr<VORN_DataSource::HostState> HostStateOver(std::shared_ptr<Dataset> dataset);

// The dataset a data source views; throws std::logic_error when none.
Dataset& DatasetOf(const VORN_DataSource& source);

}  // namespace hostlib::data
