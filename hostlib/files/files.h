// Reading and writing whole files. Writes are all or nothing: a reader sees
// the old contents or the new, never a mix, and a failed write leaves the
// old file as it was.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "hostlib/files/env.h"

namespace hostlib::files {

// Names the file, the step and the system's reason.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Owns an open file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      if (fd_ >= 0) ::close(fd_);
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
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

// What tells one state of a file from another: every all-or-nothing write
// makes a new inode, and an edit in place changes the size or the time.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec;
  }
};

// `identity`, when given, receives the identity of the very file read.
std::string ReadWholeFile(const std::filesystem::path& path, FileIdentity* identity = nullptr,
                          Env& env = DefaultEnv());

// The identity of the file at `path` now; false when it cannot be had.
bool IdentifyFile(const std::filesystem::path& path, FileIdentity& identity);
// The same of an open file.
bool IdentifyFile(int fd, FileIdentity& identity);

// A file written in pieces and put in place whole: the pieces go to a
// temporary file beside `path` (beside the file a symbolic link points at);
// Commit syncs it and renames it over the target. Until then the target is as
// it was; a writer destroyed without Commit removes its pieces. Every failure
// throws FileError naming `path`, the step and the reason.
class AtomicFileWriter {
 public:
  explicit AtomicFileWriter(const std::filesystem::path& path, Env& env = DefaultEnv());
  AtomicFileWriter(const AtomicFileWriter&) = delete;
  AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;
  ~AtomicFileWriter();

  // Pieces go one after another, from the start of the file...
  void Append(std::string_view data);
  // ... or each at a place of its own, `at` bytes into the file: pieces made
  // at once, on threads of their own, for parts that do not overlap. Append
  // goes on after the last of these. CopyAt copies `size` bytes of the open
  // file `source` from `offset` on, by the kernel where the file system can
  // (copy_file_range), else read and written; a source shorter than that
  // fails the write.
  void WriteAt(std::size_t at, std::string_view data);
  void CopyAt(std::size_t at, int source, const std::filesystem::path& sourcePath, off_t offset,
              std::size_t size);
  void Commit();

 private:
  void Discard() noexcept;
  void Reached(std::size_t end);
  void StartWriteback(std::size_t at, std::size_t size) const;

  std::atomic<std::size_t> end_{0};  // of the last piece written

  std::filesystem::path path_;
  std::filesystem::path target_;
  Env& env_;
  FileDescriptor file_;
  std::string temporary_;  // empty once renamed or removed
};

// Writes `contents` to a temporary file beside `path`, syncs it and renames
// it over `path` (through a symbolic link, onto the file it points at).
void WriteFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         Env& env = DefaultEnv());

// Makes a new file at `path` all or nothing: `fill` writes the temporary
// file whose name it is given; once it has reached the disk, it is linked
// in as `path`. Fails, leaving `path` as it was, when `path` exists.
void CreateFileAtomically(const std::filesystem::path& path,
                          const std::function<void(const std::filesystem::path&)>& fill,
                          Env& env = DefaultEnv());
void CreateFileAtomically(const std::filesystem::path& path, std::string_view contents,
                          Env& env = DefaultEnv());

// Removes what writers that died left beside `target`: the temporary files
// the writes above make (".NAME.tmpPID.N", and the journal SQLite keeps
// beside one), only those whose writer (PID) is gone. Call it while holding
// the target's lock. Failures are ignored: a leftover stays for next time.
void RemoveLeftoversBeside(const std::filesystem::path& target, Env& env = DefaultEnv());

// An exclusive lock (flock) on a lock file, which is made when missing and
// never removed: removing it would let two processes lock two files of one
// name. The kernel drops the lock when its holder dies.
class FileLock {
 public:
  enum class Outcome { kHeld, kTimedOut, kNotPermitted };

  // Waits up to `timeout` for the lock. kNotPermitted: the lock file cannot
  // be made for lack of rights (then nothing is held). Throws FileError for
  // any other failure.
  Outcome Acquire(const std::filesystem::path& path, std::chrono::milliseconds timeout,
                  Env& env = DefaultEnv());
  void Release() { fd_ = FileDescriptor(); }
  bool Held() const { return static_cast<bool>(fd_); }

 private:
  FileDescriptor fd_;
};

}  // namespace hostlib::files
