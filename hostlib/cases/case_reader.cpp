// VORN_CaseReader: the active case source read block by block through the
// CSV scanner, a batch of converted cases at a time. Where there is a second
// processor, a second thread reads, scans and converts the next batches while
// the command counts the current one; the cases come in file order either way.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
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

constexpr std::size_t kBlockSize = std::size_t{1} << 20;
constexpr std::size_t kLongestRecord = std::size_t{256} << 20;
// Cases per batch, and batches between the reading thread and the counting.
constexpr std::size_t kBatchCases = 2048;
constexpr std::size_t kBatches = 4;

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

// Converted cases: slot `slot` of case `row` at [row * width + slot].
struct Batch {
  std::vector<double> numbers;
  std::vector<unsigned char> missing;
  std::vector<std::string> texts;
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

// The reading side: the file, the scanner and the conversion of fields.
class CaseScan {
 public:
  CaseScan(std::string fileName, const hostlib::cases::CaseSource& source,
           const hostlib::cases::CaseReading& reading)
      : fileName_(std::move(fileName)),
        scanner_(source.dialect, reading.vectors ? hostlib::cases::Instructions::kBest
                                                 : hostlib::cases::Instructions::kScalar),
        missingValues_(source.missingValues),
        onlyEmptyIsMissing_(missingValues_.size() == 1 && missingValues_.front().empty()) {
    Env& env = reading.env != nullptr ? *reading.env : hostlib::files::DefaultEnv();
    file_ = std::make_unique<File>(env, source.path);
    if (!file_->IsOpen()) {
      Fail(fileName_ + ": cannot be opened: " + std::strerror(errno));
      return;
    }
    buffer_.resize(kBlockSize + CsvScanner::kPadding);
  }

  const std::string& Error() const { return error_; }
  std::size_t Width() const { return width_; }

  bool Start(const VORN_DataSource& source, const std::vector<int>& variables) {
    return error_.empty() && ReadHeader() && MatchColumns(source, variables);
  }

  void Shape(Batch& batch) const {
    batch.numbers.resize(kBatchCases * width_);
    batch.missing.resize(kBatchCases * width_);
    batch.texts.resize(kBatchCases * width_);
  }

  // Converts the next cases into `batch`; false once nothing more can come
  // (the end, or a fault: then the batch holds no case).
  bool Fill(Batch& batch) {
    batch_ = &batch;
    batch.cases = 0;
    const auto onRecord = [this](const Record& record) { return Keep(record); };
    bool more = true;
    try {
      while (batch.cases < kBatchCases && error_.empty() && (more = ScanSome(onRecord))) {
      }
    } catch (const std::bad_alloc&) {
      Fail(fileName_ + ": there is not enough memory to read it.");
    }
    if (!error_.empty()) batch.cases = 0;
    return more && error_.empty();
  }

 private:
  void Fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
  }

  std::string Where(std::uint64_t row, const std::string& column) const {
    return fileName_ + ", row " + std::to_string(row) + ", column \"" + column + "\": ";
  }

  // Moves the unread bytes to the front and reads more behind them.
  bool ReadMore() {
    if (endOfFile_) return false;
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const std::size_t capacity = buffer_.size() - CsvScanner::kPadding;
    if (end_ == capacity) {
      if (capacity >= kLongestRecord) {
        Fail(fileName_ + ": a row is longer than " + std::to_string(kLongestRecord >> 20) +
             " MB; is a quote left open?");
        return false;
      }
      buffer_.resize(capacity * 2 + CsvScanner::kPadding);
    }
    const long got =
        file_->Read(buffer_.data() + end_, buffer_.size() - CsvScanner::kPadding - end_);
    if (got < 0) {
      Fail(fileName_ + ": cannot be read: " + std::strerror(errno));
      return false;
    }
    if (got == 0) endOfFile_ = true;
    end_ += static_cast<std::size_t>(got);
    return true;
  }

  // Scans what the buffer holds; false when nothing more can come.
  bool ScanSome(const std::function<bool(const Record&)>& onRecord) {
    const std::size_t used =
        scanner_.Scan(buffer_.data() + begin_, end_ - begin_, endOfFile_, onRecord);
    begin_ += used;
    if (scanner_.Unclosed()) {
      Fail(fileName_ + ", row " + std::to_string(scanner_.RecordsSeen() + 1) +
           ": a quoted field is not closed before the end of the file.");
      return false;
    }
    if (!error_.empty()) return false;
    if (used > 0) return true;
    if (endOfFile_) return false;
    return ReadMore();
  }

  bool ReadHeader() {
    bool done = false;
    const auto onHeader = [&](const Record& record) {
      header_.assign(record.fields->begin(), record.fields->begin() + record.fieldCount);
      done = true;
      return false;
    };
    while (!done && ScanSome(onHeader)) {
    }
    if (!done) Fail(fileName_ + ": the file has no header row.");
    // A byte order mark is no part of the first name.
    if (done && !header_.empty() && header_[0].rfind("\xEF\xBB\xBF", 0) == 0) {
      header_[0].erase(0, 3);
    }
    return done;
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
      if (found == header_.end()) {
        Fail(fileName_ + ", row 1, column \"" + name + "\": the header has no such column.");
        return false;
      }
      columns_.push_back(static_cast<std::size_t>(found - header_.begin()));
      numeric_.push_back(variable.GetType() == 0);
      names_.push_back(name);
    }
    width_ = columns_.size();
    scanner_.Want(columns_);
    return true;
  }

  bool Keep(const Record& record) {
    if (record.fieldCount != header_.size()) {
      const std::size_t column = std::min(record.fieldCount, header_.size());
      const std::string name =
          column < header_.size() ? header_[column] : "#" + std::to_string(column + 1);
      Fail(Where(record.number, name) + "the row has " + std::to_string(record.fieldCount) +
           " fields where the header has " + std::to_string(header_.size()) + ".");
      return false;
    }
    Batch& batch = *batch_;
    const std::size_t first = batch.cases * width_;
    for (std::size_t slot = 0; slot < width_; ++slot) {
      const std::string_view field = (*record.fields)[columns_[slot]];
      const std::size_t at = first + slot;
      const bool isMissing = onlyEmptyIsMissing_
                                 ? field.empty()
                                 : std::find(missingValues_.begin(), missingValues_.end(), field) !=
                                       missingValues_.end();
      batch.missing[at] = isMissing ? 1 : 0;
      if (!numeric_[slot]) {
        batch.texts[at].assign(field);
      } else if (isMissing) {
        batch.numbers[at] = std::numeric_limits<double>::quiet_NaN();
      } else if (!ParseNumber(field, batch.numbers[at])) {
        Fail(Where(record.number, names_[slot]) + "\"" + std::string(field) +
             "\" is not a number.");
        return false;
      }
    }
    ++batch.cases;
    return batch.cases < kBatchCases;
  }

  std::string error_;
  std::string fileName_;
  CsvScanner scanner_;
  std::vector<std::string> missingValues_;
  bool onlyEmptyIsMissing_;
  std::unique_ptr<File> file_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool endOfFile_ = false;

  std::vector<std::size_t> columns_;  // per slot
  std::vector<bool> numeric_;         // per slot
  std::vector<std::string> names_;    // per slot
  std::vector<std::string> header_;
  std::size_t width_ = 0;
  Batch* batch_ = nullptr;
};

// Fills batches on a thread of its own, at most kBatches ahead of the reader.
class ReadAhead {
 public:
  explicit ReadAhead(CaseScan& scan) : scan_(scan), batches_(kBatches) {
    for (Batch& batch : batches_) {
      scan_.Shape(batch);
      empty_.push_back(&batch);
    }
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
    changed_.notify_all();
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
  std::unique_ptr<CaseScan> scan;
  std::unique_ptr<ReadAhead> readAhead;  // none: batches are filled here
  Batch own;
  Batch* batch = nullptr;
  bool ended = false;
  std::size_t width = 0;
  std::size_t current = 0;
  std::uint64_t cases = 0;

  bool NextBatch() {
    if (readAhead) {
      batch = readAhead->Next(batch);
    } else {
      batch = scan->Fill(own) || own.cases > 0 ? &own : nullptr;
    }
    current = 0;
    if (batch == nullptr) {
      ended = true;
      // The reading thread has finished: its fault can be read.
      error = scan->Error();
    }
    return batch != nullptr;
  }
};

VORN_CaseReader::VORN_CaseReader(const std::vector<int>& variables)
    : impl_(std::make_unique<Impl>()) {
  const auto& source = hostlib::cases::ActiveCaseSource();
  const VORN_DataSource* data = hostlib::Session::Instance().RootSource();
  Impl& impl = *impl_;
  if (!source || data == nullptr) {
    impl.error = "The dataset names no case data (a \"path\" in its codebook, or --cases FILE).";
    impl.ended = true;
    return;
  }
  const hostlib::cases::CaseReading& reading = hostlib::cases::CurrentCaseReading();
  impl.scan = std::make_unique<CaseScan>(source->path.string(), *source, reading);
  if (!impl.scan->Start(*data, variables)) {
    impl.error = impl.scan->Error();
    impl.ended = true;
    return;
  }
  impl.width = impl.scan->Width();
  if (reading.readAhead && std::thread::hardware_concurrency() > 1) {
    try {
      impl.readAhead = std::make_unique<ReadAhead>(*impl.scan);
      return;
    } catch (const std::system_error&) {
      // No thread to be had: the batches are filled here.
    }
  }
  impl.scan->Shape(impl.own);
}

VORN_CaseReader::~VORN_CaseReader() = default;

bool VORN_CaseReader::NextCase() {
  Impl& impl = *impl_;
  if (impl.ended) return false;
  if (impl.batch != nullptr && impl.current + 1 < impl.batch->cases) {
    ++impl.current;
  } else if (!impl.NextBatch()) {
    return false;
  }
  ++impl.cases;
  return true;
}

bool VORN_CaseReader::Failed() const { return !impl_->error.empty(); }
const std::string& VORN_CaseReader::ErrorText() const { return impl_->error; }
std::uint64_t VORN_CaseReader::CaseCount() const { return impl_->cases; }

bool VORN_CaseReader::IsMissing(std::size_t slot) const {
  return impl_->batch->missing[impl_->current * impl_->width + slot] != 0;
}
double VORN_CaseReader::Number(std::size_t slot) const {
  return impl_->batch->numbers[impl_->current * impl_->width + slot];
}
std::string_view VORN_CaseReader::Text(std::size_t slot) const {
  return impl_->batch->texts[impl_->current * impl_->width + slot];
}
const double* VORN_CaseReader::Numbers() const {
  return impl_->batch->numbers.data() + impl_->current * impl_->width;
}
const unsigned char* VORN_CaseReader::MissingFlags() const {
  return impl_->batch->missing.data() + impl_->current * impl_->width;
}
const std::string* VORN_CaseReader::Texts() const {
  return impl_->batch->texts.data() + impl_->current * impl_->width;
}
