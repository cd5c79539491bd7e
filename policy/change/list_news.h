// What became of access lists, in words: short, for whoever looks over somebody's shoulder. What
// exactly differs, and which edits make it, is another matter.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "policy/model/model.h"

namespace qimctl {

// What became of one list, or of one policer.
//
//   new, 14 entries                      deleted, it had 14 entries
//   +ssh: ipv4 tcp to any port 22 accept  -iface
//   ftp-eq drop -> reject                ftp-eq: udp -> tcp
//   ssh moved                            default drop -> accept
//   attached to if:eth0/in               detached from if:eth0/in
struct ListNews {
  std::string name;
  std::vector<std::string> what;  // not empty
};

// By the order of `after`, and then what is not there any more.
std::vector<ListNews> list_news(const Model& before, const Model& after);

// "sample-port-acl: -iface, ftp-eq drop -> reject"; behind the first `most` a count of the others.
std::string to_string(const ListNews& change, size_t most);

}  // namespace qimctl
