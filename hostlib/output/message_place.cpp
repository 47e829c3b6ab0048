#include "hostlib/output/message_place.h"

#include <utility>

namespace hostlib::output {
namespace {

const MessagePlaceSource* installed = nullptr;

}  // namespace

MessagePlace CurrentMessagePlace() {
  return installed != nullptr ? installed->CurrentPlace() : MessagePlace{};
}

const MessagePlaceSource* InstallMessagePlaceSource(const MessagePlaceSource* source) {
  return std::exchange(installed, source);
}

}  // namespace hostlib::output
