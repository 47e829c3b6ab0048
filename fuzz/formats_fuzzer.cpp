// A file of any format mrset-convert reads (told by its contents: codebook,
// database, data package, DDI Codebook, Triple-S, or a CSV export), converted
// into every format it writes. Whatever the file holds, a conversion either
// refuses it with a message or writes its output.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_files.h"
#include "hostlib/data/dataset.h"
#include "hostlib/files/files.h"
#include "hostlib/formats/convert.h"

namespace {

using hostlib::formats::OutputFormat;

struct Output {
  const char* name;
  OutputFormat format;
};

constexpr Output kOutputs[] = {
    {"out.json", OutputFormat::kCodebook},
    {"out.db", OutputFormat::kDatabase},
    {"out.xml", OutputFormat::kDdi},
    {"out.mrs", OutputFormat::kSyntax},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The first byte picks the input's name (some readers look at it), the rest is the file.
  if (size == 0) return 0;
  static constexpr const char* kInputNames[] = {"input.json", "datapackage.json", "input.xml",
                                                "input.sss", "input.csv"};
  const auto path = fuzzing::WriteInput(kInputNames[data[0] % 5], data + 1, size - 1);
  hostlib::formats::ConvertOptions options;
  options.setsFile = fuzzing::ScratchFolder() / "sets.mrs";
  for (const Output& output : kOutputs) {
    const auto out = fuzzing::ScratchFolder() / output.name;
    std::filesystem::remove(out);
    std::filesystem::remove(*options.setsFile);
    try {
      hostlib::formats::Convert(path, out, output.format, options);
    } catch (const hostlib::data::DatasetError&) {
    } catch (const hostlib::files::FileError&) {
    }
  }
  return 0;
}
