#include "hostlib/data/dataset_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>

#include "hostlib/data/codebook_file.h"
#include "hostlib/data/sqlite_store.h"
#include "hostlib/files/files.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;

enum class Content { kMissing, kEmpty, kDatabase, kText, kOther };

// Enough of the file to tell a database from a codebook: a codebook is text,
// so a NUL byte early on rules it out.
Content Sniff(const fs::path& path) {
  files::FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return Content::kMissing;  // the store's Load says why
  std::array<char, 4096> head{};
  std::size_t length = 0;
  while (length < head.size()) {
    const ssize_t count = ::read(fd.Get(), head.data() + length, head.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  const std::string_view text(head.data(), length);
  if (length == 0) return Content::kEmpty;
  if (SqliteStore::HasHeader(text)) return Content::kDatabase;
  return text.find('\0') == std::string_view::npos ? Content::kText : Content::kOther;
}

}  // namespace

std::unique_ptr<DatasetStore> OpenDatasetStore(const fs::path& path) {
  switch (Sniff(path)) {
    case Content::kDatabase:
      return std::make_unique<SqliteStore>(path);
    case Content::kText:
      return std::make_unique<CodebookFile>(path);
    case Content::kMissing:
    case Content::kEmpty:
      if (SqliteStore::NameSuggestsDatabase(path)) return std::make_unique<SqliteStore>(path);
      return std::make_unique<CodebookFile>(path);
    case Content::kOther:
      break;
  }
  throw DatasetError(path.string() +
                     ": neither a codebook file (JSON) nor a dataset database (SQLite)");
}

std::string LockTimeoutMessage(const fs::path& path, std::chrono::milliseconds timeout) {
  std::ostringstream seconds;
  seconds << static_cast<double>(timeout.count()) / 1000;
  return path.string() + ": the dataset is in use by another process; gave up waiting after " +
         seconds.str() + " s (MRSET_LOCK_TIMEOUT sets the wait)";
}

}  // namespace hostlib::data
