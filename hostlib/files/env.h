// The file system as the host sees it. Every read, write, sync, rename,
// link, unlink and lock that the dataset stores and the program do goes
// through an Env, so that a test can make any one of them fail.
//
// Each operation behaves as the POSIX call it is named after: it returns
// what that call returns and sets errno on failure. Before doing anything it
// asks Intercept, which the real file system answers with 0 ("go on"); a
// test double answers with an errno for the call it wants to fail. Writes
// that a library makes with its own descriptors (SQLite's) ask Intercept too,
// through the hooks the library offers.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace hostlib::files {

enum class FileOperation {
  kOpen,
  kRead,
  kWrite,
  kSync,        // of a file's contents
  kSyncFolder,  // of a folder, so that a rename or link in it lasts
  kRename,
  kLink,
  kUnlink,
  kTruncate,
  kLock,
};

// The operation's name as messages and tests show it ("write", "fsync").
std::string_view OperationName(FileOperation operation);

class Env {
 public:
  Env() = default;
  Env(const Env&) = delete;
  Env& operator=(const Env&) = delete;
  virtual ~Env() = default;

  // 0 lets the operation on `path` run; an errno makes it fail with that
  // error, doing nothing.
  virtual int Intercept(FileOperation operation, const std::filesystem::path& path);

  int Open(const std::filesystem::path& path, int flags, mode_t mode = 0);
  ssize_t Read(int fd, const std::filesystem::path& path, void* buffer, std::size_t size);
  ssize_t ReadAt(int fd, const std::filesystem::path& path, void* buffer, std::size_t size,
                 off_t offset);  // pread
  ssize_t WriteAt(int fd, const std::filesystem::path& path, const void* data, std::size_t size,
                  off_t offset);  // pwrite
  // copy_file_range from `from` at *offset to `to` at *toOffset, asked as a
  // write of `to`.
  ssize_t CopyRange(int from, off_t* offset, int to, off_t* toOffset,
                    const std::filesystem::path& toPath, std::size_t size);
  int Sync(int fd, const std::filesystem::path& path);
  // Opens the folder and syncs it; a file system that cannot sync a folder
  // (EINVAL) counts as success.
  int SyncFolder(const std::filesystem::path& folder);
  int Rename(const std::filesystem::path& from, const std::filesystem::path& to);
  int Link(const std::filesystem::path& from, const std::filesystem::path& to);
  int Unlink(const std::filesystem::path& path);
  int Lock(int fd, const std::filesystem::path& path, int operation);  // flock
};

// The real file system, which every caller uses unless it is handed another.
Env& DefaultEnv();

}  // namespace hostlib::files
