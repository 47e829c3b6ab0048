// The codebook file a load read, held open: the dictionary reads a field's
// bytes from it when first asked for them, and a save copies the bytes it
// keeps from it (in the kernel, where it can). Nothing of the file stays in
// memory but what was asked for.
//
// After a save has replaced the file, the one held is the file read, whose
// bytes are those the dictionary was read from. Someone who does not take
// the lock may still cut that file short: a read then fails with a message,
// where a mapping of the file would have stopped the program.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "hostlib/data/codebook/json_spans.h"
#include "hostlib/files/env.h"
#include "hostlib/files/files.h"

namespace hostlib::data {

// The spare capacity the fast parser reads past the end of a text.
inline constexpr std::size_t kReadPadding = 64;

class SourceFile {
 public:
  // Opens `path`. Throws DatasetError ("`path`: cannot be read: ...").
  SourceFile(std::filesystem::path path, files::Env& env);

  const std::filesystem::path& Path() const { return path_; }
  int Descriptor() const { return fd_.Get(); }
  // Of the file as opened.
  const files::FileIdentity& Identity() const { return identity_; }
  std::size_t Size() const { return static_cast<std::size_t>(identity_.size); }

  // Up to `size` bytes from `offset` into `buffer`: fewer only at the end of
  // the file. Throws DatasetError.
  std::size_t ReadInto(char* buffer, std::size_t size, std::size_t offset) const;
  // The bytes of `span`, with kReadPadding spare bytes of capacity. Throws
  // DatasetError, also when the file no longer holds them.
  std::string Read(json_spans::Span span) const;
  std::string ReadAll() const { return Read({0, Size()}); }

 private:
  [[noreturn]] void Fail(int error) const;

  std::filesystem::path path_;
  files::Env& env_;
  files::FileDescriptor fd_;
  files::FileIdentity identity_;
};

}  // namespace hostlib::data
