// Where the active dataset's cases lie: a CSV file, its dialect and the
// texts that stand for a missing value.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "hostlib/cases/csv_scanner.h"

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

// The case source that readers open; none until the program sets one.
void SetActiveCaseSource(std::optional<CaseSource> source);
const std::optional<CaseSource>& ActiveCaseSource();

}  // namespace hostlib::cases
