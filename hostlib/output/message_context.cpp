#include "hostlib/output/message_context.h"

#include <utility>

namespace hostlib::output {
namespace {

MessageContext* installed = nullptr;

}  // namespace

MessagePlace CurrentMessagePlace() {
  return installed != nullptr ? installed->CurrentPlace() : MessagePlace{};
}

std::vector<std::string> NotesAfter(const Message& message) {
  return installed != nullptr ? installed->NotesAfter(message) : std::vector<std::string>{};
}

MessageContext* InstallMessageContext(MessageContext* source) {
  return std::exchange(installed, source);
}

}  // namespace hostlib::output
