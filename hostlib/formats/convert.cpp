#include "hostlib/formats/convert.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "hostlib/data/codebook/imported_contents.h"
#include "hostlib/data/database/database_store.h"
#include "hostlib/data/datapackage/datapackage_store.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/files/files.h"
#include "hostlib/formats/csv.h"
#include "hostlib/formats/csv_inference.h"
#include "hostlib/formats/ddi.h"
#include "hostlib/formats/syntax_out.h"
#include "hostlib/formats/triple_s.h"
#include "hostlib/formats/xml.h"

namespace hostlib::formats {
namespace {

namespace fs = std::filesystem;
using data::DatasetError;

struct ExtraFile {
  fs::path path;
  std::string contents;
};

struct Input {
  data::DatasetContents contents;
  std::vector<ExtraFile> extras;
  std::vector<std::string> report;
};

std::string ReadText(const fs::path& path) {
  try {
    return files::ReadWholeFile(path);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

// How `target` is named from the folder of `out`.
std::string RelativeTo(const fs::path& target, const fs::path& out) {
  std::error_code ignored;
  const fs::path base = fs::absolute(out, ignored).parent_path();
  fs::path relative = fs::absolute(target, ignored).lexically_relative(base);
  return relative.empty() ? target.string() : relative.generic_string();
}

std::optional<fs::path> FindTripleSData(const fs::path& in, const TripleSSurvey& survey) {
  std::error_code ignored;
  // Records of several kinds make no one table of cases.
  if (survey.severalRecords) return std::nullopt;
  // The file names a file beside it or below; a URL, an absolute path or a
  // way up is not followed (the same name with a data ending is looked for).
  const fs::path href(survey.dataHref);
  const bool beside = !survey.dataHref.empty() && href.is_relative() && !href.has_root_name() &&
                      survey.dataHref.find("://") == std::string::npos &&
                      std::find(href.begin(), href.end(), "..") == href.end();
  if (beside) {
    const fs::path named = in.parent_path() / href;
    if (fs::is_regular_file(named, ignored)) return named;
  }
  for (const char* extension : {".asc", ".dat", ".csv", ".txt"}) {
    fs::path candidate = in;
    candidate.replace_extension(extension);
    if (fs::is_regular_file(candidate, ignored)) return candidate;
  }
  return std::nullopt;
}

// The data travel only with a codebook or a database, whose "path" names them.
Input ReadTripleSInput(const fs::path& in, const std::string& text, const fs::path& out,
                       bool withData) {
  const TripleSSurvey survey = ReadTripleS(text, in.string());
  Input input;
  std::string dataPath;
  if (const auto dataFile = withData ? FindTripleSData(in, survey) : std::nullopt) {
    fs::path csv = out;
    csv.replace_extension(".csv");
    input.extras.push_back(
        {csv, ConvertTripleSData(survey, ReadText(*dataFile), dataFile->string())});
    dataPath = RelativeTo(csv, out);
    input.report.push_back("data of " + dataFile->string() + " written to " + csv.string());
  }
  if (withData && survey.severalRecords) {
    input.report.push_back("the data of a survey of several records are not converted");
  }
  input.contents = data::ContentsWithDataPath(survey.dataset, dataPath);
  return input;
}

Input ReadCsvInput(const fs::path& in, const std::string& text, const fs::path& out,
                   const ConvertOptions& options) {
  const CsvTable table = ParseCsv(text, in.string());
  InferredDictionary inferred = InferDictionary(table, RelativeTo(in, out));
  Input input{inferred.contents, {}, {}};
  input.report.push_back(std::to_string(inferred.proposedSets.size()) +
                         " multi-select question(s) found");
  if (options.setsFile) {
    input.extras.push_back({*options.setsFile, RenderProposal(inferred, in.filename().string())});
    input.report.back() += "; the commands that define them are in " + options.setsFile->string();
  } else if (!inferred.proposedSets.empty()) {
    input.report.back() += "; --sets FILE.mrs writes the commands that define them";
  }
  return input;
}

std::string_view Trimmed(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  const auto begin = text.find_first_not_of(" \t\r\n");
  return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

Input ReadStore(const fs::path& in) { return {data::OpenDatasetStore(in)->Export(), {}, {}}; }

// The first bytes of a file; fewer or none when they cannot be read (the
// whole read then says why).
std::string ReadHead(const fs::path& path) {
  constexpr std::size_t kHeadBytes = 4096;
  std::ifstream in(path, std::ios::binary);
  std::string head(kHeadBytes, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return head;
}

// A database or a codebook, which its store reads itself.
bool IsStore(std::string_view text) {
  const std::string_view start = Trimmed(text);
  return data::SqliteStore::HasHeader(text) || (!start.empty() && start.front() == '{');
}

Input ReadInput(const fs::path& in, const fs::path& out, OutputFormat format,
                const ConvertOptions& options) {
  if (data::OpenDataPackageStore(in)) return ReadStore(in);
  // The head tells most files apart without holding the whole file twice.
  if (IsStore(ReadHead(in))) return ReadStore(in);
  const std::string text = ReadText(in);
  if (IsStore(text)) return ReadStore(in);
  const std::string_view start = Trimmed(text);
  const bool utf16 = text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0;
  if (utf16 || (!start.empty() && start.front() == '<')) {
    pugi::xml_document document;
    std::string utf8 = text;  // the readers below convert the file's own text again
    xml::Parse(document, utf8, in.string());
    const std::string_view root = xml::LocalName(document.document_element());
    if (root == "sss") {
      return ReadTripleSInput(
          in, text, out, format == OutputFormat::kCodebook || format == OutputFormat::kDatabase);
    }
    if (root == "codeBook") {
      return {{ReadDdi(text, in.string()), nullptr}, {}, {}};
    }
    throw DatasetError(in.string() + ": line 1: an XML file whose root is <" + std::string(root) +
                       ">, neither <codeBook> (DDI Codebook) nor <sss> (Triple-S)");
  }
  if (text.find('\0') != std::string::npos) {
    throw DatasetError(in.string() + ": not a format that mrset-convert reads");
  }
  return ReadCsvInput(in, text, out, options);
}

void CreateFile(const fs::path& path, std::string_view contents) {
  try {
    files::CreateFileAtomically(path, contents);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

void WriteOutput(const Input& input, const fs::path& out, OutputFormat format) {
  const data::Dataset& dataset = input.contents.dataset;
  switch (format) {
    case OutputFormat::kCodebook:
      data::NewDatasetStore(out, data::DatasetFormat::kCodebook)->Create(input.contents);
      return;
    case OutputFormat::kDatabase:
      data::NewDatasetStore(out, data::DatasetFormat::kDatabase)->Create(input.contents);
      return;
    case OutputFormat::kDdi: {
      std::string text;
      try {
        text = RenderDdi(dataset, out.stem().string());
      } catch (const DatasetError& error) {
        throw DatasetError(out.string() + ": not written: " + error.what());
      }
      CreateFile(out, text);
      return;
    }
    case OutputFormat::kSyntax: {
      std::string text;
      try {
        text = RenderSetCommands(dataset, dataset.MultipleResponseSets());
      } catch (const DatasetError& error) {
        throw DatasetError(out.string() + ": not written: " + error.what());
      }
      CreateFile(out, text);
      return;
    }
  }
}

}  // namespace

std::optional<OutputFormat> OutputFormatFromName(const fs::path& path) {
  const std::string extension = path.extension().string();
  if (extension == ".json") return OutputFormat::kCodebook;
  if (data::FormatFromName(path) == data::DatasetFormat::kDatabase) return OutputFormat::kDatabase;
  if (extension == ".xml") return OutputFormat::kDdi;
  if (extension == ".mrs") return OutputFormat::kSyntax;
  return std::nullopt;
}

std::optional<OutputFormat> OutputFormatFromWord(std::string_view word) {
  if (word == "codebook" || word == "json") return OutputFormat::kCodebook;
  if (word == "database" || word == "sqlite") return OutputFormat::kDatabase;
  if (word == "ddi") return OutputFormat::kDdi;
  if (word == "syntax" || word == "mrs") return OutputFormat::kSyntax;
  return std::nullopt;
}

std::vector<std::string> Convert(const fs::path& in, const fs::path& out, OutputFormat format,
                                 const ConvertOptions& options) {
  std::error_code ignored;
  if (fs::exists(out, ignored) || fs::is_symlink(out, ignored)) {
    throw DatasetError(out.string() + ": already exists; not replaced");
  }
  Input input = ReadInput(in, out, format, options);
  for (const ExtraFile& extra : input.extras) {
    if (fs::exists(extra.path, ignored)) {
      throw DatasetError(extra.path.string() + ": already exists; not replaced");
    }
  }
  // The extra files first, then the output; a failure removes what was made.
  std::vector<fs::path> made;
  try {
    for (const ExtraFile& extra : input.extras) {
      CreateFile(extra.path, extra.contents);
      made.push_back(extra.path);
    }
    WriteOutput(input, out, format);
  } catch (...) {
    for (const fs::path& path : made) fs::remove(path, ignored);
    throw;
  }
  return input.report;
}

}  // namespace hostlib::formats
