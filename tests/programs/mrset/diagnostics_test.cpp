// Standard error as a person at a terminal sees it: the messages coloured
// there and plain under NO_COLOR, and not repeated while the document itself
// reaches the terminal.
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/files.h"

#include <gtest/gtest.h>

namespace {

using testsupport::TemporaryFolder;

struct Seen {
  std::string terminal;  // standard error, and standard output when it is the terminal
  std::string file;      // standard output when it is a file
};

// Runs mrset in `folder` with standard error on a new terminal.
Seen RunOnTerminal(const TemporaryFolder& folder, std::vector<std::string> args,
                   bool outputOnTerminal, bool noColour) {
  int master = -1;
  int slave = -1;
  EXPECT_EQ(::openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const std::string outputFile = (folder / "stdout.txt").string();
  args.insert(args.begin(), MRSET_PROGRAM);
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (::chdir(folder.Path().c_str()) != 0) ::_exit(126);
    noColour ? ::setenv("NO_COLOR", "1", 1) : ::unsetenv("NO_COLOR");
    const int out = outputOnTerminal ? slave : ::open(outputFile.c_str(), O_WRONLY | O_CREAT, 0644);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(slave, STDERR_FILENO);
    ::close(master);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(slave);
  Seen seen;
  char buffer[4096];
  // Reading ends (EIO) once the program has closed the terminal.
  for (ssize_t n; (n = ::read(master, buffer, sizeof buffer)) > 0;) seen.terminal.append(buffer, n);
  ::close(master);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!outputOnTerminal) seen.file = testsupport::ReadFile(outputFile);
  return seen;
}

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Diagnostics, ColouredOnATerminalUnlessNoColourOrTheDocumentIsThere) {
  TemporaryFolder folder("mrset-diagnostics");
  testsupport::WriteFile(folder / "run.mrs", "FREQ x.\n");
  const std::string error = "run.mrs:1:1:\x1b[0m \x1b[1;31merror:\x1b[0m Line 1, column 1";
  const std::string plain = "run.mrs:1:1: error: Line 1, column 1";
  struct Case {
    std::vector<std::string> args;
    bool outputOnTerminal;
    bool noColour;
    std::size_t coloured;  // diagnostics coloured on the terminal
    std::size_t plain;     // lines in plain text on the terminal
  };
  const Case cases[] = {
      {{"-o", "out.txt", "run.mrs"}, false, false, 1, 0},
      {{"-o", "out.txt", "run.mrs"}, false, true, 0, 1},
      {{"run.mrs"}, false, false, 1, 0},               // standard output a file
      {{"-f", "json", "run.mrs"}, true, false, 1, 0},  // the JSON document holds the text as well
      {{"run.mrs"}, true, false, 0, 1},                // the text document is on the terminal: once
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.front() + (c.outputOnTerminal ? " on the terminal" : " to a file") +
                 (c.noColour ? ", NO_COLOR" : ""));
    const Seen seen = RunOnTerminal(folder, c.args, c.outputOnTerminal, c.noColour);
    EXPECT_EQ(Count(seen.terminal, "\x1b[1m" + error), c.coloured) << seen.terminal;
    EXPECT_EQ(Count(seen.terminal, plain), c.plain) << seen.terminal;
    EXPECT_EQ(Count(seen.terminal, c.noColour ? "mrset: note: no dataset is open"
                                              : "mrset: \x1b[1;36mnote:\x1b[0m no dataset is open"),
              1u)
        << seen.terminal;
    EXPECT_EQ(seen.file.find("\x1b"), std::string::npos) << seen.file;
  }
}

}  // namespace
