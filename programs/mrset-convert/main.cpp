// mrset-convert: copies a dataset into a new file of the format its name
// asks for, between codebook files (JSON) and dataset databases (SQLite).
//
// Exit status: 0 converted; 1 the input was refused or the output could not
// be made (it is then not there); 2 bad usage.
#include <iostream>
#include <string>
#include <string_view>

#include "hostlib/data/conversion.h"
#include "hostlib/data/dataset.h"

namespace {

constexpr int kExitConverted = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr std::string_view kUsage =
    "usage: mrset-convert IN OUT\n"
    "       mrset-convert --help | --version\n"
    "  IN   a codebook file (JSON) or a dataset database (SQLite), told apart by content\n"
    "  OUT  a new file: OUT.json a codebook file; OUT.db, .sqlite or .sqlite3 a database\n"
    "Everything IN holds is kept. OUT must not exist.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitConverted;
  }
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << "mrset-convert 0.1.0\n";
    return kExitConverted;
  }
  if (argc != 3) {
    std::cerr << kUsage;
    return kExitUsage;
  }
  const std::string in = argv[1];
  const std::string out = argv[2];
  const auto format = hostlib::data::FormatFromName(out);
  if (!format) {
    std::cerr << "mrset-convert: " << out
              << ": cannot tell the format from the name; end it in .json, .db, .sqlite or "
                 ".sqlite3\n";
    return kExitUsage;
  }
  try {
    hostlib::data::ConvertDataset(in, out, *format);
  } catch (const std::exception& failure) {
    std::cerr << "mrset-convert: " << failure.what() << "\n";
    return kExitFailed;
  }
  return kExitConverted;
}
