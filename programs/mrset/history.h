// The prompt's history: one entry per command (the lines of a command
// joined into one), kept between runs in a file that only its owner can
// read.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace mrset_program {

// $MRSET_HISTORY when set and not empty, else ~/.mrset_history; empty when
// neither names a file (no HOME).
std::filesystem::path HistoryPath();

// The entry for a command typed as `lines`: its lines joined by one blank,
// each trimmed, blank lines left out. Joining is safe because a line of a
// command that goes on never ends inside a token or with the terminator.
std::string HistoryEntry(const std::vector<std::string>& lines);

class History {
 public:
  // Loads the entries of `path` (none when it does not exist or is empty).
  explicit History(std::filesystem::path path);

  // Adds an entry and writes the file (mode 0600). Returns false when the
  // file could not be written (the entry stays in memory).
  bool Add(std::string_view entry);

 private:
  std::filesystem::path path_;
};

}  // namespace mrset_program
