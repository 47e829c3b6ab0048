// mrset-convert's work: reads a dataset from any format it knows, told by
// the contents (codebook file, dataset database, data package, DDI Codebook,
// Triple-S, or else a CSV export whose dictionary is inferred), and writes it
// in the format asked for, all or nothing.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostlib::formats {

enum class OutputFormat { kCodebook, kDatabase, kDdi, kSyntax };

// By the name: .json, .db/.sqlite/.sqlite3, .xml, .mrs.
std::optional<OutputFormat> OutputFormatFromName(const std::filesystem::path& path);
// As --to names it: codebook, database, ddi, syntax.
std::optional<OutputFormat> OutputFormatFromWord(std::string_view word);

struct ConvertOptions {
  // For a CSV export: where the commands defining the sets found go.
  std::optional<std::filesystem::path> setsFile;
};

// Converts; returns what the user should know besides (files written next to
// the output, multi-select questions found). Throws DatasetError naming the
// file, the place and the fault; then no file was made.
std::vector<std::string> Convert(const std::filesystem::path& in, const std::filesystem::path& out,
                                 OutputFormat format, const ConvertOptions& options);

}  // namespace hostlib::formats
