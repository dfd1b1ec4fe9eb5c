// Zeroing allocator over the C heap; see alloc.h.
#include "platform/alloc.h"

#include <cstdlib>

void* GetUB(size_t size) {
  return calloc(1, size ? size : 1);
}

void RetUB(void* block) {
  free(block);
}
