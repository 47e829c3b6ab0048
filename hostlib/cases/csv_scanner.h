// A CSV scanner (RFC 4180) for large files. A first pass turns each 64 bytes
// into bit masks of the delimiters and line ends outside quotes (vector
// compares, and a carry-less multiply for the quote parity, where the
// processor has them); a second pass walks the masks, skips whole runs of
// fields no one asked for with a population count, and hands over only the
// fields asked for.
//
// Records end at "\n" outside quotes; a "\r" before it is dropped. A quoted
// field may hold delimiters, line ends and doubled quotes. Empty lines are
// skipped. The scanner never holds more than one block and one record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace hostlib::cases {

struct Dialect {
  char delimiter = ',';
  char quote = '"';
  bool header = true;
};

// One record as the scanner hands it over: the number of its fields and the
// text of the fields asked for (quotes removed); other fields are empty.
struct Record {
  std::uint64_t number = 0;     // 1 for the file's first record
  const char* begin = nullptr;  // where the record starts in the data scanned
  std::size_t fieldCount = 0;
  const std::vector<std::string_view>* fields = nullptr;
};

// What the first pass finds in 64 bytes, one bit per byte.
struct ChunkMasks {
  std::uint64_t structural = 0;  // delimiters and line ends outside quotes
  std::uint64_t newlines = 0;    // line ends outside quotes
};

// The first pass over `chunks` chunks of 64 bytes: `inside` is all ones when
// the first starts inside quotes; returns the same for the chunk after them.
using Classifier = std::uint64_t (*)(const char* data, std::size_t chunks, char delimiter,
                                     char quote, std::uint64_t inside, ChunkMasks* masks);

// The instructions the first pass uses. One the processor lacks falls back to
// the best it has below it; every choice gives the same results.
enum class Instructions { kBest, kScalar, kSse2, kAvx2 };

class CsvScanner {
 public:
  // Bytes past the end of the data that Scan may read (they must be readable;
  // their contents do not matter).
  static constexpr std::size_t kPadding = 64;

  explicit CsvScanner(Dialect dialect, Instructions instructions = Instructions::kBest);

  // Which fields to hand over from now on, by zero-based column; an empty
  // list hands over every field (the header).
  void Want(const std::vector<std::size_t>& columns);

  // Scans data[0, size) for whole records and calls `onRecord` for each until
  // it returns false. Returns how many bytes were consumed: the rest starts
  // an unfinished record (at the end of the file, pass `final` so that the
  // last record needs no line end). Sets Unclosed() when `final` data ends
  // inside quotes.
  std::size_t Scan(const char* data, std::size_t size, bool final,
                   const std::function<bool(const Record&)>& onRecord);

  bool Unclosed() const { return unclosed_; }
  std::uint64_t RecordsSeen() const { return recordNumber_; }

 private:
  std::size_t NextWanted(std::size_t column) const {
    if (wantAll_) return column;
    return column < nextWanted_.size() ? nextWanted_[column] : static_cast<std::size_t>(-1);
  }
  void KeepField(std::size_t column, const char* begin, const char* end, bool lastOfRecord);
  void KeepQuotedField(std::size_t column, const char* begin, const char* end);

  Dialect dialect_;
  Classifier classify_;
  bool wantAll_ = true;
  std::vector<std::size_t> nextWanted_;  // per column: the first wanted column at or after it
  std::vector<std::string_view> fields_;
  // Per column: storage for a quoted field. A deque, so that growing it
  // (header fields) leaves the texts that fields_ points at in place.
  std::deque<std::string> unquoted_;
  std::uint64_t recordNumber_ = 0;
  bool unclosed_ = false;
};

}  // namespace hostlib::cases
