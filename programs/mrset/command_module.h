// The command modules, loaded at run time from beside the program. Each
// exports one entry per command word it carries out (a C function named as
// the word in upper case).
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace mrset_program {

class CommandModule {
 public:
  using Entry = void (*)();

  // Loads the module; throws std::runtime_error with the loader's reason.
  explicit CommandModule(const std::filesystem::path& path);
  CommandModule(const CommandModule&) = delete;
  CommandModule& operator=(const CommandModule&) = delete;
  ~CommandModule();

  // The module's own entry for a command word in upper case; null when the
  // module exports none (symbols of the libraries it uses do not count).
  Entry EntryFor(const std::string& word) const;

  // Where the MRSET module lies: MRSET_MODULE when set, else beside the
  // program, else where an install puts it (lib/mrset/ beside bin/).
  static std::filesystem::path DefaultPath();

 private:
  struct Unloader {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Unloader> handle_;
};

// Every module the program runs commands with: the MRSET module and each
// other module ("lib*.so", the host library aside) beside the program.
class CommandModules {
 public:
  // Throws std::runtime_error naming the module that cannot be loaded.
  static CommandModules LoadBesideProgram();

  // The entry of the first module that exports the command word; null when none does.
  CommandModule::Entry EntryFor(const std::string& word) const;

 private:
  std::vector<std::unique_ptr<CommandModule>> modules_;
};

}  // namespace mrset_program
