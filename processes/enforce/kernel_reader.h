// What the kernel has of the packet filter's table.
//
// It is asked directly: the library that commands go through decodes whole rules when it lists them,
// and ends the process for some that are well-formed. Only what tells rules apart is looked at here.
#pragma once

#include <stdexcept>
#include <string>

#include "policy/formats/nft/kernel_table.h"

namespace enforce {

// The kernel, or the library, has refused.
class FilterError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A table of the netdev family as it is; nothing in it when there is none. Throws FilterError.
qimctl::nft::KernelTable read_kernel(const std::string& name = qimctl::nft::table_name);

}  // namespace enforce
