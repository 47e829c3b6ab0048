#include "hostlib/cases/csv_scanner.h"

#include <bit>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace hostlib::cases {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

struct Masks {
  std::uint64_t quote = 0;
  std::uint64_t delimiter = 0;
  std::uint64_t newline = 0;
};

// One bit per byte of a 64-byte chunk.
__attribute__((always_inline)) inline Masks Classify(const char* chunk, char delimiter,
                                                     char quote) {
  Masks masks;
#ifdef __SSE2__
  const __m128i delimiters = _mm_set1_epi8(delimiter);
  const __m128i quotes = _mm_set1_epi8(quote);
  const __m128i newlines = _mm_set1_epi8('\n');
  for (int i = 0; i < 4; ++i) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(chunk + 16 * i));
    const auto bits = [&](__m128i pattern) {
      return static_cast<std::uint64_t>(
                 static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, pattern))))
             << (16 * i);
    };
    masks.delimiter |= bits(delimiters);
    masks.quote |= bits(quotes);
    masks.newline |= bits(newlines);
  }
#else
  for (int i = 0; i < 64; ++i) {
    const std::uint64_t bit = std::uint64_t{1} << i;
    if (chunk[i] == delimiter) masks.delimiter |= bit;
    if (chunk[i] == quote) masks.quote |= bit;
    if (chunk[i] == '\n') masks.newline |= bit;
  }
#endif
  return masks;
}

// Bit i: the parity of the set bits at and below i (inside quotes after an
// odd number of quote characters).
__attribute__((always_inline)) inline std::uint64_t PrefixXor(std::uint64_t bits) {
  bits ^= bits << 1;
  bits ^= bits << 2;
  bits ^= bits << 4;
  bits ^= bits << 8;
  bits ^= bits << 16;
  bits ^= bits << 32;
  return bits;
}

}  // namespace

CsvScanner::CsvScanner(Dialect dialect, bool vectors) : dialect_(dialect), vectors_(vectors) {}

void CsvScanner::Want(const std::vector<std::size_t>& columns) {
  wantAll_ = columns.empty();
  std::size_t width = 0;
  for (std::size_t column : columns) width = std::max(width, column + 1);
  std::vector<bool> wanted(width, false);
  for (std::size_t column : columns) wanted[column] = true;
  nextWanted_.assign(width + 1, kNone);
  for (std::size_t column = width; column-- > 0;) {
    nextWanted_[column] = wanted[column] ? column : nextWanted_[column + 1];
  }
  fields_.assign(width, {});
  unquoted_.assign(width, {});
}

void CsvScanner::KeepField(std::size_t column, const char* begin, const char* end,
                           bool lastOfRecord) {
  if (lastOfRecord && end > begin && end[-1] == '\r') --end;
  if (NextWanted(column) != column) return;
  if (column >= fields_.size()) {
    fields_.resize(column + 1);
    unquoted_.resize(column + 1);
  }
  if (begin == end || *begin != dialect_.quote) {
    fields_[column] = std::string_view(begin, static_cast<std::size_t>(end - begin));
    return;
  }
  std::string& text = unquoted_[column];
  text.clear();
  for (const char* at = begin + 1; at < end; ++at) {
    if (*at != dialect_.quote) {
      text += *at;
    } else if (at + 1 < end && at[1] == dialect_.quote) {
      text += *at++;
    }
  }
  fields_[column] = text;
}

// Built for several processors; the loader picks the best one that runs here.
// (Clang cannot resolve such clones across a shared library: one build there.)
#if defined(__clang__)
#define MRSET_SCAN_CLONES
#else
#define MRSET_SCAN_CLONES __attribute__((target_clones("avx2", "popcnt", "default")))
#endif
MRSET_SCAN_CLONES std::size_t CsvScanner::Scan(const char* data, std::size_t size, bool final,
                                               const std::function<bool(const Record&)>& onRecord) {
  std::size_t consumed = 0;
  std::size_t column = 0;
  const char* fieldStart = data;
  std::uint64_t insideCarry = 0;  // all ones when a chunk starts inside quotes

  const auto endRecord = [&](const char* end) {
    KeepField(column, fieldStart, end, true);
    const bool blank =
        column == 0 && (end == fieldStart || (end == fieldStart + 1 && *fieldStart == '\r'));
    const std::size_t fieldCount = column + 1;
    column = 0;
    fieldStart = end + 1;
    if (blank) return true;
    if (wantAll_) fields_.resize(fieldCount);
    return onRecord(Record{++recordNumber_, fieldCount, &fields_});
  };

  for (std::size_t base = 0; base < size; base += 64) {
    Masks masks = Classify(data + base, dialect_.delimiter, dialect_.quote);
    if (size - base < 64) {
      const std::uint64_t valid = (std::uint64_t{1} << (size - base)) - 1;
      masks.quote &= valid;
      masks.delimiter &= valid;
      masks.newline &= valid;
    }
    const std::uint64_t inside = PrefixXor(masks.quote) ^ insideCarry;
    insideCarry = (inside >> 63) != 0 ? ~std::uint64_t{0} : 0;
    std::uint64_t structural = (masks.delimiter | masks.newline) & ~inside;
    std::uint64_t newlines = masks.newline & ~inside;

    while (structural != 0) {
      const std::uint64_t beforeNewline =
          newlines != 0 ? (newlines & (~newlines + 1)) - 1 : ~std::uint64_t{0};
      const std::uint64_t run = structural & beforeNewline;
      const std::size_t bit = static_cast<std::size_t>(std::countr_zero(structural));
      if (run != 0) {
        const auto count = static_cast<std::size_t>(std::popcount(run));
        if (NextWanted(column) >= column + count) {
          // None of the fields these delimiters end is wanted.
          column += count;
          fieldStart = data + base + (63 - static_cast<std::size_t>(std::countl_zero(run))) + 1;
          structural &= ~run;
          continue;
        }
        KeepField(column, fieldStart, data + base + bit, false);
        ++column;
        fieldStart = data + base + bit + 1;
      } else {
        newlines &= newlines - 1;
        const bool more = endRecord(data + base + bit);
        consumed = base + bit + 1;
        if (!more) return consumed;
      }
      structural &= structural - 1;
    }
  }
  if (final && consumed < size) {
    if (insideCarry != 0) {
      unclosed_ = true;
      return consumed;
    }
    endRecord(data + size);
    consumed = size;
  }
  return consumed;
}

}  // namespace hostlib::cases
