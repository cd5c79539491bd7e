// The interfaces that a file names.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "policy/base/criteria_codes.h"
#include "policy/formats/parts/notes.h"
#include "policy/model/name_hash.h"

namespace qimctl::formats {

// Finds two interfaces of one input that got the same index, which nothing could tell apart.
class Interfaces {
 public:
  // `at` is a Value or a Place.
  template <typename At>
  uint32_t index(Notes& notes, const std::string& name, const At& at) {
    const uint32_t index = interface_index(name);
    const std::string& known = names_.emplace(index, name).first->second;
    if (known != name) notes.problem(at, clash(name, known));
    return index;
  }

  // Of the type for interfaces that packets come in by, or go out by.
  template <typename At>
  Criterion criterion(Notes& notes, uint32_t type, const std::string& name, const At& at) {
    return criterion_of(type, index(notes, name, at), name);
  }

 private:
  static std::string clash(const std::string& name, const std::string& known);
  static Criterion criterion_of(uint32_t type, uint32_t index, const std::string& name);

  std::map<uint32_t, std::string> names_;
};

}  // namespace qimctl::formats
