// Memory in large pieces: where the system has large pages for it, looking here and there in it
// costs fewer walks through the page tables. Given back with free().
#ifndef DATABASE_STORE_LARGE_MEMORY_H
#define DATABASE_STORE_LARGE_MEMORY_H

#include <cstddef>

namespace rov {

// NULL when there is none. Small sizes are malloc's and calloc's.
void* large_memory(size_t size);
void* zeroed_memory(size_t size);

}  // namespace rov

#endif
