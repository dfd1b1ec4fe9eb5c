// Zeroing allocator over the C heap, and the heap policy of a long-running
// daemon; see alloc.h.
#include "platform/alloc.h"

#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

// One heap arena per core of the gateway, however many threads the stacks run.
constexpr int kArenaMax = 2;

}  // namespace

void* GetUB(size_t size) {
  return calloc(1, size ? size : 1);
}

void RetUB(void* block) {
  free(block);
}

void dmsHeapInit() {
#if defined(__GLIBC__)
  // glibc gives threads of the UPnP and media stacks arenas of their own (up
  // to eight per core on 64-bit); Browse results and SOAP texts of 100 KB
  // come and go in each, and their holes pin pages in all of them. A 10-minute
  // soak grew 29% over a live heap under 1 MB; two arenas keep it near 5%. A
  // fixed mmap threshold on top flattened it further but made every large
  // Browse answer an mmap/munmap pair, a quarter of the Browse rate.
  mallopt(M_ARENA_MAX, kArenaMax);
#endif
}
