// The kernel's packet filter, through libnftables.
#pragma once

#include <memory>
#include <string>

#include "processes/enforce/kernel_reader.h"

struct nft_ctx;

namespace enforce {

class Filter {
 public:
  Filter();

  // All commands take effect together, or none. Throws FilterError.
  void run(const std::string& commands) const;

 private:
  struct Free {
    void operator()(nft_ctx* context) const;
  };
  std::unique_ptr<nft_ctx, Free> context_;
};

}  // namespace enforce
