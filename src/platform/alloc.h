// The platform allocator. GetUB returns zeroed memory (or null); RetUB releases
// it, and equally memory from malloc, strdup or realloc: both use the C heap.
#pragma once

#include <cstddef>

void* GetUB(size_t size);
void RetUB(void* block);
