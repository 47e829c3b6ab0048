// Where the active dataset's cases lie: a CSV file, its dialect and the
// texts that stand for a missing value.
#pragma once

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
// instructions where the processor has them, and with a second thread that
// scans ahead of the counting where there is a second processor.
struct CaseReading {
  files::Env* env = nullptr;  // none: the real file system
  bool vectors = true;
  bool readAhead = true;
};
void SetCaseReading(CaseReading reading);
const CaseReading& CurrentCaseReading();

}  // namespace hostlib::cases
