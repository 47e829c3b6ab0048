// Syntax as a user may type it, run by the modules against the example
// dataset, the output rendered in every format. Nothing is saved.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>

#include "hostlib/data/open_dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/runner.h"

namespace {

struct Fixture {
  mrset_program::CommandModules modules = mrset_program::CommandModules::LoadBesideProgram();
  hostlib::data::Dataset dataset =
      hostlib::data::OpenDatasetStore(MRSET_FUZZ_SOURCE_DIR "/examples/survey.json")->Load();
};

const Fixture& TheFixture() {
  static const Fixture fixture;
  return fixture;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TheFixture();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fixture& fixture = TheFixture();
  auto& session = hostlib::Session::Instance();
  session.Reset();
  session.OpenDataset(std::make_shared<hostlib::data::Dataset>(fixture.dataset));

  // Narrow, so that the tables' labels are wrapped.
  const auto text = hostlib::output::MakeTextRenderer(24);
  std::ostringstream out;
  mrset_program::Runner runner(fixture.modules, nullptr, false, std::chrono::milliseconds(0), *text,
                               out);
  runner.RunText(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.mrs");
  for (const auto format : {hostlib::output::Format::kJson, hostlib::output::Format::kHtml}) {
    hostlib::output::Render(format, session.Output());
  }
  session.Reset();
  return 0;
}
