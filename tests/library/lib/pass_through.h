// The operations that the library only passes on, as rows: what is exported, what it calls, and how
// to call it with arguments that can be told apart.
#ifndef TESTS_LIBRARY_LIB_PASS_THROUGH_H
#define TESTS_LIBRARY_LIB_PASS_THROUGH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <vector>

#include "tests/support/fake/call.h"

namespace lib_tests {

// What pointer arguments lead to: a buffer for each place, all of one byte that tells the place.
class Memory {
 public:
  // The bytes of place n are `first` + n.
  void fill(std::uint8_t first);
  bool holds(std::uint8_t first) const;
  void* at(std::size_t place) { return places_.at(place).data(); }

 private:
  static constexpr std::size_t kRoom = 512;  // no record that an operation takes is larger

  alignas(std::max_align_t) std::array<std::array<std::uint8_t, kRoom>, 8> places_{};
};

struct PassThrough {
  const char* name;
  const char* target;
  // Calls it with different values that use their whole width, pointers into the memory; tells what
  // they were.
  std::uint32_t (*call)(Memory& memory, std::vector<fake::Arg>* args);
  // Makes of those what the platform must get; NULL when it is the same.
  void (*adjust)(std::vector<fake::Arg>* args) = nullptr;
  // Whether the target's result is an answer and no status.
  bool answers = false;
  // Whether it needs the context, and so a thread that has one.
  bool needs_context = false;

  fake::Call expected(std::vector<fake::Arg> args) const;
};
void PrintTo(const PassThrough& row, std::ostream* os);

std::span<const PassThrough> pass_throughs();

// Whatever a context can hold for the library's handle.
inline constexpr std::uint32_t kContextLib = 0x71b71b71;

}  // namespace lib_tests

#endif
