// Where in the store what lies.
//
//   <prefix>h/<scope>            the head
//   <prefix>r/<scope>/<number>   a revision, its number in 12 digits, so that their order is that of numbers
//   <prefix>c/<sha256>           a chunk, in hexadecimal digits; immutable
//   <prefix>s/<scope>/<device>   what a device says of itself
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fleet/base/digest.h"

namespace qim::fleet {

class Keys {
 public:
  // A prefix such as "/qim/".
  explicit Keys(std::string prefix) : prefix_(std::move(prefix)) {}

  std::string head(const std::string& scope) const;
  std::string heads() const;  // what all of them begin with
  std::string revision(const std::string& scope, uint64_t number) const;
  std::string revisions(const std::string& scope) const;
  std::string chunk(const Digest& digest) const;
  std::string chunks() const;
  std::string status(const std::string& scope, const std::string& device) const;
  std::string statuses(const std::string& scope) const;

  // What stands behind the last slash: a scope, a number or a device.
  static std::string last_part(std::string_view key);

 private:
  std::string prefix_;
};

// Names of scopes and devices: 1 to 128 letters, digits, '.', '_' and '-', the first one no '.'.
[[nodiscard]] bool is_name(std::string_view name);

}  // namespace qim::fleet
