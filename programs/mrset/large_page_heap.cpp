#include "programs/mrset/large_page_heap.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace mrset_program {

namespace {

constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;

char* Break() { return static_cast<char*>(::sbrk(0)); }

}  // namespace

// A dictionary of a million variables is tens of megabytes of small objects
// and lists, made, copied and freed within a command. On a virtual machine
// every first touch of a 4 KB page is a costly fault, and memory given back
// after a free is faulted in again at the next allocation. So: one heap,
// reserved at once (address space only: untouched pages cost nothing),
// advised into 2 MB pages, large lists kept in it rather than mapped apart,
// and nothing given back before the end.
void UseLargePageHeap() {
  constexpr int kReserved = 512 << 20;
  constexpr int kLargestInHeap = 32 << 20;  // the allocator's upper bound
  constexpr int kKeptFree = 1 << 30;
  constexpr int kLaterGrowth = 32 << 20;
  if (mallopt(M_TOP_PAD, kReserved) == 0) return;
  mallopt(M_MMAP_THRESHOLD, kLargestInHeap);
  mallopt(M_TRIM_THRESHOLD, kKeptFree);
  char* const before = Break();
  // An allocation the heap's free top cannot hold grows it by the pad
  // (volatile: a compiler may drop an allocation freed unused).
  void* volatile grown = std::malloc(std::size_t{1} << 20);
  std::free(grown);
  char* const after = Break();
  mallopt(M_TOP_PAD, kLaterGrowth);
  if (before == reinterpret_cast<char*>(-1) || after <= before) return;
  const auto start =
      (reinterpret_cast<std::uintptr_t>(before) + kLargePage - 1) & ~(kLargePage - 1);
  const auto end = reinterpret_cast<std::uintptr_t>(after) & ~(kLargePage - 1);
  if (end > start) ::madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

}  // namespace mrset_program
