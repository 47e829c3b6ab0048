// An output stream into a file that is put in place whole at the end: what
// the stream takes goes to the file's temporary copy in blocks.
#pragma once

#include <array>
#include <streambuf>
#include <string>

#include "hostlib/files/files.h"

namespace mrset_program {

class OutputFileBuffer final : public std::streambuf {
 public:
  explicit OutputFileBuffer(hostlib::files::AtomicFileWriter& writer);
  // The first failure to write, empty when none.
  const std::string& Failure() const { return failure_; }

 protected:
  int overflow(int c) override;
  int sync() override;

 private:
  bool Flush();

  hostlib::files::AtomicFileWriter& writer_;
  std::array<char, 65536> buffer_{};
  std::string failure_;
};

}  // namespace mrset_program
