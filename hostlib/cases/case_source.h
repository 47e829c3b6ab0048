// Where the active dataset's cases lie: a CSV file, its dialect and the
// texts that stand for a missing value.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hostlib/cases/csv_scanner.h"
#include "hostlib/files/env.h"

namespace hostlib::cases {

struct CaseSource {
  std::filesystem::path path;
  Dialect dialect;
  std::vector<std::string> missingValues{""};
};

// What a codebook file says of its cases: "path" (relative to the codebook),
// "dialect" (delimiter, quoteChar, header) and "missingValues". Nothing when
// the file is no JSON object or has no "path". Throws std::runtime_error,
// naming the codebook and the key, for a key of the wrong kind.
std::optional<CaseSource> CaseSourceOfCodebook(const std::filesystem::path& codebook);

// The keys CaseSourceOfCodebook reads.
const std::vector<std::string>& CaseSourceKeys();
// The same from those keys' JSON texts, as a store read them
// (DatasetStore::TopLevelMembers).
std::optional<CaseSource> CaseSourceOfMembers(
    const std::filesystem::path& codebook,
    const std::optional<std::map<std::string, std::string>>& members);

// The case source that readers open; none until the program sets one.
void SetActiveCaseSource(std::optional<CaseSource> source);
const std::optional<CaseSource>& ActiveCaseSource();

// How readers read the case file: through which file system, with vector
// instructions where the processor has them, and with threads that scan
// ranges of a large file ahead of the counting where there are processors
// to spare.
struct CaseReading {
  files::Env* env = nullptr;  // none: the real file system
  bool vectors = true;
  bool readAhead = true;
  // Tests only: this many threads whatever the size (0: as the file and the
  // processors allow), over ranges of this many bytes (0: the usual size).
  std::size_t workers = 0;
  std::size_t rangeBytes = 0;
};
void SetCaseReading(CaseReading reading);
const CaseReading& CurrentCaseReading();

}  // namespace hostlib::cases
