// The interactive prompt: reads commands line by line from a terminal, with
// line editing and history, and runs each as soon as it is complete.
#pragma once

#include "programs/mrset/runner.h"

namespace mrset_program {

void RunPrompt(Runner& runner);

}  // namespace mrset_program
