// How the platform functions record their calls and learn whether to fail. For this folder only.
#ifndef TESTS_SUPPORT_FAKE_RECORDER_H
#define TESTS_SUPPORT_FAKE_RECORDER_H

#include <cstring>
#include <optional>
#include <utility>

#include "fake.h"

namespace fake::detail {

// Records the call. A value means: return it now, and leave everything else undone.
std::optional<std::uint32_t> enter(Call made);

template <class... A>
std::optional<std::uint32_t> enter(const char* name, const A&... args) {
  return enter(call(name, args...));
}

// The same, keeping a copy of `size` bytes at `data`.
template <class... A>
std::optional<std::uint32_t> enter_with(const void* data, std::size_t size, const char* name,
                                        const A&... args) {
  Call made = call(name, args...);
  if (data != nullptr) {
    made.bytes.resize(size);
    if (size != 0) std::memcpy(made.bytes.data(), data, size);
  }
  return enter(std::move(made));
}

template <class T>
void spoil(T* out) {
  std::memset(static_cast<void*>(out), kGarbage, sizeof *out);
}

// Parts of reset().
void reset_memory();
void reset_nodes();

}  // namespace fake::detail

#endif
