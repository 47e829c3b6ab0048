#include "fuzz/fuzz_session.h"

#include <chrono>
#include <memory>
#include <sstream>

#include "hostlib/data/open_dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/runner.h"

namespace fuzzing {

SyntaxRun::SyntaxRun(const std::string& dataset)
    : modules_(mrset_program::CommandModules::LoadBesideProgram()),
      dataset_(hostlib::data::OpenDatasetStore(MRSET_FUZZ_SOURCE_DIR "/" + dataset)->Load()) {}

void SyntaxRun::Run(std::string_view text, int width,
                    const std::function<void(const hostlib::output::Document&)>& inspect) const {
  auto& session = hostlib::Session::Instance();
  session.Reset();
  session.OpenDataset(std::make_shared<hostlib::data::Dataset>(dataset_));
  const auto renderer = hostlib::output::MakeTextRenderer(width);
  std::ostringstream out;
  mrset_program::Runner runner(modules_, nullptr, false, std::chrono::milliseconds(0), *renderer,
                               out);
  runner.RunText(text, "fuzz.mrs");
  inspect(session.Output());
  session.Reset();
}

}  // namespace fuzzing
