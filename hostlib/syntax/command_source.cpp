#include "hostlib/syntax/command_source.h"

#include <utility>

namespace hostlib::syntax {
namespace {

const CommandSource* installed = nullptr;

}  // namespace

const CommandSource* CurrentCommandSource() { return installed; }

const CommandSource* InstallCommandSource(const CommandSource* source) {
  return std::exchange(installed, source);
}

}  // namespace hostlib::syntax
