// The platform allocator. GetUB returns zeroed memory (or null); RetUB releases
// it, and equally memory from malloc, strdup or realloc: both use the C heap.
// dmsHeapInit sets the C heap's policy for the daemon's lifetime; call it once,
// before any thread starts. dmsHeapTrim returns free whole pages of the heap to
// the system; any thread, any time.
#pragma once

#include <cstddef>

void* GetUB(size_t size);
void RetUB(void* block);
void dmsHeapInit();
void dmsHeapTrim();
