#include "tests/support/files.h"

#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const fs::path& path, std::string_view text) {
  std::ofstream out(path, std::ios::binary);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

TemporaryFolder::TemporaryFolder(std::string_view stem) {
  const char* root = std::getenv("TMPDIR");
  std::string pattern =
      (fs::path(root != nullptr && *root != '\0' ? root : "/tmp") / (std::string(stem) + "-XXXXXX"))
          .string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  // A test may have taken the rights away to make a save fail.
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
  fs::remove_all(path_, ignored);
}

}  // namespace testsupport
