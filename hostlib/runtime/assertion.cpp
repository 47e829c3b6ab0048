#include "host/runtime.h"

#include "hostlib/output/document.h"
#include "hostlib/session/session.h"

void VORN_AssertionFailed(const char* condition, const char* file, int line) {
  hostlib::Session& session = hostlib::Session::Instance();
  session.Output().Add(hostlib::output::Assertion{session.CommandNumber(),
                                                  condition != nullptr ? condition : "",
                                                  file != nullptr ? file : "", line});
}
