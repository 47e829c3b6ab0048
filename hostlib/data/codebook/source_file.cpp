#include "hostlib/data/codebook/source_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "hostlib/data/dataset.h"

namespace hostlib::data {

SourceFile::SourceFile(std::filesystem::path path, files::Env& env)
    : path_(std::move(path)), env_(env), fd_(env.Open(path_, O_RDONLY)) {
  if (!fd_ || !files::IdentifyFile(fd_.Get(), identity_)) Fail(errno);
}

void SourceFile::Fail(int error) const {
  throw DatasetError(path_.string() + ": cannot be read: " + std::strerror(error));
}

std::size_t SourceFile::ReadInto(char* buffer, std::size_t size, std::size_t offset) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = env_.ReadAt(fd_.Get(), path_, buffer + done, size - done,
                                      static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Fail(errno);
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::string SourceFile::Read(json_spans::Span span) const {
  const std::size_t size = span.end - span.begin;
  std::string bytes;
  bytes.reserve(size + kReadPadding);
  bytes.resize(size);
  if (ReadInto(bytes.data(), size, span.begin) != size) {
    throw DatasetError(path_.string() + ": cannot be read: the file was cut short while open");
  }
  return bytes;
}

}  // namespace hostlib::data
