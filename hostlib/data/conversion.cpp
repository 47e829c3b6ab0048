#include "hostlib/data/conversion.h"

#include <string>

#include "hostlib/data/codebook_file.h"
#include "hostlib/data/dataset_store.h"
#include "hostlib/data/sqlite_store.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

namespace fs = std::filesystem;

std::optional<DatasetFormat> FormatFromName(const fs::path& path) {
  if (path.extension() == ".json") return DatasetFormat::kCodebook;
  if (SqliteStore::NameSuggestsDatabase(path)) return DatasetFormat::kDatabase;
  return std::nullopt;
}

void ConvertDataset(const fs::path& in, const fs::path& out, DatasetFormat format) {
  const std::unique_ptr<DatasetStore> source = OpenDatasetStore(in);
  const Dataset dataset = source->Load();
  // The codebook descriptor is the form that holds everything either format
  // can: a database keeps what it does not interpret in that form.
  nlohmann::ordered_json codebook;
  if (auto* file = dynamic_cast<CodebookFile*>(source.get())) {
    codebook = file->Document();
  } else {
    codebook = dynamic_cast<SqliteStore&>(*source).ExportCodebook();
  }
  if (format == DatasetFormat::kDatabase) {
    SqliteStore::Create(out, dataset, &codebook);
    return;
  }
  std::string text;
  try {
    text = codebook.dump(2) + "\n";
  } catch (const nlohmann::ordered_json::exception& error) {
    throw DatasetError(out.string() + ": not saved: " + error.what());
  }
  try {
    files::CreateFileAtomically(out, text);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

}  // namespace hostlib::data
