// How long a command waits for the dataset's lock, as the user set it.
#pragma once

#include <chrono>

namespace mrset_program {

// MRSET_LOCK_TIMEOUT (seconds, a number from 0 to 86400) when set, else 10
// seconds. Throws std::runtime_error, saying what is allowed, for any other
// value.
std::chrono::milliseconds LockTimeoutFromEnvironment();

}  // namespace mrset_program
