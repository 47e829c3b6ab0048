#include "hostlib/files/env.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "hostlib/files/files.h"

namespace hostlib::files {

namespace fs = std::filesystem;

namespace {

// Runs `call` unless Intercept refuses the operation.
template <typename Call>
auto Guarded(Env& env, FileOperation operation, const fs::path& path, Call call)
    -> decltype(call()) {
  if (const int error = env.Intercept(operation, path); error != 0) {
    errno = error;
    return -1;
  }
  return call();
}

}  // namespace

std::string_view OperationName(FileOperation operation) {
  switch (operation) {
    case FileOperation::kOpen:
      return "open";
    case FileOperation::kRead:
      return "read";
    case FileOperation::kWrite:
      return "write";
    case FileOperation::kSync:
      return "fsync";
    case FileOperation::kSyncFolder:
      return "fsync of the folder";
    case FileOperation::kRename:
      return "rename";
    case FileOperation::kLink:
      return "link";
    case FileOperation::kUnlink:
      return "unlink";
    case FileOperation::kTruncate:
      return "truncate";
    case FileOperation::kLock:
      return "lock";
  }
  return "?";
}

int Env::Intercept(FileOperation, const fs::path&) { return 0; }

int Env::Open(const fs::path& path, int flags, mode_t mode) {
  return Guarded(*this, FileOperation::kOpen, path,
                 [&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); });
}

ssize_t Env::Read(int fd, const fs::path& path, void* buffer, std::size_t size) {
  return Guarded(*this, FileOperation::kRead, path, [&] { return ::read(fd, buffer, size); });
}

ssize_t Env::ReadAt(int fd, const fs::path& path, void* buffer, std::size_t size, off_t offset) {
  return Guarded(*this, FileOperation::kRead, path,
                 [&] { return ::pread(fd, buffer, size, offset); });
}

ssize_t Env::WriteAt(int fd, const fs::path& path, const void* data, std::size_t size,
                     off_t offset) {
  return Guarded(*this, FileOperation::kWrite, path,
                 [&] { return ::pwrite(fd, data, size, offset); });
}

ssize_t Env::CopyRange(int from, off_t* offset, int to, off_t* toOffset, const fs::path& toPath,
                       std::size_t size) {
  return Guarded(*this, FileOperation::kWrite, toPath,
                 [&] { return ::copy_file_range(from, offset, to, toOffset, size, 0); });
}

int Env::Sync(int fd, const fs::path& path) {
  return Guarded(*this, FileOperation::kSync, path, [&] { return ::fsync(fd); });
}

int Env::SyncFolder(const fs::path& folder) {
  return Guarded(*this, FileOperation::kSyncFolder, folder, [&] {
    FileDescriptor dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir) return -1;
    return ::fsync(dir.Get()) != 0 && errno != EINVAL ? -1 : 0;
  });
}

int Env::Rename(const fs::path& from, const fs::path& to) {
  return Guarded(*this, FileOperation::kRename, to,
                 [&] { return ::rename(from.c_str(), to.c_str()); });
}

int Env::Link(const fs::path& from, const fs::path& to) {
  return Guarded(*this, FileOperation::kLink, to, [&] { return ::link(from.c_str(), to.c_str()); });
}

int Env::Unlink(const fs::path& path) {
  return Guarded(*this, FileOperation::kUnlink, path, [&] { return ::unlink(path.c_str()); });
}

int Env::Lock(int fd, const fs::path& path, int operation) {
  return Guarded(*this, FileOperation::kLock, path, [&] { return ::flock(fd, operation); });
}

Env& DefaultEnv() {
  static Env real;
  return real;
}

}  // namespace hostlib::files
