// A case file from someone else, counted by MRFREQ against a codebook with
// sets of both kinds, weights and crosstabs: read on one thread, then by
// several threads over tiny byte ranges. Whatever the file holds, both
// readings give the same document, tables and messages alike.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/fuzz_files.h"
#include "fuzz/fuzz_session.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/output/render.h"

namespace {

constexpr std::string_view kCommands =
    "MRFREQ /TABLES=$seen $seenv $brands.\n"
    "MRFREQ /TABLES=$seen $brands BY grp /WEIGHT=w.\n"
    "MRFREQ /TABLES=$seen BY $brands /CELLS=ALL /DUPLICATES=INCLUDE.\n";

const fuzzing::SyntaxRun& TheRun() {
  static const fuzzing::SyntaxRun run("tests/programs/mrset/data/mrfreq.json");
  return run;
}

// The JSON document of the commands over the case file, read as `reading` says.
std::string Counted(const hostlib::cases::CaseReading& reading) {
  hostlib::cases::SetCaseReading(reading);
  std::string json;
  TheRun().Run(kCommands, 80, [&](const hostlib::output::Document& document) {
    json = hostlib::output::Render(hostlib::output::Format::kJson, document);
  });
  return json;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TheRun();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto path = fuzzing::WriteInput("cases.csv", data, size);
  hostlib::cases::SetActiveCaseSource(hostlib::cases::CaseSource{path, {}, {""}});
  hostlib::cases::CaseReading oneThread;
  oneThread.readAhead = false;
  hostlib::cases::CaseReading threads;
  threads.workers = 3;
  threads.rangeBytes = 7;
  const std::string alone = Counted(oneThread);
  const std::string together = Counted(threads);
  if (alone != together) {
    std::fprintf(stderr, "one thread:\n%s\nthreads:\n%s\n", alone.c_str(), together.c_str());
    std::abort();
  }
  hostlib::cases::SetCaseReading({});
  return 0;
}
