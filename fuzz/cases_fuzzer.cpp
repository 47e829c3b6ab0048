// A case file from someone else, counted by MRFREQ against a codebook with
// sets of both kinds, weights and crosstabs: read on one thread, then by
// several threads over tiny byte ranges. Whatever the file holds, both
// readings give the same document, tables and messages alike.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "fuzz/fuzz_files.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/runner.h"

namespace {

constexpr std::string_view kCommands =
    "MRFREQ /TABLES=$seen $seenv $brands.\n"
    "MRFREQ /TABLES=$seen $brands BY grp /WEIGHT=w.\n"
    "MRFREQ /TABLES=$seen BY $brands /CELLS=ALL /DUPLICATES=INCLUDE.\n";

struct Fixture {
  mrset_program::CommandModules modules = mrset_program::CommandModules::LoadBesideProgram();
  hostlib::data::Dataset dataset =
      hostlib::data::OpenDatasetStore(MRSET_FUZZ_SOURCE_DIR
                                      "/tests/programs/mrset/data/mrfreq.json")
          ->Load();
};

const Fixture& TheFixture() {
  static const Fixture fixture;
  return fixture;
}

// The JSON document of the commands over the case file, read as `reading` says.
std::string Counted(const hostlib::cases::CaseReading& reading) {
  const Fixture& fixture = TheFixture();
  auto& session = hostlib::Session::Instance();
  session.Reset();
  session.OpenDataset(std::make_shared<hostlib::data::Dataset>(fixture.dataset));
  hostlib::cases::SetCaseReading(reading);
  const auto text = hostlib::output::MakeTextRenderer(80);
  std::ostringstream out;
  mrset_program::Runner runner(fixture.modules, nullptr, false, std::chrono::milliseconds(0), *text,
                               out);
  runner.RunText(kCommands, "fuzz.mrs");
  std::string document = hostlib::output::Render(hostlib::output::Format::kJson, session.Output());
  session.Reset();
  return document;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TheFixture();
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
