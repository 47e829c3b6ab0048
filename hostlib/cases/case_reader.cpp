// VORN_CaseReader: the active case source read block by block through the
// CSV scanner, a batch of converted cases at a time.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "host/case_data.h"
#include "host/data_source.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/cases/csv_scanner.h"
#include "hostlib/session/session.h"

namespace {

using hostlib::cases::CsvScanner;
using hostlib::cases::Record;

constexpr std::size_t kBlockSize = std::size_t{1} << 20;
constexpr std::size_t kLongestRecord = std::size_t{256} << 20;
constexpr std::size_t kBatchCases = 256;

class File {
 public:
  explicit File(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool IsOpen() const { return fd_ >= 0; }
  // Bytes read, 0 at the end, -1 on failure.
  long Read(char* into, std::size_t size) {
    for (;;) {
      const ssize_t got = ::read(fd_, into, size);
      if (got >= 0 || errno != EINTR) return static_cast<long>(got);
    }
  }

 private:
  int fd_;
};

bool SameNameAscii(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

// A Table Schema number: an optional sign, digits, a fraction, an exponent.
bool ParseNumber(std::string_view text, double& value) {
  std::size_t at = 0;
  bool negative = false;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
    negative = text[0] == '-';
    at = 1;
  }
  // Small whole numbers are most of what surveys hold.
  if (text.size() - at <= 15 && text.size() > at) {
    std::uint64_t whole = 0;
    std::size_t i = at;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
      whole = whole * 10 + static_cast<std::uint64_t>(text[i] - '0');
    }
    if (i == text.size()) {
      value = negative ? -static_cast<double>(whole) : static_cast<double>(whole);
      return true;
    }
  }
  if (at == text.size() || !((text[at] >= '0' && text[at] <= '9') || text[at] == '.')) {
    return false;
  }
  const auto result = std::from_chars(text.data() + at, text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
      !std::isfinite(value)) {
    return false;
  }
  if (negative) value = -value;
  return true;
}

}  // namespace

struct VORN_CaseReader::Impl {
  std::string error;
  std::string fileName;
  std::unique_ptr<File> file;
  std::vector<char> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
  bool endOfFile = false;
  std::unique_ptr<CsvScanner> scanner;
  std::vector<std::string> missingValues;
  bool onlyEmptyIsMissing = false;

  std::vector<std::size_t> columns;  // per slot
  std::vector<bool> numeric;         // per slot
  std::vector<std::string> names;    // per slot
  std::vector<std::string> header;

  std::size_t width = 0;
  std::vector<double> numbers;  // [case * width + slot]
  std::vector<unsigned char> missing;
  std::vector<std::string> texts;
  std::size_t batchCases = 0;
  std::size_t current = 0;
  std::uint64_t cases = 0;

  void Fail(std::string text) {
    if (error.empty()) error = std::move(text);
  }

  std::string Where(std::uint64_t row, const std::string& column) const {
    return fileName + ", row " + std::to_string(row) + ", column \"" + column + "\": ";
  }

  // Moves the unread bytes to the front and reads more behind them.
  bool ReadMore() {
    if (endOfFile) return false;
    std::memmove(buffer.data(), buffer.data() + begin, end - begin);
    end -= begin;
    begin = 0;
    const std::size_t capacity = buffer.size() - CsvScanner::kPadding;
    if (end == capacity) {
      if (capacity >= kLongestRecord) {
        Fail(fileName + ": a row is longer than " + std::to_string(kLongestRecord >> 20) +
             " MB; is a quote left open?");
        return false;
      }
      buffer.resize(capacity * 2 + CsvScanner::kPadding);
    }
    const long got = file->Read(buffer.data() + end, buffer.size() - CsvScanner::kPadding - end);
    if (got < 0) {
      Fail(fileName + ": cannot be read: " + std::strerror(errno));
      return false;
    }
    if (got == 0) endOfFile = true;
    end += static_cast<std::size_t>(got);
    return true;
  }

  // Scans what the buffer holds; false when nothing more can come.
  bool ScanSome(const std::function<bool(const Record&)>& onRecord) {
    const std::size_t used = scanner->Scan(buffer.data() + begin, end - begin, endOfFile, onRecord);
    begin += used;
    if (scanner->Unclosed()) {
      Fail(fileName + ", row " + std::to_string(scanner->RecordsSeen() + 1) +
           ": a quoted field is not closed before the end of the file.");
      return false;
    }
    if (!error.empty()) return false;
    if (used > 0) return true;
    if (endOfFile) return false;
    return ReadMore();
  }

  bool ReadHeader() {
    bool done = false;
    const auto onHeader = [&](const Record& record) {
      header.assign(record.fields->begin(), record.fields->begin() + record.fieldCount);
      done = true;
      return false;
    };
    while (!done && ScanSome(onHeader)) {
    }
    if (!done) Fail(fileName + ": the file has no header row.");
    // A byte order mark is no part of the first name.
    if (done && !header.empty() && header[0].rfind("\xEF\xBB\xBF", 0) == 0) header[0].erase(0, 3);
    return done;
  }

  bool MatchColumns(const VORN_DataSource& source, const std::vector<int>& variables) {
    for (int index : variables) {
      const VORN_Variable& variable = source.GetVariable(index);
      const std::string name = variable.GetName();
      auto found = std::find(header.begin(), header.end(), name);
      if (found == header.end()) {
        found = std::find_if(header.begin(), header.end(), [&](const std::string& column) {
          return SameNameAscii(column, name);
        });
      }
      if (found == header.end()) {
        Fail(fileName + ", row 1, column \"" + name + "\": the header has no such column.");
        return false;
      }
      columns.push_back(static_cast<std::size_t>(found - header.begin()));
      numeric.push_back(variable.GetType() == 0);
      names.push_back(name);
    }
    width = columns.size();
    scanner->Want(columns);
    return true;
  }

  bool Keep(const Record& record) {
    if (record.fieldCount != header.size()) {
      const std::size_t column = std::min(record.fieldCount, header.size());
      const std::string name =
          column < header.size() ? header[column] : "#" + std::to_string(column + 1);
      Fail(Where(record.number, name) + "the row has " + std::to_string(record.fieldCount) +
           " fields where the header has " + std::to_string(header.size()) + ".");
      return false;
    }
    const std::size_t row = batchCases;
    for (std::size_t slot = 0; slot < width; ++slot) {
      const std::string_view field = (*record.fields)[columns[slot]];
      const std::size_t at = row * width + slot;
      const bool isMissing =
          onlyEmptyIsMissing
              ? field.empty()
              : std::find(missingValues.begin(), missingValues.end(), field) != missingValues.end();
      missing[at] = isMissing ? 1 : 0;
      if (!numeric[slot]) {
        texts[at].assign(field);
      } else if (isMissing) {
        numbers[at] = std::numeric_limits<double>::quiet_NaN();
      } else if (!ParseNumber(field, numbers[at])) {
        Fail(Where(record.number, names[slot]) + "\"" + std::string(field) + "\" is not a number.");
        return false;
      }
    }
    ++batchCases;
    return batchCases < kBatchCases;
  }

  bool FillBatch() {
    batchCases = 0;
    current = 0;
    const auto onRecord = [&](const Record& record) { return Keep(record); };
    while (batchCases < kBatchCases && error.empty() && ScanSome(onRecord)) {
    }
    if (!error.empty()) batchCases = 0;
    return batchCases > 0;
  }
};

VORN_CaseReader::VORN_CaseReader(const std::vector<int>& variables)
    : impl_(std::make_unique<Impl>()) {
  const auto& source = hostlib::cases::ActiveCaseSource();
  const VORN_DataSource* data = hostlib::Session::Instance().RootSource();
  if (!source || data == nullptr) {
    impl_->Fail("The dataset names no case data (a \"path\" in its codebook, or --cases FILE).");
    return;
  }
  Impl& impl = *impl_;
  impl.fileName = source->path.string();
  impl.missingValues = source->missingValues;
  impl.onlyEmptyIsMissing = impl.missingValues.size() == 1 && impl.missingValues.front().empty();
  impl.scanner = std::make_unique<CsvScanner>(source->dialect);
  impl.file = std::make_unique<File>(impl.fileName);
  if (!impl.file->IsOpen()) {
    impl.Fail(impl.fileName + ": cannot be opened: " + std::strerror(errno));
    return;
  }
  impl.buffer.resize(kBlockSize + CsvScanner::kPadding);
  if (!impl.ReadHeader() || !impl.MatchColumns(*data, variables)) return;
  impl.numbers.resize(kBatchCases * impl.width);
  impl.missing.resize(kBatchCases * impl.width);
  impl.texts.resize(kBatchCases * impl.width);
}

VORN_CaseReader::~VORN_CaseReader() = default;

bool VORN_CaseReader::NextCase() {
  Impl& impl = *impl_;
  if (!impl.error.empty() || !impl.scanner) return false;
  if (impl.cases > 0 && impl.current + 1 < impl.batchCases) {
    ++impl.current;
  } else if (!impl.FillBatch()) {
    return false;
  }
  ++impl.cases;
  return true;
}

bool VORN_CaseReader::Failed() const { return !impl_->error.empty(); }
const std::string& VORN_CaseReader::ErrorText() const { return impl_->error; }
std::uint64_t VORN_CaseReader::CaseCount() const { return impl_->cases; }

bool VORN_CaseReader::IsMissing(std::size_t slot) const {
  return impl_->missing[impl_->current * impl_->width + slot] != 0;
}
double VORN_CaseReader::Number(std::size_t slot) const {
  return impl_->numbers[impl_->current * impl_->width + slot];
}
std::string_view VORN_CaseReader::Text(std::size_t slot) const {
  return impl_->texts[impl_->current * impl_->width + slot];
}
const double* VORN_CaseReader::Numbers() const {
  return impl_->numbers.data() + impl_->current * impl_->width;
}
const unsigned char* VORN_CaseReader::MissingFlags() const {
  return impl_->missing.data() + impl_->current * impl_->width;
}
const std::string* VORN_CaseReader::Texts() const {
  return impl_->texts.data() + impl_->current * impl_->width;
}
