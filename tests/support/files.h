// Fixtures the tests share: whole files in and out, and a fresh folder that
// is removed with everything in it when the test ends.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace testsupport {

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, std::string_view text);

class TemporaryFolder {
 public:
  // Made under the test framework's temporary folder, named from `stem`.
  explicit TemporaryFolder(std::string_view stem = "mrset-test");
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace testsupport
