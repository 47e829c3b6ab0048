#include "hostlib/data/conversion.h"

namespace hostlib::data {

void ConvertDataset(const std::filesystem::path& in, const std::filesystem::path& out,
                    DatasetFormat format, files::Env& env) {
  const DatasetContents contents = OpenDatasetStore(in, env)->Export();
  NewDatasetStore(out, format, env)->Create(contents);
}

}  // namespace hostlib::data
