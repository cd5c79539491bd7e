// Commands to the kernel's packet filter, as libnftables takes them in JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "policy/formats/nft/ruleset.h"

namespace qimctl::nft {

// Commands that take effect together.
class Commands {
 public:
  void add_table();
  void delete_table();
  void add_limit(const Limit& limit);
  void delete_limit(std::string_view name);
  void add_chain(const Chain& chain);
  void delete_chain(std::string_view name);
  // Behind all rules of the chain; or in front of the one with that handle, for which the library reads
  // all rules first.
  void append_rule(std::string_view chain, const Rule& rule);
  void insert_rule(std::string_view chain, const Rule& rule, uint64_t handle);
  void delete_rule(std::string_view chain, uint64_t handle);

  size_t count() const { return count_; }
  std::string take();

 private:
  void begin(std::string_view verb, std::string_view what);
  void end() { text_ += "}}}"; }
  void member(std::string_view name, std::string_view value);
  void rule_members(std::string_view chain, const Rule& rule);

  std::string text_;
  size_t count_ = 0;
};

}  // namespace qimctl::nft
