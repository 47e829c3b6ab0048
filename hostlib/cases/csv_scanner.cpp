#include "hostlib/cases/csv_scanner.h"

#include <algorithm>
#include <bit>
#include <limits>

#if defined(__x86_64__)
#include <immintrin.h>
#define CASES_X86 1
#endif

namespace hostlib::cases {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
// Chunks of 64 bytes classified at a time: the masks stay in the first-level cache.
constexpr std::size_t kChunksPerPass = 64;

// Bit i: the parity of the set bits at and below i (inside quotes after an
// odd number of quote characters).
std::uint64_t PrefixXor(std::uint64_t bits) {
  bits ^= bits << 1;
  bits ^= bits << 2;
  bits ^= bits << 4;
  bits ^= bits << 8;
  bits ^= bits << 16;
  bits ^= bits << 32;
  return bits;
}

// Turns one chunk's raw masks into masks outside quotes; `inside` is all ones
// when the chunk starts inside quotes, and comes back so for the next chunk.
inline ChunkMasks OutsideQuotes(std::uint64_t delimiter, std::uint64_t newline,
                                std::uint64_t quoteParity, std::uint64_t& inside) {
  const std::uint64_t quoted = quoteParity ^ inside;
  inside = (quoted >> 63) != 0 ? ~std::uint64_t{0} : 0;
  return ChunkMasks{(delimiter | newline) & ~quoted, newline & ~quoted};
}

std::uint64_t ClassifyScalar(const char* data, std::size_t chunks, char delimiter, char quote,
                             std::uint64_t inside, ChunkMasks* masks) {
  for (std::size_t chunk = 0; chunk < chunks; ++chunk, data += 64) {
    std::uint64_t quotes = 0;
    std::uint64_t delimiters = 0;
    std::uint64_t newlines = 0;
    for (int i = 0; i < 64; ++i) {
      const std::uint64_t bit = std::uint64_t{1} << i;
      quotes |= data[i] == quote ? bit : 0;
      delimiters |= data[i] == delimiter ? bit : 0;
      newlines |= data[i] == '\n' ? bit : 0;
    }
    masks[chunk] = OutsideQuotes(delimiters, newlines, PrefixXor(quotes), inside);
  }
  return inside;
}

#ifdef CASES_X86
std::uint64_t ClassifySse2(const char* data, std::size_t chunks, char delimiter, char quote,
                           std::uint64_t inside, ChunkMasks* masks) {
  const __m128i delimiters = _mm_set1_epi8(delimiter);
  const __m128i quotes = _mm_set1_epi8(quote);
  const __m128i newlines = _mm_set1_epi8('\n');
  for (std::size_t chunk = 0; chunk < chunks; ++chunk, data += 64) {
    std::uint64_t quoteBits = 0;
    std::uint64_t delimiterBits = 0;
    std::uint64_t newlineBits = 0;
    for (int i = 0; i < 4; ++i) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i));
      const auto bits = [&](__m128i pattern) {
        return static_cast<std::uint64_t>(
                   static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, pattern))))
               << (16 * i);
      };
      delimiterBits |= bits(delimiters);
      quoteBits |= bits(quotes);
      newlineBits |= bits(newlines);
    }
    masks[chunk] = OutsideQuotes(delimiterBits, newlineBits, PrefixXor(quoteBits), inside);
  }
  return inside;
}

// One bit per byte of the 64 in `low` and `high` that equals `pattern`'s.
__attribute__((target("avx2"), always_inline)) inline std::uint64_t Matches(__m256i low,
                                                                            __m256i high,
                                                                            __m256i pattern) {
  const auto lowBits =
      static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(low, pattern)));
  const auto highBits =
      static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(high, pattern)));
  return static_cast<std::uint64_t>(lowBits) | (static_cast<std::uint64_t>(highBits) << 32);
}

__attribute__((target("avx2,pclmul"))) std::uint64_t ClassifyAvx2(const char* data,
                                                                  std::size_t chunks,
                                                                  char delimiter, char quote,
                                                                  std::uint64_t inside,
                                                                  ChunkMasks* masks) {
  const __m256i delimiters = _mm256_set1_epi8(delimiter);
  const __m256i quotes = _mm256_set1_epi8(quote);
  const __m256i newlines = _mm256_set1_epi8('\n');
  for (std::size_t chunk = 0; chunk < chunks; ++chunk, data += 64) {
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + 32));
    const std::uint64_t quoteBits = Matches(low, high, quotes);
    // Multiplying by all ones without carries is the prefix xor.
    const std::uint64_t parity = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_clmulepi64_si128(
        _mm_set_epi64x(0, static_cast<long long>(quoteBits)), _mm_set1_epi8('\xFF'), 0)));
    masks[chunk] =
        OutsideQuotes(Matches(low, high, delimiters), Matches(low, high, newlines), parity, inside);
  }
  return inside;
}
#endif

// Whether text that starts outside quotes ends inside them.
bool EndsInsideQuotes(const char* text, std::size_t size, char quote) {
  return std::count(text, text + size, quote) % 2 != 0;
}

Classifier ChooseClassifier(Instructions wanted) {
#ifdef CASES_X86
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("pclmul");
  switch (wanted) {
    case Instructions::kBest:
    case Instructions::kAvx2:
      return avx2 ? ClassifyAvx2 : ClassifySse2;
    case Instructions::kSse2:
      return ClassifySse2;
    case Instructions::kScalar:
      return ClassifyScalar;
  }
#endif
  (void)wanted;
  return ClassifyScalar;
}

}  // namespace

CsvScanner::CsvScanner(Dialect dialect, Instructions instructions)
    : dialect_(dialect), classify_(ChooseClassifier(instructions)) {}

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

__attribute__((always_inline)) inline void CsvScanner::KeepField(std::size_t column,
                                                                 const char* begin, const char* end,
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
  KeepQuotedField(column, begin, end);
}

void CsvScanner::KeepQuotedField(std::size_t column, const char* begin, const char* end) {
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

// Built for several processors (a population count instruction above all);
// the loader picks the best one that runs here. (Clang cannot resolve such
// clones across a shared library: one build there.)
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
  const char* recordStart = data;
  std::uint64_t inside = 0;  // all ones when the next chunk starts inside quotes
  ChunkMasks masks[kChunksPerPass];

  const auto endRecord = [&](const char* end) {
    KeepField(column, fieldStart, end, true);
    const bool blank =
        column == 0 && (end == fieldStart || (end == fieldStart + 1 && *fieldStart == '\r'));
    const std::size_t fieldCount = column + 1;
    const char* begin = recordStart;
    column = 0;
    fieldStart = end + 1;
    recordStart = fieldStart;
    if (blank) return true;
    if (wantAll_) fields_.resize(fieldCount);
    return onRecord(Record{++recordNumber_, begin, fieldCount, &fields_});
  };

  const std::size_t chunkCount = (size + 63) / 64;
  for (std::size_t firstChunk = 0; firstChunk < chunkCount; firstChunk += kChunksPerPass) {
    const std::size_t chunks = std::min(kChunksPerPass, chunkCount - firstChunk);
    inside = classify_(data + firstChunk * 64, chunks, dialect_.delimiter, dialect_.quote, inside,
                       masks);
    for (std::size_t chunk = 0; chunk < chunks; ++chunk) {
      const std::size_t base = (firstChunk + chunk) * 64;
      std::uint64_t structural = masks[chunk].structural;
      std::uint64_t newlines = masks[chunk].newlines;
      if (size - base < 64) {
        // The bytes past the end are padding.
        const std::uint64_t valid = (std::uint64_t{1} << (size - base)) - 1;
        structural &= valid;
        newlines &= valid;
      }
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
  }
  if (final && consumed < size) {
    // The quote parity carried out of the last chunk counts the padding too.
    if (EndsInsideQuotes(data + consumed, size - consumed, dialect_.quote)) {
      unclosed_ = true;
      return consumed;
    }
    endRecord(data + size);
    consumed = size;
  }
  return consumed;
}

}  // namespace hostlib::cases
