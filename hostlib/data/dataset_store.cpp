#include "hostlib/data/dataset_store.h"

#include <sstream>

namespace hostlib::data {

namespace fs = std::filesystem;

std::string LockTimeoutMessage(const fs::path& path, std::chrono::milliseconds timeout) {
  std::ostringstream seconds;
  seconds << static_cast<double>(timeout.count()) / 1000;
  return path.string() + ": the dataset is in use by another process; gave up waiting after " +
         seconds.str() + " s (MRSET_LOCK_TIMEOUT sets the wait)";
}

}  // namespace hostlib::data
