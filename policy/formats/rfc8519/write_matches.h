// The matches of an entry as members of the model's containers.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "policy/base/json_print.h"
#include "policy/model/model.h"

namespace qimctl::rfc8519 {

// Members with their values as JSON, by the container that holds them: "" = the matches, "ipv4",
// "tcp/source-port". A container may be empty.
using Containers = std::map<std::string, std::vector<std::pair<std::string, std::string>>>;

struct Matches {
  Containers containers;
  uint32_t headers = acl_type_unknown;  // AclType bits of the headers that are matched on
  std::string obstacle;                 // why they can't be written, "" = they can
};

Matches sort_matches(const Entry& entry);
void print_matches(JsonPrinter& printer, const Containers& containers);

}  // namespace qimctl::rfc8519
