#include "programs/mrset/history.h"

#include <editline/readline.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace mrset_program {
namespace {

constexpr int kMaxEntries = 1000;
constexpr std::string_view kBlanks = " \t\r";

// Makes the file, or narrows an existing one, to its owner before any entry
// is written into it.
bool MakePrivate(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd < 0) return false;
  const bool narrowed = ::fchmod(fd, S_IRUSR | S_IWUSR) == 0;
  ::close(fd);
  return narrowed;
}

}  // namespace

std::filesystem::path HistoryPath() {
  if (const char* path = std::getenv("MRSET_HISTORY"); path != nullptr && *path != '\0') {
    return path;
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return std::filesystem::path(home) / ".mrset_history";
  }
  return {};
}

std::string HistoryEntry(const std::vector<std::string>& lines) {
  std::string entry;
  for (std::string_view line : lines) {
    const auto first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) continue;
    line = line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
    if (!entry.empty()) entry += ' ';
    entry += line;
  }
  return entry;
}

History::History(std::filesystem::path path) : path_(std::move(path)) {
  using_history();
  stifle_history(kMaxEntries);
  if (!path_.empty()) read_history(path_.c_str());
}

bool History::Add(std::string_view entry) {
  if (entry.empty()) return true;
  const std::string text(entry);
  add_history(text.c_str());
  if (path_.empty()) return true;  // nowhere to keep it: memory only
  return MakePrivate(path_) && write_history(path_.c_str()) == 0;
}

}  // namespace mrset_program
