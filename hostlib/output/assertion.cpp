// Assertions are items of the output document, like messages.
#include "host/runtime.h"

#include "hostlib/output/document.h"
#include "hostlib/output/output_target.h"

void VORN_AssertionFailed(const char* condition, const char* file, int line) {
  hostlib::output::OutputTarget& target = hostlib::output::CurrentOutputTarget();
  target.TargetDocument().Add(hostlib::output::Assertion{target.CommandNumber(),
                                                         condition != nullptr ? condition : "",
                                                         file != nullptr ? file : "", line});
}
