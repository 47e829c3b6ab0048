#include "fuzz/fuzz_files.h"

#include <unistd.h>

#include <fstream>
#include <string>
#include <system_error>

namespace fuzzing {
namespace {

namespace fs = std::filesystem;

fs::path BaseFolder() {
  std::error_code error;
  if (fs::is_directory("/dev/shm", error) && access("/dev/shm", W_OK) == 0) return "/dev/shm";
  return fs::temp_directory_path();
}

struct Scratch {
  fs::path path = BaseFolder() / ("mrset-fuzz-" + std::to_string(getpid()));
  Scratch() { fs::create_directories(path); }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

}  // namespace

const fs::path& ScratchFolder() {
  static const Scratch scratch;
  return scratch.path;
}

fs::path WriteInput(std::string_view name, const std::uint8_t* data, std::size_t size) {
  const fs::path& folder = ScratchFolder();
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
  const fs::path path = folder / name;
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

}  // namespace fuzzing
