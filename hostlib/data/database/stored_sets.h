// The sets as a dataset database holds them, with their rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/data_source.h"

namespace hostlib::data {

struct StoredSets {
  std::vector<VariableSet> sets;
  std::vector<std::int64_t> ids;
  std::vector<std::int64_t> positions;
  std::vector<std::string> foldedNames;
};

}  // namespace hostlib::data
