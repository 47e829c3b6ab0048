// VORN_CaseReader: the active case source read in ranges of bytes. A worker
// reads a range with pread into its own buffer, finds where the range's
// first record starts (after the first line end outside quotes, which needs
// the quote parity at the range's start: each range's parity is counted as
// soon as it is read and handed down the chain of ranges), scans the records
// that start in the range and converts their wanted fields. The reader hands
// the ranges' cases out in file order, and the first fault in file order
// with them. A large file is read by a few threads, each a range at a time,
// a bounded number of ranges ahead of the counting; a small one (or a pipe)
// is read range by range on the calling thread.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "host/case_data.h"
#include "host/data_source.h"
#include "hostlib/cases/case_source.h"
#include "hostlib/cases/csv_scanner.h"
#include "hostlib/session/session.h"

namespace {

using hostlib::cases::CsvScanner;
using hostlib::cases::Record;
using hostlib::files::Env;

constexpr std::size_t kRangeSize = std::size_t{512} << 10;
// Read at a time beyond a range for its last record.
constexpr std::size_t kTailBlock = std::size_t{16} << 10;
constexpr std::size_t kLongestRecord = std::size_t{256} << 20;
// Below this much case data the threads would cost more than they save.
constexpr std::size_t kThreadedBytes = std::size_t{8} << 20;
constexpr std::size_t kMostWorkers = 4;

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

class File {
 public:
  File(Env& env, std::filesystem::path path)
      : env_(env), path_(std::move(path)), fd_(env_.Open(path_, O_RDONLY)) {
    struct stat status {};
    if (fd_ >= 0 && ::fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
      size_ = static_cast<std::uint64_t>(status.st_size);
      seekable_ = true;
    }
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool IsOpen() const { return fd_ >= 0; }
  // A pipe's size is not known: it is read to its end, in order.
  bool Seekable() const { return seekable_; }
  std::uint64_t Size() const { return size_; }

  // No byte before `offset` will be asked for again.
  void Forget(std::uint64_t offset) {
    if (seekable_ || offset <= windowStart_) return;
    const auto drop =
        static_cast<std::size_t>(std::min<std::uint64_t>(offset - windowStart_, window_.size()));
    if (drop == 0) return;
    std::memmove(window_.data(), window_.data() + drop, window_.size() - drop);
    window_.resize(window_.size() - drop);
    windowStart_ += drop;
  }

  // Reads up to `size` bytes at `offset` (fewer only at the end); bytes read,
  // -1 on failure. Safe from several threads on a seekable file. A pipe is
  // read in order, so its offsets never go back before the last one asked.
  long ReadAt(char* into, std::size_t size, std::uint64_t offset) {
    if (!seekable_) return ReadStream(into, size, offset);
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got =
          env_.ReadAt(fd_, path_, into + done, size - done, static_cast<off_t>(offset + done));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return -1;
      if (got == 0) break;
      done += static_cast<std::size_t>(got);
    }
    return static_cast<long>(done);
  }

 private:
  // A pipe's bytes from windowStart_ on, kept until Forget passes them.
  long ReadStream(char* into, std::size_t size, std::uint64_t offset) {
    if (offset < windowStart_) {
      errno = ESPIPE;
      return -1;
    }
    const auto skip = static_cast<std::size_t>(offset - windowStart_);
    while (!streamEnded_ && window_.size() < skip + size) {
      const std::size_t had = window_.size();
      window_.resize(std::max(skip + size, had + (std::size_t{64} << 10)));
      const ssize_t got = env_.Read(fd_, path_, window_.data() + had, window_.size() - had);
      window_.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return -1;
      streamEnded_ = got == 0;
    }
    const std::size_t copied = window_.size() > skip ? std::min(size, window_.size() - skip) : 0;
    if (copied > 0) std::memcpy(into, window_.data() + skip, copied);
    return static_cast<long>(copied);
  }

  Env& env_;
  std::filesystem::path path_;
  int fd_;
  bool seekable_ = false;
  std::uint64_t size_ = 0;
  Bytes window_;
  std::uint64_t windowStart_ = 0;
  bool streamEnded_ = false;
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
  // Small whole numbers are most of what surveys hold; codes of one digit
  // above all.
  if (text.size() == 1 && static_cast<unsigned char>(text[0] - '0') < 10) {
    value = static_cast<double>(text[0] - '0');
    return true;
  }
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

// Whether `size` bytes hold an odd number of `quote`s: every range is counted
// once before it is scanned, so this runs over the whole file.
bool OddQuotesScalar(const char* text, std::size_t size, char quote) {
  unsigned odd = 0;
  for (std::size_t at = 0; at < size; ++at) odd ^= text[at] == quote ? 1U : 0U;
  return odd != 0;
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) bool OddQuotesAvx2(const char* text, std::size_t size, char quote) {
  const __m256i quotes = _mm256_set1_epi8(quote);
  __m256i toggled = _mm256_setzero_si256();
  std::size_t at = 0;
  for (; at + 32 <= size; at += 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + at));
    toggled = _mm256_xor_si256(toggled, _mm256_cmpeq_epi8(bytes, quotes));
  }
  const auto lanes = static_cast<unsigned>(_mm256_movemask_epi8(toggled));
  return (__builtin_parity(lanes) != 0) != OddQuotesScalar(text + at, size - at, quote);
}

bool OddQuotesSse2(const char* text, std::size_t size, char quote) {
  const __m128i quotes = _mm_set1_epi8(quote);
  __m128i toggled = _mm_setzero_si128();
  std::size_t at = 0;
  for (; at + 16 <= size; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at));
    toggled = _mm_xor_si128(toggled, _mm_cmpeq_epi8(bytes, quotes));
  }
  const auto lanes = static_cast<unsigned>(_mm_movemask_epi8(toggled));
  return (__builtin_parity(lanes) != 0) != OddQuotesScalar(text + at, size - at, quote);
}
#endif

using QuoteCounter = bool (*)(const char*, std::size_t, char);

QuoteCounter ChooseQuoteCounter(bool vectors) {
#if defined(__x86_64__)
  if (vectors) return __builtin_cpu_supports("avx2") ? OddQuotesAvx2 : OddQuotesSse2;
#endif
  (void)vectors;
  return OddQuotesScalar;
}

// A fault that ends the reading, where it stands among the range's cases.
struct Fault {
  bool any = false;
  bool atRow = false;  // the row is the one after the range's cases
  std::string before;  // the text up to the row number (all of it without one)
  std::string after;
};

// What a worker makes of one range: its cases' values (slot `slot` of case
// `i` at [i * width + slot]) and the fault that ended it, if any.
struct Range {
  enum class Stage { kFree, kReading, kCounted, kDone };
  Stage stage = Stage::kFree;
  std::uint64_t index = 0;
  bool oddQuotes = false;     // in the range's own bytes
  bool startKnown = false;    // the chain of parities has reached the range
  bool startsInside = false;  // the range starts inside quotes
  bool pastEnd = false;       // the file ended before the range
  Bytes bytes;                // from the byte before the range on
  Bytes tail;                 // the last record's rest, beyond the range
  std::deque<std::string> unquoted;
  std::vector<double> numbers;
  std::vector<unsigned char> missing;
  std::vector<std::string_view> texts;  // when some slot is a string
  std::size_t cases = 0;
  Fault fault;
};

// What every worker reads by: the file, its layout and the wanted columns.
struct Plan {
  std::string fileName;
  hostlib::cases::Dialect dialect;
  hostlib::cases::Instructions instructions = hostlib::cases::Instructions::kBest;
  QuoteCounter oddQuotes = OddQuotesScalar;
  std::unique_ptr<File> file;
  std::vector<std::string> missingValues;
  bool onlyEmptyIsMissing = false;
  std::vector<std::string> header;
  std::vector<std::size_t> columns;    // per slot
  std::vector<unsigned char> numeric;  // per slot
  std::vector<std::string> names;      // per slot
  bool anyText = false;
  std::uint64_t dataStart = 0;  // the first byte after the header row
  std::uint64_t dataEnd = 0;    // the file's size (a pipe: none known)
  std::size_t rangeSize = kRangeSize;

  std::uint64_t RangeCount() const {
    if (!file->Seekable()) return std::numeric_limits<std::uint64_t>::max();
    return (dataEnd - dataStart + rangeSize - 1) / rangeSize;
  }

  // Reads range `range.index`'s bytes (and the one before it) and counts its
  // quotes; false on a fault.
  bool Read(Range& range) const;
  // Scans and converts the records that start in the range, once its start
  // is known.
  void Scan(Range& range) const;

 private:
  void Fail(Range& range, std::string before, bool atRow = false, std::string after = {}) const {
    range.fault = Fault{true, atRow, std::move(before), std::move(after)};
  }
  bool Keep(Range& range, const Record& record, const char* bytes, std::size_t size) const;
  bool IsMissingText(std::string_view field) const {
    return std::find(missingValues.begin(), missingValues.end(), field) != missingValues.end();
  }
  [[gnu::noinline, gnu::cold]] void NotANumber(Range& range, std::size_t slot,
                                               std::string_view field) const {
    Fail(range, fileName + ", row ", true,
         ", column \"" + names[slot] + "\": \"" + std::string(field) + "\" is not a number.");
  }
};

bool Plan::Read(Range& range) const {
  const std::uint64_t begin = dataStart + range.index * rangeSize;
  const std::uint64_t from = begin > dataStart ? begin - 1 : begin;
  const std::size_t wanted = rangeSize + static_cast<std::size_t>(begin - from);
  file->Forget(from);
  range.bytes.resize(wanted + CsvScanner::kPadding);
  const long got = file->ReadAt(range.bytes.data(), wanted, from);
  if (got < 0) {
    Fail(range, fileName + ": cannot be read: " + std::strerror(errno));
    return false;
  }
  const auto size = static_cast<std::size_t>(got);
  range.bytes.resize(size + CsvScanner::kPadding);
  range.bytes.resize(size);
  range.pastEnd = size <= begin - from;
  range.oddQuotes = !range.pastEnd && oddQuotes(range.bytes.data() + (begin - from),
                                                size - (begin - from), dialect.quote);
  return true;
}

bool Plan::Keep(Range& range, const Record& record, const char* bytes, std::size_t size) const {
  const std::size_t width = columns.size();
  if (record.fieldCount != header.size()) {
    const std::size_t column = std::min(record.fieldCount, header.size());
    const std::string name =
        column < header.size() ? header[column] : "#" + std::to_string(column + 1);
    Fail(range, fileName + ", row ", true,
         ", column \"" + name + "\": the row has " + std::to_string(record.fieldCount) +
             " fields where the header has " + std::to_string(header.size()) + ".");
    return false;
  }
  const std::size_t at = range.cases * width;
  if (at + width > range.numbers.size()) {
    const std::size_t grown = std::max(at + width, range.numbers.size() * 2);
    range.numbers.resize(grown);
    range.missing.resize(grown);
    if (anyText) range.texts.resize(grown);
  }
  double* numbers = range.numbers.data() + at;
  unsigned char* missing = range.missing.data() + at;
  const std::string_view* fields = record.fields->data();
  const std::size_t* column = columns.data();
  const unsigned char* isNumeric = numeric.data();
  for (std::size_t slot = 0; slot < width; ++slot) {
    std::string_view field = fields[column[slot]];
    const bool isMissing = onlyEmptyIsMissing ? field.empty() : IsMissingText(field);
    missing[slot] = isMissing ? 1 : 0;
    if (isNumeric[slot] == 0) {
      if (!field.empty() && (field.data() < bytes || field.data() >= bytes + size)) {
        // The scanner's text of a quoted field lasts only until its next record.
        field = range.unquoted.emplace_back(field);
      }
      range.texts[at + slot] = field;
      numbers[slot] = 0;
    } else if (isMissing) {
      numbers[slot] = std::numeric_limits<double>::quiet_NaN();
    } else if (!ParseNumber(field, numbers[slot])) {
      NotANumber(range, slot, field);
      return false;
    }
  }
  ++range.cases;
  return true;
}

void Plan::Scan(Range& range) const {
  if (range.pastEnd) return;
  const std::uint64_t begin = dataStart + range.index * rangeSize;
  const std::uint64_t from = begin > dataStart ? begin - 1 : begin;
  const std::uint64_t end = from + range.bytes.size();
  const char* data = range.bytes.data();
  // The first record starts after the first line end outside quotes at or
  // after the byte before the range.
  std::size_t at = 0;
  if (begin > dataStart) {
    bool inside = range.startsInside;
    std::size_t size = range.bytes.size();
    at = size;
    for (std::size_t i = 0; i + 1 < size; ++i) {
      if (data[i] == dialect.quote && i > 0) inside = !inside;
      if (data[i] == '\n' && !inside) {
        at = i + 1;
        break;
      }
    }
    if (at == size) return;  // no record starts in the range
  }

  CsvScanner scanner(dialect, instructions);
  scanner.Want(columns);
  Bytes* buffer = &range.bytes;
  std::uint64_t bufferStart = from;  // the file offset of the buffer's first byte
  std::size_t size = buffer->size();
  bool endOfFile = false;
  bool stop = false;
  const auto onRecord = [&](const Record& record) {
    if (bufferStart + static_cast<std::uint64_t>(record.begin - buffer->data()) >= end) {
      stop = true;  // the next range's
      return false;
    }
    stop = !Keep(range, record, buffer->data(), size);
    return !stop;
  };
  for (;;) {
    buffer->resize(size + CsvScanner::kPadding);
    const std::size_t used = scanner.Scan(buffer->data() + at, size - at, endOfFile, onRecord);
    if (stop) return;
    if (scanner.Unclosed()) {
      Fail(range, fileName + ", row ", true,
           ": a quoted field is not closed before the end of the file.");
      return;
    }
    at += used;
    if (bufferStart + at >= end || endOfFile) return;
    // The last record goes on beyond the range: read on (as much as there is
    // of it, so that a long one is scanned again only a few times).
    const std::size_t held = size - at;
    if (held >= kLongestRecord) {
      Fail(range, fileName + ": a row is longer than " + std::to_string(kLongestRecord >> 20) +
                      " MB; is a quote left open?");
      return;
    }
    if (buffer == &range.bytes) {
      range.tail.assign(buffer->data() + at, buffer->data() + size);
      bufferStart += at;
      buffer = &range.tail;
      size = held;
      at = 0;
    }
    const std::size_t wanted = std::max(std::min(rangeSize, kTailBlock), held);
    buffer->resize(size + wanted + CsvScanner::kPadding);
    const long got = file->ReadAt(buffer->data() + size, wanted, bufferStart + size);
    if (got < 0) {
      Fail(range, fileName + ": cannot be read: " + std::strerror(errno));
      return;
    }
    endOfFile = got == 0;
    size += static_cast<std::size_t>(got);
  }
}

// The ranges in flight: at most a few per worker ahead of the counting, each
// in the place its index gives it.
class Ranges {
 public:
  Ranges(const Plan& plan, std::size_t workers)
      : plan_(plan), count_(plan.RangeCount()), ranges_(workers == 0 ? 1 : 2 * workers + 2) {
    for (std::size_t i = 0; i < workers; ++i) {
      try {
        threads_.emplace_back([this] { Work(); });
      } catch (const std::system_error&) {
        break;  // no thread to be had: those there are do it, or the caller
      }
    }
  }
  Ranges(const Ranges&) = delete;
  Ranges& operator=(const Ranges&) = delete;
  ~Ranges() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  // Hands back the range read before (if any) and gives the next one in file
  // order; none after the last.
  Range* Next(Range* done) {
    std::unique_lock lock(mutex_);
    if (done != nullptr) {
      if (done->pastEnd) count_ = std::min(count_, done->index);
      done->stage = Range::Stage::kFree;
      changed_.notify_all();
    }
    if (next_ >= count_) return nullptr;
    Range& range = At(next_);
    if (threads_.empty()) {
      Claim(range);
      lock.unlock();
      Process(range);
      lock.lock();
    } else {
      changed_.wait(lock,
                    [&] { return range.index == next_ && range.stage == Range::Stage::kDone; });
    }
    ++next_;
    return &range;
  }

 private:
  Range& At(std::uint64_t index) { return ranges_[index % ranges_.size()]; }

  void Claim(Range& range) {
    range.stage = Range::Stage::kReading;
    range.index = claimed_++;
    range.startKnown = false;
    range.pastEnd = false;
    range.cases = 0;
    range.unquoted.clear();
    range.fault = Fault{};
  }

  // Reads the range, hands its parity down the chain, waits for its start
  // and scans it. Called without the lock.
  void Process(Range& range) {
    bool read = false;
    try {
      read = plan_.Read(range);
    } catch (const std::bad_alloc&) {
      range.fault =
          Fault{true, false, plan_.fileName + ": there is not enough memory to read it.", {}};
    }
    {
      std::unique_lock lock(mutex_);
      range.stage = Range::Stage::kCounted;
      // The chain: the start of the first range whose parity it has not
      // passed yet is known.
      while (chain_ < claimed_ && At(chain_).index == chain_ &&
             At(chain_).stage >= Range::Stage::kCounted) {
        Range& passed = At(chain_);
        passed.startsInside = chainInside_;
        passed.startKnown = true;
        chainInside_ = chainInside_ != passed.oddQuotes;
        ++chain_;
      }
      changed_.notify_all();
      changed_.wait(lock, [&] { return range.startKnown || stop_; });
      if (stop_) return;
    }
    if (read) {
      try {
        plan_.Scan(range);
      } catch (const std::bad_alloc&) {
        range.fault =
            Fault{true, false, plan_.fileName + ": there is not enough memory to read it.", {}};
      }
    }
    const std::lock_guard lock(mutex_);
    range.stage = Range::Stage::kDone;
    changed_.notify_all();
  }

  void Work() {
    for (;;) {
      Range* range = nullptr;
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] {
          return stop_ || claimed_ >= count_ || At(claimed_).stage == Range::Stage::kFree;
        });
        if (stop_ || claimed_ >= count_) return;
        range = &At(claimed_);
        Claim(*range);
      }
      Process(*range);
    }
  }

  const Plan& plan_;
  std::uint64_t count_;
  std::vector<Range> ranges_;
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t claimed_ = 0;  // ranges claimed so far
  std::uint64_t chain_ = 0;    // the first range whose parity the chain has not passed
  bool chainInside_ = false;   // whether that range starts inside quotes
  std::uint64_t next_ = 0;     // the next range handed out
  bool stop_ = false;
};

}  // namespace

struct VORN_CaseReader::Impl {
  std::string error;
  Plan plan;
  std::size_t width = 0;
  std::unique_ptr<Ranges> ranges;
  Range* range = nullptr;
  std::size_t current = 0;        // the current case in the range
  std::uint64_t casesBefore = 0;  // in the ranges before the current one
  bool ended = false;
  std::uint64_t cases = 0;
  std::vector<std::string> texts;  // the current case's string values
  // The values shown before the first case and after the last.
  std::vector<double> noNumbers;
  std::vector<unsigned char> noMissing;

  void End(std::string text) {
    ended = true;
    if (error.empty()) error = std::move(text);
  }

  bool Fail(std::string text) {
    End(std::move(text));
    return false;
  }

  bool ReadHeader();
  bool MatchColumns(const VORN_DataSource& source, const std::vector<int>& variables);

  void MakeCurrent(std::size_t index) {
    current = index;
    if (!plan.anyText) return;
    const std::string_view* fields = range->texts.data() + index * width;
    for (std::size_t slot = 0; slot < width; ++slot) {
      if (plan.numeric[slot] == 0) texts[slot].assign(fields[slot]);
    }
  }
};

bool VORN_CaseReader::Impl::ReadHeader() {
  CsvScanner scanner(plan.dialect, plan.instructions);
  Bytes bytes;
  std::size_t size = 0;
  bool endOfFile = false;
  bool done = false;
  const auto onHeader = [&](const Record& record) {
    plan.header.assign(record.fields->begin(), record.fields->begin() + record.fieldCount);
    done = true;
    return false;
  };
  while (!done) {
    if (!endOfFile) {
      if (size >= kLongestRecord) {
        return Fail(plan.fileName + ": a row is longer than " +
                    std::to_string(kLongestRecord >> 20) + " MB; is a quote left open?");
      }
      const std::size_t wanted = std::max(std::min(plan.rangeSize, kTailBlock), size);
      bytes.resize(size + wanted + CsvScanner::kPadding);
      const long got = plan.file->ReadAt(bytes.data() + size, wanted, size);
      if (got < 0) return Fail(plan.fileName + ": cannot be read: " + std::strerror(errno));
      endOfFile = got == 0;
      size += static_cast<std::size_t>(got);
    }
    bytes.resize(size + CsvScanner::kPadding);
    const std::size_t used = scanner.Scan(bytes.data(), size, endOfFile, onHeader);
    if (scanner.Unclosed()) {
      return Fail(plan.fileName +
                  ", row 1: a quoted field is not closed before the end of the file.");
    }
    if (done) {
      plan.dataStart = used;
    } else if (endOfFile) {
      return Fail(plan.fileName + ": the file has no header row.");
    }
  }
  // A byte order mark is no part of the first name.
  if (!plan.header.empty() && plan.header[0].rfind("\xEF\xBB\xBF", 0) == 0) {
    plan.header[0].erase(0, 3);
  }
  plan.dataEnd = plan.file->Seekable() ? std::max(plan.file->Size(), plan.dataStart) : 0;
  return true;
}

bool VORN_CaseReader::Impl::MatchColumns(const VORN_DataSource& source,
                                         const std::vector<int>& variables) {
  const std::vector<std::string>& header = plan.header;
  for (int index : variables) {
    const VORN_Variable& variable = source.GetVariable(index);
    const std::string name = variable.GetName();
    auto found = std::find(header.begin(), header.end(), name);
    if (found == header.end()) {
      found = std::find_if(header.begin(), header.end(),
                           [&](const std::string& column) { return SameNameAscii(column, name); });
    }
    // Fields describe the columns in order (a schema's rule), so a header as
    // long as the dictionary answers by position for a name it does not hold:
    // an export's "q7/apple" is the dictionary's q7_apple.
    if (found == header.end() && header.size() == source.ColumnCount()) {
      found = header.begin() + index;
    }
    if (found == header.end()) {
      return Fail(plan.fileName + ", row 1, column \"" + name +
                  "\": the header has no such column.");
    }
    plan.columns.push_back(static_cast<std::size_t>(found - header.begin()));
    plan.numeric.push_back(variable.GetType() == 0 ? 1 : 0);
    plan.anyText = plan.anyText || variable.GetType() != 0;
    plan.names.push_back(name);
  }
  return true;
}

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
  Plan& plan = impl.plan;
  plan.fileName = source->path.string();
  plan.dialect = source->dialect;
  plan.instructions =
      reading.vectors ? hostlib::cases::Instructions::kBest : hostlib::cases::Instructions::kScalar;
  plan.oddQuotes = ChooseQuoteCounter(reading.vectors);
  plan.missingValues = source->missingValues;
  plan.onlyEmptyIsMissing = plan.missingValues.size() == 1 && plan.missingValues.front().empty();
  if (reading.rangeBytes > 0) plan.rangeSize = reading.rangeBytes;
  Env& env = reading.env != nullptr ? *reading.env : hostlib::files::DefaultEnv();
  plan.file = std::make_unique<File>(env, source->path);
  if (!plan.file->IsOpen()) {
    impl.End(plan.fileName + ": cannot be opened: " + std::strerror(errno));
    return;
  }
  try {
    if (!impl.ReadHeader() || !impl.MatchColumns(*data, variables)) return;
  } catch (const std::bad_alloc&) {
    impl.End(plan.fileName + ": there is not enough memory to read it.");
    return;
  }
  impl.width = plan.names.size();
  impl.texts.resize(impl.width);
  impl.noNumbers.assign(impl.width, std::numeric_limits<double>::quiet_NaN());
  impl.noMissing.assign(impl.width, 1);
  std::size_t workers = reading.workers;
  if (workers == 0 && reading.readAhead && plan.file->Seekable() &&
      plan.dataEnd - plan.dataStart >= kThreadedBytes) {
    workers = std::min<std::size_t>(std::thread::hardware_concurrency(), kMostWorkers);
    if (workers < 2) workers = 0;
  }
  if (!plan.file->Seekable()) workers = 0;
  impl.ranges = std::make_unique<Ranges>(plan, workers);
}

VORN_CaseReader::~VORN_CaseReader() = default;

bool VORN_CaseReader::NextCase() {
  Impl& impl = *impl_;
  if (impl.ended) return false;
  if (impl.range != nullptr && impl.current + 1 < impl.range->cases) {
    impl.MakeCurrent(impl.current + 1);
    ++impl.cases;
    return true;
  }
  for (;;) {
    if (impl.range != nullptr) {
      const Fault& fault = impl.range->fault;
      if (fault.any) {
        impl.End(fault.atRow
                     ? fault.before + std::to_string(impl.casesBefore + impl.range->cases + 2) +
                           fault.after
                     : fault.before);
        impl.range = nullptr;
        return false;
      }
      impl.casesBefore += impl.range->cases;
    }
    impl.range = impl.ranges->Next(impl.range);
    if (impl.range == nullptr) {
      impl.End({});
      return false;
    }
    if (impl.range->cases > 0) {
      impl.MakeCurrent(0);
      ++impl.cases;
      return true;
    }
  }
}

bool VORN_CaseReader::Failed() const { return !impl_->error.empty(); }
const std::string& VORN_CaseReader::ErrorText() const { return impl_->error; }
std::uint64_t VORN_CaseReader::CaseCount() const { return impl_->cases; }

bool VORN_CaseReader::IsMissing(std::size_t slot) const { return MissingFlags()[slot] != 0; }
double VORN_CaseReader::Number(std::size_t slot) const { return Numbers()[slot]; }
std::string_view VORN_CaseReader::Text(std::size_t slot) const { return impl_->texts[slot]; }
const double* VORN_CaseReader::Numbers() const {
  const Impl& impl = *impl_;
  return impl.range != nullptr ? impl.range->numbers.data() + impl.current * impl.width
                               : impl.noNumbers.data();
}
const unsigned char* VORN_CaseReader::MissingFlags() const {
  const Impl& impl = *impl_;
  return impl.range != nullptr ? impl.range->missing.data() + impl.current * impl.width
                               : impl.noMissing.data();
}
const std::string* VORN_CaseReader::Texts() const { return impl_->texts.data(); }
