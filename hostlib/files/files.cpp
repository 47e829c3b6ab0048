#include "hostlib/files/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace hostlib::files {

namespace fs = std::filesystem;

std::string ReadWholeFile(const fs::path& path) {
  const auto fail = [&path](int error) {
    throw FileError(path.string() + ": cannot be read: " + std::strerror(error));
  };
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    fail(errno);
  }
  std::string text;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = ::read(fd.Get(), buffer.data(), buffer.size());
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail(errno);
    }
    if (count == 0) {
      return text;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

namespace {

class SaveFailure {
 public:
  explicit SaveFailure(const fs::path& path) : file_(path.string()) {}
  [[noreturn]] void operator()(const std::string& step, int error) const {
    throw FileError(file_ + ": not saved: " + step + ": " + std::strerror(error));
  }

 private:
  std::string file_;
};

// Removes a temporary file unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) {
      ::unlink(path_.c_str());
    }
  }
  const std::string& Path() const { return path_; }
  void Keep() { path_.clear(); }

 private:
  std::string path_;
};

void WriteAll(int fd, std::string_view contents, const SaveFailure& fail, const std::string& step) {
  while (!contents.empty()) {
    const ssize_t count = ::write(fd, contents.data(), contents.size());
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail(step, errno);
    }
    contents.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

// A reader sees the old file or the new one, never a mix: the text goes to a
// temporary file next to the target, reaches the disk, and is renamed over it.
void WriteFileAtomically(const fs::path& path, std::string_view contents) {
  const SaveFailure fail(path);
  fs::path target = path;
  std::error_code ignored;
  if (fs::is_symlink(path, ignored)) {
    // Replace the file the link points at, not the link.
    if (fs::path resolved = fs::canonical(path, ignored); !ignored) {
      target = std::move(resolved);
    }
  }
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");

  const std::string stem = (directory / ("." + target.filename().string() + ".tmp")).string();
  static unsigned counter = 0;
  int fd = -1;
  std::string temporaryPath;
  do {
    temporaryPath = stem + std::to_string(::getpid()) + "." + std::to_string(++counter);
    fd = ::open(temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EEXIST);
  if (fd < 0) {
    fail("cannot create a temporary file in " + directory.string(), errno);
  }
  FileDescriptor file(fd);
  TemporaryFile temporary(temporaryPath);

  const std::string writing = "cannot write " + temporaryPath;
  struct stat old {};
  if (::stat(target.c_str(), &old) == 0 && ::fchmod(file.Get(), old.st_mode & 07777) != 0) {
    fail(writing, errno);
  }
  WriteAll(file.Get(), contents, fail, writing);
  if (::fsync(file.Get()) != 0) {
    fail(writing, errno);
  }
  if (file.Close() != 0) {
    fail(writing, errno);
  }
  if (::rename(temporary.Path().c_str(), target.c_str()) != 0) {
    fail("cannot replace the file", errno);
  }
  temporary.Keep();

  FileDescriptor dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Some file systems cannot sync a directory; the rename has happened anyway.
  if (dir && ::fsync(dir.Get()) != 0 && errno != EINVAL) {
    fail("cannot sync the directory " + directory.string(), errno);
  }
}

}  // namespace hostlib::files
