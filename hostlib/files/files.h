// Reading and writing whole files. Writes are all or nothing: a reader sees
// the old contents or the new, never a mix, and a failed write leaves the
// old file as it was.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace hostlib::files {

// Names the file, the step and the system's reason.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Owns an open file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  // Closes now, so that the caller sees the error of a delayed write.
  int Close() { return ::close(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

std::string ReadWholeFile(const std::filesystem::path& path);

// Writes `contents` to a temporary file beside `path`, syncs it and renames
// it over `path` (through a symbolic link, onto the file it points at).
void WriteFileAtomically(const std::filesystem::path& path, std::string_view contents);

}  // namespace hostlib::files
