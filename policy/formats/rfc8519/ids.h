// Numbers that names stand for: node identifiers of an access list, and interface indexes. They are
// functions of the names alone, so that the same name has the same number in every file and every
// run, and different files hardly ever want the same number for different names.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "policy/formats/rfc8519/input.h"

namespace qimctl::rfc8519 {

// A well-mixed 32-bit hash: FNV-1a (draft-eastlake-fnv), then the 32-bit finalizer of MurmurHash3,
// which spreads the last characters over all bits.
uint32_t name_hash(std::string_view name);

// Hands out blocks of consecutive node identifiers, one for each access list. All have bit 31 set,
// which keeps them apart from the library's private identifiers and from small ones chosen by hand.
class IdBlocks {
 public:
  // The first identifier of a block of `count` (1 to 2^30) for the list called `name`.
  uint32_t take(std::string_view name, uint32_t count);

 private:
  bool is_free(uint32_t first, uint32_t last) const;

  std::map<uint32_t, uint32_t> taken_;  // first to last identifier of each block
};

// The index that stands for an interface, 1 to 0x7fffffff.
uint32_t interface_index(std::string_view name);

// Finds two interfaces of one input that got the same index, which nothing could tell apart.
class Interfaces {
 public:
  uint32_t index(Notes& notes, const std::string& name, const std::string& path);

 private:
  std::map<uint32_t, std::string> names_;
};

}  // namespace qimctl::rfc8519
