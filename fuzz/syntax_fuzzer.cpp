// Syntax as a user may type it, run by the modules against the example
// dataset, the output rendered in every format. Nothing is saved.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/fuzz_session.h"
#include "hostlib/output/render.h"

namespace {

const fuzzing::SyntaxRun& TheRun() {
  static const fuzzing::SyntaxRun run("examples/survey.json");
  return run;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TheRun();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Narrow, so that the tables' labels are wrapped.
  TheRun().Run(
      std::string_view(reinterpret_cast<const char*>(data), size), 24,
      [](const hostlib::output::Document& document) {
        for (const auto format : {hostlib::output::Format::kJson, hostlib::output::Format::kHtml}) {
          hostlib::output::Render(format, document);
        }
      });
  return 0;
}
