// The access-list model as far as nodes can carry it: what the reader finds in the input and the
// mapper turns into nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "policy/base/criteria_codes.h"
#include "policy/base/policy.h"

namespace qimctl::rfc8519 {

// An entry (ACE). `path` is a JSON pointer, here and below.
struct Entry {
  std::string path;
  std::string name;
  std::vector<Criterion> criteria;  // all must hold; in ascending order of type, one of a type
  ActionType forwarding = ActionType::drop;
  bool log = false;
};

struct AccessList {
  std::string path;
  std::string name;
  uint32_t type = acl_type_unknown;  // AclType bits
  std::vector<Entry> entries;        // in the order in which they are tried
};

// An access list applied to an interface in one direction.
struct Attachment {
  std::string path;
  std::string list;  // its name
  std::string interface;
  uint8_t dir = QIM_DIR_IN;  // or dir_out
  uint32_t stage = 1;        // its place among the lists of that interface and direction
};

struct Model {
  std::vector<AccessList> lists;
  std::vector<Attachment> attachments;
};

}  // namespace qimctl::rfc8519
