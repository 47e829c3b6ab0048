#include "programs/mrset/command_module.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace mrset_program {

void CommandModule::Unloader::operator()(void* handle) const {
  if (handle != nullptr) dlclose(handle);
}

CommandModule::CommandModule(const std::filesystem::path& path)
    : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!handle_) throw std::runtime_error(dlerror());
  entry_ = reinterpret_cast<void (*)()>(dlsym(handle_.get(), "MRSET"));
  if (entry_ == nullptr) {
    throw std::runtime_error(path.string() + ": the module does not export MRSET");
  }
}

CommandModule::~CommandModule() = default;

std::filesystem::path CommandModule::DefaultPath() {
  if (const char* path = std::getenv("MRSET_MODULE"); path != nullptr && *path != '\0') {
    return path;
  }
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path folder = error ? std::filesystem::path(".") : program.parent_path();
  const std::filesystem::path beside = folder / "libmrset.so";
#ifdef MRSET_MODULE_RELATIVE_DIR
  // Installed: the module lies in its own folder under the libraries.
  if (!std::filesystem::exists(beside, error)) {
    return (folder / MRSET_MODULE_RELATIVE_DIR / "libmrset.so").lexically_normal();
  }
#endif
  return beside;
}

}  // namespace mrset_program
