#include "hostlib/data/active_dataset.h"

#include <utility>

namespace hostlib::data {
namespace {

const ActiveDatasetSource* installed = nullptr;

}  // namespace

const ActiveDatasetSource* CurrentActiveDatasetSource() { return installed; }

const ActiveDatasetSource* InstallActiveDatasetSource(const ActiveDatasetSource* source) {
  return std::exchange(installed, source);
}

}  // namespace hostlib::data
