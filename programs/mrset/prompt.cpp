#include "programs/mrset/prompt.h"

#include <editline/readline.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "programs/mrset/completion.h"
#include "programs/mrset/history.h"

namespace mrset_program {
namespace {

constexpr const char* kPrompt = "mrset> ";
constexpr const char* kContinuation = "    > ";
constexpr const char* kHint =
    "mrset 0.1.0: enter .help for help; a command ends with a period at the end of a line.\n";

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int) { interrupted = 1; }

// Ctrl-C interrupts the read (no SA_RESTART) instead of ending the program.
class InterruptCatcher {
 public:
  InterruptCatcher() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &previous_);
  }
  InterruptCatcher(const InterruptCatcher&) = delete;
  InterruptCatcher& operator=(const InterruptCatcher&) = delete;
  ~InterruptCatcher() { ::sigaction(SIGINT, &previous_, nullptr); }

 private:
  struct sigaction previous_ {};
};

struct FreeLine {
  void operator()(char* line) const { std::free(line); }
};

std::optional<std::string> ReadEditedLine(const char* prompt) {
  const std::unique_ptr<char, FreeLine> line(readline(prompt));
  if (!line) return std::nullopt;
  return std::string(line.get());
}

std::optional<std::string> ReadPlainLine(const char* prompt) {
  std::cout << prompt << std::flush;
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}

}  // namespace

void RunPrompt(Shell& shell, bool terminal) {
  std::cout << kHint << std::flush;
  std::optional<History> history;
  if (terminal) {
    history.emplace(HistoryPath());
    InstallCompletion();
  }
  const InterruptCatcher catcher;
  std::vector<std::string> lines;
  while (!shell.Ended()) {
    const char* prompt = shell.InCommand() ? kContinuation : kPrompt;
    interrupted = 0;
    std::optional<std::string> line = terminal ? ReadEditedLine(prompt) : ReadPlainLine(prompt);
    if (interrupted != 0) {
      shell.DropCommand();
      lines.clear();
      if (!terminal) std::cin.clear();
      std::cout << "\n" << std::flush;
      continue;
    }
    if (!line) {
      std::cout << "\n" << std::flush;
      break;
    }
    lines.push_back(*line);
    shell.FeedLine(*line);
    if (!shell.InCommand()) {
      if (history && !history->Add(HistoryEntry(lines))) {
        std::cerr << "mrset: cannot write the history file " << HistoryPath().string() << "\n";
        history.reset();
      }
      lines.clear();
    }
  }
  // Lines that were not typed are not echoed: end the last prompt's line.
  if (!terminal && shell.Ended()) std::cout << "\n" << std::flush;
}

}  // namespace mrset_program
