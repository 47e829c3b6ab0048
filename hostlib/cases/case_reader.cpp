// VORN_CaseReader: the active case source read block by block. The reading
// side reads a block, scans its whole records and keeps the wanted fields of
// each (a batch); the counting side converts a batch's fields to values a few
// hundred cases at a time. Where there is a second processor the reading side
// runs on a thread of its own, a few batches ahead; the cases come in file
// order either way, and so do the faults.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "host/case_data.h"
#include "host/data_source.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/cases/csv_scanner.h"
#include "hostlib/session/session.h"

namespace {

using hostlib::cases::CsvScanner;
using hostlib::cases::Record;
using hostlib::files::Env;

constexpr std::size_t kBlockSize = std::size_t{256} << 10;
constexpr std::size_t kLongestRecord = std::size_t{256} << 20;
// Batches between the reading thread and the counting, and cases converted
// at a time (their values stay in the first-level cache).
constexpr std::size_t kBatches = 4;
constexpr std::size_t kConvertedCases = 256;

class File {
 public:
  File(Env& env, std::filesystem::path path)
      : env_(env), path_(std::move(path)), fd_(env_.Open(path_, O_RDONLY)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool IsOpen() const { return fd_ >= 0; }
  // Bytes read, 0 at the end, -1 on failure.
  long Read(char* into, std::size_t size) {
    for (;;) {
      const ssize_t got = env_.Read(fd_, path_, into, size);
      if (got >= 0 || errno != EINTR) return static_cast<long>(got);
    }
  }

 private:
  Env& env_;
  std::filesystem::path path_;
  int fd_;
};

// Bytes that growing leaves uninitialised (a block is read into them).
class Bytes {
 public:
  char* data() { return data_.get(); }
  const char* data() const { return data_.get(); }
  std::size_t size() const { return size_; }
  // Keeps the first min(size, new size) bytes.
  void resize(std::size_t size) {
    if (size > capacity_) {
      const std::size_t capacity = std::max(size, capacity_ * 2);
      auto grown = std::make_unique_for_overwrite<char[]>(capacity);
      if (size_ > 0) std::memcpy(grown.get(), data_.get(), size_);
      data_ = std::move(grown);
      capacity_ = capacity;
    }
    size_ = size;
  }
  void assign(const char* begin, const char* end) {
    size_ = 0;
    resize(static_cast<std::size_t>(end - begin));
    if (begin != end) std::memcpy(data_.get(), begin, size_);
  }

 private:
  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// The whole records of one block: the wanted fields of case `i` at
// fields[i * width + slot], pointing into `bytes` or, for a quoted field, into
// `unquoted`.
struct Batch {
  Bytes bytes;
  std::vector<std::string_view> fields;
  std::deque<std::string> unquoted;
  std::uint64_t firstRow = 0;  // the row number of the first case
  std::size_t cases = 0;
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

// The reading side: the file, the scanner, the header and the batches.
class CaseScan {
 public:
  CaseScan(std::string fileName, const hostlib::cases::CaseSource& source,
           const hostlib::cases::CaseReading& reading)
      : fileName_(std::move(fileName)),
        scanner_(source.dialect, reading.vectors ? hostlib::cases::Instructions::kBest
                                                 : hostlib::cases::Instructions::kScalar) {
    Env& env = reading.env != nullptr ? *reading.env : hostlib::files::DefaultEnv();
    file_ = std::make_unique<File>(env, source.path);
    if (!file_->IsOpen()) Fail(fileName_ + ": cannot be opened: " + std::strerror(errno));
  }

  const std::string& Error() const { return error_; }
  const std::vector<std::string>& Names() const { return names_; }
  const std::vector<bool>& Numeric() const { return numeric_; }

  bool Start(const VORN_DataSource& source, const std::vector<int>& variables) {
    return error_.empty() && ReadHeader() && MatchColumns(source, variables);
  }

  // Scans the next block into `batch`; false once nothing more can come (the
  // end, or a fault after the batch's cases).
  bool Fill(Batch& batch) {
    batch.fields.clear();
    batch.unquoted.clear();
    batch.cases = 0;
    batch.firstRow = scanner_.RecordsSeen() + 1;
    if (ended_) return false;
    try {
      ended_ = !ScanBlock(batch.bytes, [&](const Record& record) { return Keep(batch, record); });
    } catch (const std::bad_alloc&) {
      Fail(fileName_ + ": there is not enough memory to read it.");
    }
    ended_ = ended_ || !error_.empty();
    return !ended_;
  }

 private:
  void Fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
  }

  // Reads up to a block more behind the first `size` bytes (as much as they
  // are, for a record longer than a block, so that it is scanned again only
  // a few times); false on a fault.
  bool ReadMore(Bytes& bytes, std::size_t& size) {
    if (size >= kLongestRecord) {
      Fail(fileName_ + ": a row is longer than " + std::to_string(kLongestRecord >> 20) +
           " MB; is a quote left open?");
      return false;
    }
    const std::size_t wanted = std::max(kBlockSize, size);
    bytes.resize(size + wanted + CsvScanner::kPadding);
    const long got = file_->Read(bytes.data() + size, wanted);
    if (got < 0) {
      Fail(fileName_ + ": cannot be read: " + std::strerror(errno));
      return false;
    }
    if (got == 0) endOfFile_ = true;
    size += static_cast<std::size_t>(got);
    bytes.resize(size + CsvScanner::kPadding);
    return true;
  }

  // Puts the unfinished record of the block before and the next block into
  // `bytes`, and scans the whole records there; the rest waits for the next
  // block. False once nothing more can come.
  bool ScanBlock(Bytes& bytes, const std::function<bool(const Record&)>& onRecord) {
    bytes.assign(unfinished_.data(), unfinished_.data() + unfinished_.size());
    unfinished_.resize(0);
    std::size_t size = bytes.size();
    for (;;) {
      if (!endOfFile_ && !ReadMore(bytes, size)) return false;
      bytes.resize(size + CsvScanner::kPadding);
      const std::size_t used = scanner_.Scan(bytes.data(), size, endOfFile_, onRecord);
      if (scanner_.Unclosed()) {
        Fail(fileName_ + ", row " + std::to_string(scanner_.RecordsSeen() + 1) +
             ": a quoted field is not closed before the end of the file.");
        return false;
      }
      if (used > 0 || endOfFile_) {
        unfinished_.assign(bytes.data() + used, bytes.data() + size);
        bytes.resize(used);
        return error_.empty() && !(endOfFile_ && unfinished_.size() == 0);
      }
    }
  }

  bool ReadHeader() {
    bool done = false;
    Bytes bytes;
    const auto onHeader = [&](const Record& record) {
      header_.assign(record.fields->begin(), record.fields->begin() + record.fieldCount);
      done = true;
      return false;
    };
    while (!done && ScanBlock(bytes, onHeader)) {
    }
    if (!done) {
      Fail(fileName_ + ": the file has no header row.");
      return false;
    }
    // A byte order mark is no part of the first name.
    if (!header_.empty() && header_[0].rfind("\xEF\xBB\xBF", 0) == 0) header_[0].erase(0, 3);
    return true;
  }

  bool MatchColumns(const VORN_DataSource& source, const std::vector<int>& variables) {
    for (int index : variables) {
      const VORN_Variable& variable = source.GetVariable(index);
      const std::string name = variable.GetName();
      auto found = std::find(header_.begin(), header_.end(), name);
      if (found == header_.end()) {
        found = std::find_if(header_.begin(), header_.end(), [&](const std::string& column) {
          return SameNameAscii(column, name);
        });
      }
      // Fields describe the columns in order (a schema's rule), so a header as
      // long as the dictionary answers by position for a name it does not hold:
      // an export's "q7/apple" is the dictionary's q7_apple.
      if (found == header_.end() && header_.size() == source.ColumnCount()) {
        found = header_.begin() + index;
      }
      if (found == header_.end()) {
        Fail(fileName_ + ", row 1, column \"" + name + "\": the header has no such column.");
        return false;
      }
      columns_.push_back(static_cast<std::size_t>(found - header_.begin()));
      numeric_.push_back(variable.GetType() == 0);
      names_.push_back(name);
    }
    scanner_.Want(columns_);
    return true;
  }

  bool Keep(Batch& batch, const Record& record) {
    if (record.fieldCount != header_.size()) {
      const std::size_t column = std::min(record.fieldCount, header_.size());
      const std::string name =
          column < header_.size() ? header_[column] : "#" + std::to_string(column + 1);
      Fail(fileName_ + ", row " + std::to_string(record.number) + ", column \"" + name +
           "\": the row has " + std::to_string(record.fieldCount) +
           " fields where the header has " + std::to_string(header_.size()) + ".");
      return false;
    }
    const char* bytesBegin = batch.bytes.data();
    const char* bytesEnd = bytesBegin + batch.bytes.size();
    const std::size_t first = batch.fields.size();
    batch.fields.resize(first + columns_.size());
    std::string_view* kept = batch.fields.data() + first;
    for (const std::size_t column : columns_) {
      std::string_view field = (*record.fields)[column];
      if (!field.empty() && (field.data() < bytesBegin || field.data() >= bytesEnd)) {
        // The scanner's text of a quoted field lasts only until its next record.
        field = batch.unquoted.emplace_back(field);
      }
      *kept++ = field;
    }
    ++batch.cases;
    return true;
  }

  std::string error_;
  std::string fileName_;
  CsvScanner scanner_;
  std::unique_ptr<File> file_;
  Bytes unfinished_;
  bool endOfFile_ = false;
  bool ended_ = false;  // at the end of the file or at a fault

  std::vector<std::size_t> columns_;  // per slot
  std::vector<bool> numeric_;         // per slot
  std::vector<std::string> names_;    // per slot
  std::vector<std::string> header_;
};

// Fills batches on a thread of its own, at most kBatches ahead of the reader.
class ReadAhead {
 public:
  explicit ReadAhead(CaseScan& scan) : scan_(scan), batches_(kBatches) {
    for (Batch& batch : batches_) empty_.push_back(&batch);
    thread_ = std::thread([this] { Run(); });
  }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  // Hands back the batch read before (if any) and waits for the next one;
  // none once the scan has ended.
  Batch* Next(Batch* done) {
    std::unique_lock lock(mutex_);
    if (done != nullptr) {
      empty_.push_back(done);
      changed_.notify_all();
    }
    changed_.wait(lock, [this] { return !full_.empty() || finished_; });
    if (full_.empty()) return nullptr;
    Batch* next = full_.front();
    full_.pop_front();
    return next;
  }

 private:
  void Run() {
    for (;;) {
      Batch* batch = nullptr;
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !empty_.empty() || stop_; });
        if (stop_) return;
        batch = empty_.back();
        empty_.pop_back();
      }
      const bool more = scan_.Fill(*batch);
      {
        const std::lock_guard lock(mutex_);
        if (batch->cases > 0) {
          full_.push_back(batch);
        } else {
          empty_.push_back(batch);
        }
        finished_ = !more;
      }
      changed_.notify_all();
      if (!more) return;
    }
  }

  CaseScan& scan_;
  std::vector<Batch> batches_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Batch*> empty_;
  std::deque<Batch*> full_;
  bool finished_ = false;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace

struct VORN_CaseReader::Impl {
  std::string error;
  std::string fileName;
  std::vector<std::string> missingValues;
  bool onlyEmptyIsMissing = false;
  std::vector<std::string> names;  // per slot
  std::vector<bool> numeric;       // per slot
  std::size_t width = 0;

  std::unique_ptr<CaseScan> scan;
  std::unique_ptr<ReadAhead> readAhead;  // none: batches are filled here
  Batch own;
  Batch* batch = nullptr;
  std::size_t nextInBatch = 0;  // the first case of the batch not converted yet
  bool ended = false;

  // The converted cases: slot `slot` of case `i` at [i * width + slot].
  std::vector<double> numbers;
  std::vector<unsigned char> missing;
  std::vector<std::string> texts;
  std::size_t converted = 0;
  std::size_t current = 0;
  std::uint64_t cases = 0;

  void End(std::string text) {
    ended = true;
    if (error.empty()) error = std::move(text);
  }

  bool NextBatch() {
    if (readAhead) {
      batch = readAhead->Next(batch);
    } else {
      batch = scan->Fill(own) || own.cases > 0 ? &own : nullptr;
    }
    nextInBatch = 0;
    // Without a batch the scan has ended (the reading thread too): its fault
    // can be read.
    if (batch == nullptr) End(scan->Error());
    return batch != nullptr;
  }

  // Converts the next cases of the batch; false at the end or on a fault.
  bool Convert() {
    if ((batch == nullptr || nextInBatch == batch->cases) && !NextBatch()) return false;
    converted = std::min(kConvertedCases, batch->cases - nextInBatch);
    for (std::size_t i = 0; i < converted; ++i) {
      const std::string_view* fields = batch->fields.data() + (nextInBatch + i) * width;
      for (std::size_t slot = 0; slot < width; ++slot) {
        if (!ConvertField(fields[slot], slot, i * width + slot)) {
          End(fileName + ", row " + std::to_string(batch->firstRow + nextInBatch + i) +
              ", column \"" + names[slot] + "\": \"" + std::string(fields[slot]) +
              "\" is not a number.");
          return false;
        }
      }
    }
    nextInBatch += converted;
    current = 0;
    return true;
  }

  bool ConvertField(std::string_view field, std::size_t slot, std::size_t at) {
    const bool isMissing =
        onlyEmptyIsMissing
            ? field.empty()
            : std::find(missingValues.begin(), missingValues.end(), field) != missingValues.end();
    missing[at] = isMissing ? 1 : 0;
    if (!numeric[slot]) {
      texts[at].assign(field);
      return true;
    }
    if (isMissing) {
      numbers[at] = std::numeric_limits<double>::quiet_NaN();
      return true;
    }
    return ParseNumber(field, numbers[at]);
  }
};

VORN_CaseReader::VORN_CaseReader(const std::vector<int>& variables)
    : impl_(std::make_unique<Impl>()) {
  const auto& source = hostlib::cases::ActiveCaseSource();
  const VORN_DataSource* data = hostlib::Session::Instance().RootSource();
  Impl& impl = *impl_;
  if (!source || data == nullptr) {
    impl.End("The dataset names no case data (a \"path\" in its codebook, or --cases FILE).");
    return;
  }
  const hostlib::cases::CaseReading& reading = hostlib::cases::CurrentCaseReading();
  impl.fileName = source->path.string();
  impl.missingValues = source->missingValues;
  impl.onlyEmptyIsMissing = impl.missingValues.size() == 1 && impl.missingValues.front().empty();
  impl.scan = std::make_unique<CaseScan>(impl.fileName, *source, reading);
  if (!impl.scan->Start(*data, variables)) {
    impl.End(impl.scan->Error());
    return;
  }
  impl.names = impl.scan->Names();
  impl.numeric = impl.scan->Numeric();
  impl.width = impl.names.size();
  impl.numbers.resize(kConvertedCases * impl.width);
  impl.missing.resize(kConvertedCases * impl.width);
  impl.texts.resize(kConvertedCases * impl.width);
  if (reading.readAhead && std::thread::hardware_concurrency() > 1) {
    try {
      impl.readAhead = std::make_unique<ReadAhead>(*impl.scan);
    } catch (const std::system_error&) {
      // No thread to be had: the batches are filled here.
    }
  }
}

VORN_CaseReader::~VORN_CaseReader() = default;

bool VORN_CaseReader::NextCase() {
  Impl& impl = *impl_;
  if (impl.ended) return false;
  if (impl.current + 1 < impl.converted) {
    ++impl.current;
  } else if (!impl.Convert()) {
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
