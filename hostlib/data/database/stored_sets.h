// The sets as a dataset database holds them, with their rows.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "host/data_source.h"
#include "hostlib/data/dataset.h"

namespace hostlib::data {

struct StoredSets {
  SharedSetList sets = std::make_shared<const std::vector<VariableSet>>();
  std::vector<std::int64_t> ids;
  // Whether `set_order` lists exactly `ids`, in chunks as a save here
  // writes them (so that a save rewrites only the chunks that change).
  bool orderAsWritten = false;
  // Where the sets were read from, and per set its index there
  // (kNotRead for a set this program wrote since).
  static constexpr std::size_t kNotRead = std::numeric_limits<std::size_t>::max();
  std::shared_ptr<const VariableSetSource> source;
  std::vector<std::size_t> sourceIndexes;
};

}  // namespace hostlib::data
