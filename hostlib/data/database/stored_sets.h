// The sets as a dataset database holds them, with their rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/data_source.h"
#include "hostlib/data/dataset.h"

namespace hostlib::data {

struct StoredSets {
  SharedSetList sets = std::make_shared<const std::vector<VariableSet>>();
  std::vector<std::int64_t> ids;
  std::vector<std::int64_t> positions;
  std::vector<std::string> foldedNames;
};

}  // namespace hostlib::data
