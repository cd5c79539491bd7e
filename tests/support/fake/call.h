// A call that the library made to the platform, as the tests record and expect it.
#ifndef TESTS_SUPPORT_FAKE_CALL_H
#define TESTS_SUPPORT_FAKE_CALL_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <vector>

#include "rov_types.h"

namespace fake {

// Stands for an argument that an expectation does not fix.
struct Any {};
inline constexpr Any any{};

// An argument: an integer of any width or a pointer, or `any`.
struct Arg {
  std::uint64_t value = 0;
  bool wild = false;

  Arg() = default;
  Arg(Any) : wild(true) {}
  template <class T>
  requires(std::is_integral_v<T> || std::is_enum_v<T> || std::is_pointer_v<T> ||
           std::is_null_pointer_v<T>) Arg(T v)
      : value(word(v)) {}

  friend bool operator==(const Arg& a, const Arg& b) {
    return a.wild || b.wild || a.value == b.value;
  }

 private:
  template <class T>
  static std::uint64_t word(T v) {
    if constexpr (std::is_same_v<T, std::nullptr_t>) {
      return 0;
    } else if constexpr (std::is_pointer_v<T>) {
      return reinterpret_cast<std::uintptr_t>(v);
    } else {
      return static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<T>>(v));
    }
  }
};

// `bytes` holds what an input pointer led to at the time of the call, where the recording function
// says so; it takes no part in comparisons.
struct Call {
  std::string name;
  std::vector<Arg> args;
  std::vector<std::uint8_t> bytes;

  std::uint32_t u32(std::size_t i) const { return static_cast<std::uint32_t>(args.at(i).value); }
  template <class T>
  T* pointer(std::size_t i) const {
    return reinterpret_cast<T*>(static_cast<std::uintptr_t>(args.at(i).value));
  }

  friend bool operator==(const Call& a, const Call& b) {
    return a.name == b.name && a.args == b.args;
  }
};
void PrintTo(const Call& call, std::ostream* os);

using Calls = std::vector<Call>;

inline void append(std::vector<Arg>& args, const rov_node_id_t& id) {
  for (const std::uint32_t word : id.word) args.emplace_back(word);
}
inline void append(std::vector<Arg>& args, const Arg& arg) {
  args.push_back(arg);
}

// A call with these arguments. A database identifier takes four places, one for each of its words,
// whether the function takes it by value or by address.
template <class... A>
Call call(const char* name, const A&... args) {
  Call made{name, {}, {}};
  (append(made.args, args), ...);
  return made;
}

}  // namespace fake

#endif
