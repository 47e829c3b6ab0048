#include "hostlib/data/dataset_store.h"

#include <sstream>

#include "hostlib/data/codebook/top_level_members.h"

namespace hostlib::data {

namespace fs = std::filesystem;

std::optional<std::map<std::string, std::string>> DatasetStore::TopLevelMembers(
    const std::vector<std::string>& keys) {
  return ReadTopLevelMembers(Path(), keys);
}

std::string LockTimeoutMessage(const fs::path& path, std::chrono::milliseconds timeout) {
  std::ostringstream seconds;
  seconds << static_cast<double>(timeout.count()) / 1000;
  return path.string() + ": the dataset is in use by another process; gave up waiting after " +
         seconds.str() + " s (MRSET_LOCK_TIMEOUT sets the wait)";
}

}  // namespace hostlib::data
