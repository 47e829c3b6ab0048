// The interactive prompt: reads commands line by line and runs each as soon
// as it is complete. On a terminal: line editing, history kept between runs
// (one entry per command), tab completion, Ctrl-C drops the command being
// typed, Ctrl-D ends. Elsewhere (--interactive on a pipe) plain lines.
#pragma once

#include "programs/mrset/shell.h"

namespace mrset_program {

// `terminal`: stdin is a terminal, so the line editor is used.
void RunPrompt(Shell& shell, bool terminal);

}  // namespace mrset_program
