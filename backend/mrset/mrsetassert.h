// The module's internal invariants. A failed one is handed to the host's
// assertion handler, which records it and returns: the code after an
// assertion must go on sensibly.
#pragma once

#include "host/runtime.h"

#define MRSET_ASSERT(condition, text, file)                           \
  do {                                                                \
    if (!(condition)) VORN_AssertionFailed((text), (file), __LINE__); \
  } while (false)
