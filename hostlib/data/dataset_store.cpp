#include "hostlib/data/dataset_store.h"

#include "hostlib/data/codebook_file.h"

namespace hostlib::data {

std::unique_ptr<DatasetStore> OpenDatasetStore(const std::filesystem::path& path) {
  return std::make_unique<CodebookFile>(path);
}

}  // namespace hostlib::data
