// Dataset contents for what another format described (DDI, Triple-S, a CSV
// export), in the form a codebook file or a database keeps them.
#pragma once

#include <string>

#include "hostlib/data/dataset_store.h"

namespace hostlib::data {

// The dataset's fields and sets, with "path" naming its data file when
// `dataPath` is not empty.
DatasetContents ContentsWithDataPath(const Dataset& dataset, const std::string& dataPath);

// A codebook descriptor's text made by an importer, read as a codebook file
// is. Throws DatasetError naming `file` for what the format refuses.
DatasetContents ContentsFromDescriptorText(const std::string& text, const std::string& file);

}  // namespace hostlib::data
