// Whether an output file would overwrite the dataset or a file that keeps
// it whole.
#pragma once

#include <string>

namespace mrset_program {

// What the output file would destroy when it is the dataset or one of the
// files that keep it whole (its lock, journal or temporary files); by
// identity and by resolved name, so links count too. Empty when nothing.
std::string ClashWithDataset(const std::string& output, const std::string& data);

}  // namespace mrset_program
