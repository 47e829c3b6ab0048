#include "programs/mrset/output_clash.h"

#include <sys/stat.h>

#include <filesystem>

namespace mrset_program {

std::string ClashWithDataset(const std::string& output, const std::string& data) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  struct stat outInfo {};
  struct stat dataInfo {};
  if (::stat(output.c_str(), &outInfo) == 0 && ::stat(data.c_str(), &dataInfo) == 0 &&
      outInfo.st_dev == dataInfo.st_dev && outInfo.st_ino == dataInfo.st_ino) {
    return "the dataset";
  }
  const fs::path out = fs::weakly_canonical(output, ignored);
  const fs::path dataset = fs::weakly_canonical(data, ignored);
  if (out == dataset) return "the dataset";
  if (out.parent_path() != dataset.parent_path()) return {};
  const std::string name = dataset.filename().string();
  const std::string outName = out.filename().string();
  if (outName == name + ".lock") return "the dataset's lock file";
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    if (outName == name + suffix) return "the dataset's journal";
  }
  if (outName.rfind("." + name + ".tmp", 0) == 0) return "a temporary file of the dataset";
  return {};
}

}  // namespace mrset_program
