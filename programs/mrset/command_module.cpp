#include "programs/mrset/command_module.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace mrset_program {
namespace {

constexpr const char* kHostLibraries = "libvornhost";  // libvornhost.so, libvornhost_AREA.so

bool IsCommandWord(const std::string& word) {
  return !word.empty() &&
         std::all_of(word.begin(), word.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

std::filesystem::path ProgramFolder() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path(".") : program.parent_path();
}

}  // namespace

void CommandModule::Unloader::operator()(void* handle) const {
  if (handle != nullptr) dlclose(handle);
}

CommandModule::CommandModule(const std::filesystem::path& path)
    : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!handle_) throw std::runtime_error(dlerror());
}

CommandModule::~CommandModule() = default;

CommandModule::Entry CommandModule::EntryFor(const std::string& word) const {
  if (!IsCommandWord(word)) return nullptr;
  void* symbol = dlsym(handle_.get(), word.c_str());
  if (symbol == nullptr) return nullptr;
  // dlsym also searches the module's dependencies: keep only its own symbols.
  Dl_info info{};
  link_map* self = nullptr;
  if (dladdr(symbol, &info) == 0 || dlinfo(handle_.get(), RTLD_DI_LINKMAP, &self) != 0 ||
      self == nullptr || info.dli_fname == nullptr ||
      std::strcmp(info.dli_fname, self->l_name) != 0) {
    return nullptr;
  }
  return reinterpret_cast<Entry>(symbol);
}

std::filesystem::path CommandModule::DefaultPath() {
  if (const char* path = std::getenv("MRSET_MODULE"); path != nullptr && *path != '\0') {
    return path;
  }
  const std::filesystem::path beside = ProgramFolder() / "libmrset.so";
#ifdef MRSET_MODULE_RELATIVE_DIR
  // Installed: the modules lie in their own folder under the libraries.
  std::error_code error;
  if (!std::filesystem::exists(beside, error)) {
    return (ProgramFolder() / MRSET_MODULE_RELATIVE_DIR / "libmrset.so").lexically_normal();
  }
#endif
  return beside;
}

CommandModules CommandModules::LoadBesideProgram() {
  CommandModules loaded;
  const auto load = [&](const std::filesystem::path& path) {
    try {
      loaded.modules_.push_back(std::make_unique<CommandModule>(path));
    } catch (const std::exception& failure) {
      throw std::runtime_error("cannot load the command module " + path.string() + ": " +
                               failure.what());
    }
  };
  const std::filesystem::path mrset = CommandModule::DefaultPath();
  load(mrset);
  std::vector<std::filesystem::path> others;
  std::error_code error;
  // The other modules lie where the MRSET module does.
  const std::filesystem::path folder =
      std::getenv("MRSET_MODULE") != nullptr ? ProgramFolder() : mrset.parent_path();
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.size() > 6 && name.rfind("lib", 0) == 0 && name.ends_with(".so") &&
        name.rfind(kHostLibraries, 0) != 0 && name != "libmrset.so" && entry.path() != mrset) {
      others.push_back(entry.path());
    }
  }
  std::sort(others.begin(), others.end());
  for (const auto& path : others) load(path);
  return loaded;
}

CommandModule::Entry CommandModules::EntryFor(const std::string& word) const {
  for (const auto& module : modules_) {
    if (const auto entry = module->EntryFor(word)) return entry;
  }
  return nullptr;
}

}  // namespace mrset_program
