#include "programs/mrset/prompt.h"

#include <editline/readline.h>

#include <cstdlib>
#include <memory>

namespace mrset_program {
namespace {

constexpr const char* kPrompt = "mrset> ";
constexpr const char* kContinuation = "    > ";

struct FreeLine {
  void operator()(char* line) const { std::free(line); }
};

}  // namespace

void RunPrompt(Runner& runner) {
  hostlib::syntax::CommandSplitter splitter;
  for (;;) {
    std::unique_ptr<char, FreeLine> line(readline(splitter.InCommand() ? kContinuation : kPrompt));
    if (!line) break;
    if (line.get()[0] != '\0') add_history(line.get());
    if (auto command = splitter.AddLine(line.get())) runner.RunCommand(*command, "the prompt");
  }
  if (auto command = splitter.Finish()) runner.RunCommand(*command, "the prompt");
}

}  // namespace mrset_program
