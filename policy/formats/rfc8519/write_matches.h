// The matches of an entry as members of the model's containers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/json_print.h"
#include "policy/model/model.h"

namespace qimctl::rfc8519 {

// A member of one of the model's containers, with its value as JSON. Names are constants, but for those
// that `own_name` holds.
struct Match {
  std::string_view header;  // "ipv4"; "" = the matches themselves
  std::string_view field;   // "source-port" where that is a container; else ""
  std::string_view name;
  std::string own_name;
  std::string json;

  std::string_view member() const { return own_name.empty() ? name : std::string_view(own_name); }
};

struct Matches {
  std::vector<Match> members;           // in the order of their criteria
  uint32_t containers = 0;              // a bit for each header that has one, which may be empty
  bool any = false;                     // is there anything to be written?
  uint32_t headers = acl_type_unknown;  // AclType bits of the headers that are matched on
  std::string obstacle;                 // why they can't be written, "" = they can
};

Matches sort_matches(const Entry& entry);
void print_matches(JsonPrinter& printer, const Matches& matches);

}  // namespace qimctl::rfc8519
