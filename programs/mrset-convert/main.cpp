// mrset-convert: copies a dataset into a new file of the format its name (or
// --to) asks for. The input's format is told by its contents: a codebook
// file, a dataset database, a data package, DDI Codebook or Triple-S XML, or
// else a CSV export, whose dictionary is inferred.
//
// Exit status: 0 converted; 1 the input was refused or the output could not
// be made (it is then not there); 2 bad usage.
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hostlib/data/dataset.h"
#include "hostlib/formats/convert.h"

namespace {

constexpr int kExitConverted = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr std::string_view kUsage =
    "usage: mrset-convert [--to FORMAT] [--sets FILE.mrs] IN OUT\n"
    "       mrset-convert --help | --version\n"
    "  IN   a codebook file (JSON), a dataset database (SQLite), a data package\n"
    "       (datapackage.json[#RESOURCE]), DDI Codebook 2.5 XML, Triple-S XML, or a\n"
    "       CSV export (its dictionary is inferred); told apart by content\n"
    "  OUT  a new file: .json a codebook file; .db, .sqlite or .sqlite3 a database;\n"
    "       .xml DDI Codebook; .mrs the MRSET commands that define the sets\n"
    "  --to FORMAT      codebook, database, ddi or syntax, whatever OUT is called\n"
    "  --sets FILE.mrs  for a CSV export: the commands that define the multi-select\n"
    "                   questions found, for review (they are not defined in OUT)\n"
    "Everything IN holds is kept. OUT must not exist.\n";

int Usage(const std::string& fault) {
  if (!fault.empty()) std::cerr << "mrset-convert: " << fault << "\n";
  std::cerr << kUsage;
  return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> positional;
  std::optional<std::string> to;
  hostlib::formats::ConvertOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--help" || argument == "-h") {
      std::cout << kUsage;
      return kExitConverted;
    }
    if (argument == "--version") {
      std::cout << "mrset-convert 0.1.0\n";
      return kExitConverted;
    }
    if (argument == "--to" || argument == "--sets") {
      if (i + 1 == argc) return Usage(std::string(argument) + " needs a value");
      const std::string value = argv[++i];
      if (argument == "--to") {
        to = value;
      } else {
        options.setsFile = value;
      }
    } else if (argument.size() > 1 && argument.front() == '-') {
      return Usage("unknown option " + std::string(argument));
    } else {
      positional.emplace_back(argument);
    }
  }
  if (positional.size() != 2) return Usage("");
  const std::string& in = positional[0];
  const std::string& out = positional[1];
  const auto format = to ? hostlib::formats::OutputFormatFromWord(*to)
                         : hostlib::formats::OutputFormatFromName(out);
  if (!format) {
    if (to) return Usage("unknown format " + *to + "; codebook, database, ddi or syntax");
    std::cerr << "mrset-convert: " << out
              << ": cannot tell the format from the name; end it in .json, .db, .sqlite, "
                 ".sqlite3, .xml or .mrs, or give --to\n";
    return kExitUsage;
  }
  try {
    for (const std::string& line : hostlib::formats::Convert(in, out, *format, options)) {
      std::cout << "mrset-convert: " << line << "\n";
    }
  } catch (const std::exception& failure) {
    std::cerr << "mrset-convert: " << failure.what() << "\n";
    return kExitFailed;
  }
  return kExitConverted;
}
