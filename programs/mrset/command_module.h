// The MRSET command module, loaded at run time.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace mrset_program {

class CommandModule {
 public:
  // Loads the module; throws std::runtime_error with the loader's reason.
  explicit CommandModule(const std::filesystem::path& path);
  CommandModule(const CommandModule&) = delete;
  CommandModule& operator=(const CommandModule&) = delete;
  ~CommandModule();

  // Runs the entry on the host's current command.
  void Run() const { entry_(); }

  // Where the module lies: MRSET_MODULE when set, else beside the program,
  // else where an install puts it (lib/mrset/ beside bin/).
  static std::filesystem::path DefaultPath();

 private:
  struct Unloader {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Unloader> handle_;
  void (*entry_)() = nullptr;
};

}  // namespace mrset_program
