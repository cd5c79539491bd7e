// The matches of an entry as members of the model's containers.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/json_print.h"
#include "policy/model/model.h"

namespace qimctl::rfc8519 {

// A member of one of the model's containers.
struct Match {
  uint32_t container = 0;  // the bit of its header; 0 = the matches themselves
  std::string_view field;  // "source-port" where that is a container; else ""
  std::string_view name;
  size_t json_at = 0;  // where its value stands in the text of all
  size_t json_size = 0;
};

struct Matches {
  std::vector<Match> members;           // in the order of their criteria
  std::string text;                     // their values as JSON, one behind the other
  std::deque<std::string> own_names;    // names of members that are no constants
  uint32_t containers = 0;              // a bit for each header that has one, which may be empty
  bool any = false;                     // is there anything to be written?
  uint32_t headers = acl_type_unknown;  // AclType bits of the headers that are matched on
  std::string obstacle;                 // why they can't be written, "" = they can

  // For another entry, in the room that this one leaves.
  void clear();
};

// Those of an entry, in place of what they were.
void sort_matches(const Entry& entry, Matches& matches);
void print_matches(JsonPrinter& printer, const Matches& matches);

}  // namespace qimctl::rfc8519
