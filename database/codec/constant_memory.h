// Memory whose contents can be relied on for as long as the process lives.
#ifndef DATABASE_CODEC_CONSTANT_MEMORY_H
#define DATABASE_CODEC_CONSTANT_MEMORY_H

#include <cstddef>

namespace rov {

// Whether the `len` bytes at `data` lie in a part of the program, or of a shared object, that is
// only read once the object is loaded. If so, the object stays loaded until the process ends.
bool stays_constant(const void* data, size_t len);

}  // namespace rov

#endif
