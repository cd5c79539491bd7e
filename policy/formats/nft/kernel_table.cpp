// Counting in what the kernel has.
#include "policy/formats/nft/kernel_table.h"

namespace qimctl::nft {

Count count_of(const KernelTable& table, const std::string& key) {
  Count count;
  for (const KernelChain& chain : table.chains) {
    for (const KernelRule& rule : chain.rules) {
      if (!rule.counts || !rule.tag.starts_with(key)) continue;
      count.is_there = true;
      count.packets += rule.packets;
      count.bytes += rule.bytes;
    }
  }
  return count;
}

}  // namespace qimctl::nft
