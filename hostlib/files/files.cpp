#include "hostlib/files/files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace hostlib::files {

namespace fs = std::filesystem;

namespace {

FileIdentity IdentityOf(const struct stat& info) {
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

}  // namespace

std::string ReadWholeFile(const fs::path& path, FileIdentity* identity, Env& env) {
  const auto fail = [&path](int error) {
    throw FileError(path.string() + ": cannot be read: " + std::strerror(error));
  };
  FileDescriptor fd(env.Open(path, O_RDONLY));
  if (!fd) {
    fail(errno);
  }
  if (identity != nullptr) {
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0) {
      fail(errno);
    }
    *identity = IdentityOf(info);
  }
  std::string text;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = env.Read(fd.Get(), path, buffer.data(), buffer.size());
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

bool IdentifyFile(const fs::path& path, FileIdentity& identity) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return false;
  }
  identity = IdentityOf(info);
  return true;
}

bool IdentifyFile(int fd, FileIdentity& identity) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return false;
  identity = IdentityOf(info);
  return true;
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
  TemporaryFile(std::string path, Env& env) : path_(std::move(path)), env_(&env) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) {
      env_->Unlink(path_);
    }
  }
  const std::string& Path() const { return path_; }
  void Keep() { path_.clear(); }

 private:
  std::string path_;
  Env* env_;
};

// Writes all of `contents` at `at` (pwrite: the descriptor's position stays).
void WriteAll(Env& env, int fd, const fs::path& path, std::string_view contents,
              const SaveFailure& fail, const std::string& step, std::size_t at = 0) {
  while (!contents.empty()) {
    const ssize_t count =
        env.WriteAt(fd, path, contents.data(), contents.size(), static_cast<off_t>(at));
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail(step, errno);
    }
    contents.remove_prefix(static_cast<std::size_t>(count));
    at += static_cast<std::size_t>(count);
  }
}

struct Temporary {
  FileDescriptor file;
  TemporaryFile name;
};

// A name beside `target` that no file has, hidden and named after it and
// this process; `made` (true: taken) tries to take it.
std::string UnusedNameBeside(const fs::path& target,
                             const std::function<bool(const std::string&)>& made) {
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const std::string stem = (directory / ("." + target.filename().string() + ".tmp")).string() +
                           std::to_string(::getpid()) + ".";
  static unsigned counter = 0;
  std::string name;
  do {
    name = stem + std::to_string(++counter);
  } while (!made(name) && errno == EEXIST);
  return name;
}

// A new, empty file beside `target`, named after it.
Temporary CreateTemporaryBeside(Env& env, const fs::path& target, const SaveFailure& fail) {
  int fd = -1;
  const std::string temporaryPath = UnusedNameBeside(target, [&](const std::string& name) {
    fd = env.Open(name, O_WRONLY | O_CREAT | O_EXCL, 0666);
    return fd >= 0;
  });
  if (fd < 0) {
    const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
    fail("cannot create a temporary file in " + directory.string(), errno);
  }
  return Temporary{FileDescriptor(fd), TemporaryFile(temporaryPath, env)};
}

void SyncDirectoryOf(Env& env, const fs::path& target, const SaveFailure& fail) {
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
  if (env.SyncFolder(directory) != 0) {
    fail("cannot sync the directory " + directory.string(), errno);
  }
}

}  // namespace

namespace {

// Replace the file a symbolic link points at, not the link.
fs::path ResolvedTarget(const fs::path& path) {
  std::error_code ignored;
  if (fs::is_symlink(path, ignored)) {
    if (fs::path resolved = fs::canonical(path, ignored); !ignored) return resolved;
  }
  return path;
}

}  // namespace

AtomicFileWriter::AtomicFileWriter(const fs::path& path, Env& env)
    : path_(path), target_(ResolvedTarget(path)), env_(env) {
  const SaveFailure fail(path_);
  auto [file, temporary] = CreateTemporaryBeside(env_, target_, fail);
  file_ = std::move(file);
  temporary_ = temporary.Path();
  temporary.Keep();  // this writer removes it
  struct stat old {};
  if (::stat(target_.c_str(), &old) == 0 && ::fchmod(file_.Get(), old.st_mode & 07777) != 0) {
    Discard();
    fail("cannot write " + temporary_, errno);
  }
}

AtomicFileWriter::~AtomicFileWriter() { Discard(); }

void AtomicFileWriter::Discard() noexcept {
  file_ = FileDescriptor();
  if (!temporary_.empty()) env_.Unlink(std::exchange(temporary_, std::string()));
}

void AtomicFileWriter::Append(std::string_view data) { WriteAt(end_, data); }

void AtomicFileWriter::Reached(std::size_t end) {
  std::size_t seen = end_.load();
  while (seen < end && !end_.compare_exchange_weak(seen, end)) {
  }
}

// A large file starts on its way to the disk while the rest is written, so
// that Commit's sync waits only for the last of it. A hint: the sync still
// makes sure of every byte.
void AtomicFileWriter::StartWriteback(std::size_t at, std::size_t size) const {
  constexpr std::size_t kWorthStarting = std::size_t{1} << 20;
  if (size < kWorthStarting) return;
  ::sync_file_range(file_.Get(), static_cast<off_t>(at), static_cast<off_t>(size),
                    SYNC_FILE_RANGE_WRITE);
}

void AtomicFileWriter::WriteAt(std::size_t at, std::string_view data) {
  WriteAll(env_, file_.Get(), temporary_, data, SaveFailure(path_), "cannot write " + temporary_,
           at);
  StartWriteback(at, data.size());
  Reached(at + data.size());
}

namespace {

// copy_file_range cannot copy between these files (another file system, a
// kernel or file system without it): the bytes are read and written instead.
bool CopyUnsupported(int error) {
  return error == EXDEV || error == ENOSYS || error == EINVAL || error == EOPNOTSUPP;
}

}  // namespace

void AtomicFileWriter::CopyAt(std::size_t at, int source, const fs::path& sourcePath, off_t offset,
                              std::size_t size) {
  const SaveFailure fail(path_);
  const auto shorter = [&] {
    fail("cannot copy from " + sourcePath.string() + ": the file is shorter than when read",
         ENODATA);
  };
  // In steps, so that the disk gets the first while the next are copied.
  constexpr std::size_t kCopyStep = std::size_t{16} << 20;
  auto to = static_cast<off_t>(at);
  while (size > 0) {
    const off_t from = to;
    const ssize_t count =
        env_.CopyRange(source, &offset, file_.Get(), &to, temporary_, std::min(size, kCopyStep));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && CopyUnsupported(errno)) break;
    if (count < 0) fail("cannot write " + temporary_, errno);
    if (count == 0) shorter();
    size -= static_cast<std::size_t>(count);
    StartWriteback(static_cast<std::size_t>(from), static_cast<std::size_t>(count));
    Reached(static_cast<std::size_t>(to));
  }
  std::string buffer(std::min<std::size_t>(size, std::size_t{1} << 20), '\0');
  while (size > 0) {
    const ssize_t count =
        env_.ReadAt(source, sourcePath, buffer.data(), std::min(size, buffer.size()), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot read " + sourcePath.string(), errno);
    if (count == 0) shorter();
    WriteAt(static_cast<std::size_t>(to),
            std::string_view(buffer.data(), static_cast<std::size_t>(count)));
    offset += count;
    to += count;
    size -= static_cast<std::size_t>(count);
  }
}

void AtomicFileWriter::Commit() {
  const SaveFailure fail(path_);
  const std::string writing = "cannot write " + temporary_;
  if (env_.Sync(file_.Get(), temporary_) != 0) fail(writing, errno);
  if (file_.Close() != 0) fail(writing, errno);
  // The old file keeps a second name until the new one is known to last: a
  // folder that cannot be synced gets the old file back.
  std::optional<TemporaryFile> kept;
  if (::access(target_.c_str(), F_OK) == 0) {
    bool linked = false;
    std::string name = UnusedNameBeside(target_, [&](const std::string& candidate) {
      linked = env_.Link(target_, candidate) == 0;
      return linked;
    });
    if (!linked) fail("cannot keep the old file while replacing it", errno);
    kept.emplace(std::move(name), env_);
  }
  if (env_.Rename(temporary_, target_) != 0) fail("cannot replace the file", errno);
  temporary_.clear();
  const fs::path directory = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
  if (env_.SyncFolder(directory) != 0) {
    const int error = errno;
    if (kept && env_.Rename(kept->Path(), target_) == 0) kept->Keep();
    fail("cannot sync the directory " + directory.string(), error);
  }
}

// A reader sees the old file or the new one, never a mix: the text goes to a
// temporary file next to the target, reaches the disk, and is renamed over it.
void WriteFileAtomically(const fs::path& path, std::string_view contents, Env& env) {
  AtomicFileWriter writer(path, env);
  writer.Append(contents);
  writer.Commit();
}

void CreateFileAtomically(const fs::path& path, const std::function<void(const fs::path&)>& fill,
                          Env& env) {
  const SaveFailure fail(path);
  auto [reserved, temporary] = CreateTemporaryBeside(env, path, fail);
  reserved.Close();
  fill(temporary.Path());
  const std::string writing = "cannot write " + temporary.Path();
  FileDescriptor file(env.Open(temporary.Path(), O_RDONLY));
  if (!file || env.Sync(file.Get(), temporary.Path()) != 0) {
    fail(writing, errno);
  }
  // Unlike rename, link never replaces what is there.
  if (env.Link(temporary.Path(), path) != 0) {
    fail(errno == EEXIST ? "the file already exists" : "cannot create the file", errno);
  }
  SyncDirectoryOf(env, path, fail);
}

void CreateFileAtomically(const fs::path& path, std::string_view contents, Env& env) {
  const SaveFailure fail(path);
  CreateFileAtomically(
      path,
      [&](const fs::path& temporary) {
        FileDescriptor file(env.Open(temporary, O_WRONLY | O_TRUNC));
        const std::string writing = "cannot write " + temporary.string();
        if (!file) fail(writing, errno);
        WriteAll(env, file.Get(), temporary, contents, fail, writing);
        if (file.Close() != 0) fail(writing, errno);
      },
      env);
}

namespace {

// The writer's PID of a leftover named ".NAME.tmpPID.N" or
// ".NAME.tmpPID.N-journal"; 0 when the name is no such thing.
pid_t LeftoverWriter(std::string_view name, std::string_view prefix) {
  if (name.substr(0, prefix.size()) != prefix) return 0;
  name.remove_prefix(prefix.size());
  if (const std::string_view journal = "-journal";
      name.size() > journal.size() && name.substr(name.size() - journal.size()) == journal) {
    name.remove_suffix(journal.size());
  }
  const auto dot = name.find('.');
  if (dot == 0 || dot == std::string_view::npos || dot + 1 == name.size()) return 0;
  const auto digits = [](std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
  };
  if (!digits(name.substr(0, dot)) || !digits(name.substr(dot + 1)) || dot > 9) return 0;
  return static_cast<pid_t>(std::stol(std::string(name.substr(0, dot))));
}

}  // namespace

void RemoveLeftoversBeside(const fs::path& target, Env& env) {
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const std::string prefix = "." + target.filename().string() + ".tmp";
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const pid_t writer = LeftoverWriter(name, prefix);
    if (writer <= 0 || writer == ::getpid()) continue;
    if (::kill(writer, 0) != 0 && errno == ESRCH) env.Unlink(entry->path());
  }
}

FileLock::Outcome FileLock::Acquire(const fs::path& path, std::chrono::milliseconds timeout,
                                    Env& env) {
  // Never through a symbolic link: a link planted at the lock's name would
  // make the lock file wherever it points.
  FileDescriptor fd(env.Open(path, O_RDWR | O_CREAT | O_NOFOLLOW, 0666));
  if (!fd && (errno == EACCES || errno == EROFS || errno == EPERM)) {
    // A lock file that exists can be locked through a descriptor for reading.
    fd = FileDescriptor(env.Open(path, O_RDONLY | O_NOFOLLOW));
    if (!fd && errno != ELOOP) return Outcome::kNotPermitted;
  }
  if (!fd && errno == ELOOP) {
    throw FileError(path.string() +
                    ": the lock file is a symbolic link; remove it, it is not followed");
  }
  if (!fd) {
    throw FileError(path.string() + ": cannot open the lock file: " + std::strerror(errno));
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto pause = std::chrono::milliseconds(1);
  while (env.Lock(fd.Get(), path, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) {
      throw FileError(path.string() + ": cannot lock: " + std::strerror(errno));
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return Outcome::kTimedOut;
    std::this_thread::sleep_for(
        std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
  fd_ = std::move(fd);
  return Outcome::kHeld;
}

}  // namespace hostlib::files
