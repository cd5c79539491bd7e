// The interfaces that a document names.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "policy/formats/rfc8519/input.h"

namespace qimctl::rfc8519 {

// Finds two interfaces of one input that got the same index, which nothing could tell apart.
class Interfaces {
 public:
  uint32_t index(Notes& notes, const std::string& name, const Value& at);

 private:
  std::map<uint32_t, std::string> names_;
};

}  // namespace qimctl::rfc8519
