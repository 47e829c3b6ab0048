#include "programs/mrset/output_file.h"

#include <exception>
#include <string_view>

namespace mrset_program {

OutputFileBuffer::OutputFileBuffer(hostlib::files::AtomicFileWriter& writer) : writer_(writer) {
  setp(buffer_.data(), buffer_.data() + buffer_.size());
}

int OutputFileBuffer::overflow(int c) {
  if (!Flush()) return traits_type::eof();
  if (c != traits_type::eof()) {
    *pptr() = static_cast<char>(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

int OutputFileBuffer::sync() { return Flush() ? 0 : -1; }

bool OutputFileBuffer::Flush() {
  if (!failure_.empty()) return false;
  try {
    writer_.Append(std::string_view(pbase(), static_cast<std::size_t>(pptr() - pbase())));
  } catch (const std::exception& failure) {
    failure_ = failure.what();
    return false;
  }
  setp(buffer_.data(), buffer_.data() + buffer_.size());
  return true;
}

}  // namespace mrset_program
