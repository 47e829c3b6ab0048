#include "programs/mrset/lock_timeout.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace mrset_program {

std::chrono::milliseconds LockTimeoutFromEnvironment() {
  constexpr std::chrono::milliseconds kDefault(10000);
  const char* text = std::getenv("MRSET_LOCK_TIMEOUT");
  if (text == nullptr || *text == '\0') return kDefault;
  char* end = nullptr;
  errno = 0;
  const double seconds = std::strtod(text, &end);
  // A day is far more than any command needs, and keeps the sum in range.
  if (errno != 0 || *end != '\0' || !std::isfinite(seconds) || seconds < 0 || seconds > 86400) {
    throw std::runtime_error(std::string("MRSET_LOCK_TIMEOUT must be a number of seconds from 0 "
                                         "to 86400, not \"") +
                             text + "\"");
  }
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

}  // namespace mrset_program
