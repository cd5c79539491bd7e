// Counting in what the kernel has.
#include "policy/formats/nft/kernel_table.h"

#include "policy/formats/nft/names.h"

namespace qimctl::nft {

std::map<std::string, Count> counts_of(const KernelTable& table) {
  std::map<std::string, Count> counts;
  for (const KernelChain& chain : table.chains) {
    for (const KernelRule& rule : chain.rules) {
      if (!rule.counts) continue;
      Count& count = counts[rule.tag.substr(0, key_length)];
      count.packets += rule.packets;
      count.bytes += rule.bytes;
    }
  }
  return counts;
}

}  // namespace qimctl::nft
