#include "hostlib/data/open_dataset_store.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "hostlib/data/codebook/codebook_store.h"
#include "hostlib/data/database/database_store.h"
#include "hostlib/data/datapackage/datapackage_store.h"
#include "hostlib/files/files.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;

enum class Content { kMissing, kEmpty, kDatabase, kText, kOther };

// Enough of the file to tell a database from a codebook: a codebook is text,
// so a NUL byte early on rules it out.
Content Sniff(const fs::path& path, files::Env& env) {
  files::FileDescriptor fd(env.Open(path, O_RDONLY));
  if (!fd) return Content::kMissing;  // the store's Load says why
  std::array<char, 4096> head{};
  std::size_t length = 0;
  while (length < head.size()) {
    const ssize_t count = env.Read(fd.Get(), path, head.data() + length, head.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  const std::string_view text(head.data(), length);
  if (length == 0) return Content::kEmpty;
  if (SqliteStore::HasHeader(text)) return Content::kDatabase;
  return text.find('\0') == std::string_view::npos ? Content::kText : Content::kOther;
}

bool NameSuggestsDatabase(const fs::path& path) {
  const std::string extension = path.extension().string();
  return extension == ".db" || extension == ".sqlite" || extension == ".sqlite3";
}

}  // namespace

std::optional<DatasetFormat> FormatFromName(const fs::path& path) {
  if (path.extension() == ".json") return DatasetFormat::kCodebook;
  if (NameSuggestsDatabase(path)) return DatasetFormat::kDatabase;
  return std::nullopt;
}

std::unique_ptr<DatasetStore> NewDatasetStore(const fs::path& path, DatasetFormat format,
                                              files::Env& env) {
  if (format == DatasetFormat::kDatabase) return std::make_unique<SqliteStore>(path, env);
  return std::make_unique<CodebookFile>(path, env);
}

std::unique_ptr<DatasetStore> OpenDatasetStore(const fs::path& path, files::Env& env) {
  if (auto package = OpenDataPackageStore(path, env)) return package;
  switch (Sniff(path, env)) {
    case Content::kDatabase:
      return NewDatasetStore(path, DatasetFormat::kDatabase, env);
    case Content::kText:
      return NewDatasetStore(path, DatasetFormat::kCodebook, env);
    case Content::kMissing:
    case Content::kEmpty:
      return NewDatasetStore(
          path, NameSuggestsDatabase(path) ? DatasetFormat::kDatabase : DatasetFormat::kCodebook,
          env);
    case Content::kOther:
      break;
  }
  throw DatasetError(path.string() +
                     ": neither a codebook file (JSON) nor a dataset database (SQLite)");
}

}  // namespace hostlib::data
