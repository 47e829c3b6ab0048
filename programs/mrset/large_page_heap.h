// The program's heap in 2 MB pages.
#pragma once

namespace mrset_program {

// Reserves the heap once, large, in pages of 2 MB where the system grants
// them, and keeps freed memory for reuse. Call first thing in main, before
// any large allocation; harmless where the allocator is not the C library's.
void UseLargePageHeap();

}  // namespace mrset_program
