// Asking lists about many packets: which entries could match at all is looked up by the packet's values,
// a bit for each entry, and only those are asked.
#pragma once

#include <array>
#include <vector>

#include "policy/trace/evaluate.h"

namespace qimctl {

// Says what a Tracer says, which must live as long as this does.
class Classifier {
 public:
  explicit Classifier(const Tracer& tracer);

  TraceResult trace(const Packet& packet) const;

 private:
  using Bits = std::vector<uint64_t>;
  // The entries that each stretch of a field's values suits: from `edges[i]` up to the next one the
  // words from i * words on.
  struct Table {
    Field field = Field::ethertype;
    std::vector<Wide> edges;
    Bits suits;
  };
  // Some entries of a list; more at once would make tables grow with the square of their number.
  struct Block {
    size_t list = 0;
    size_t first = 0;
    size_t count = 0;
    std::vector<Table> tables;
    std::array<Bits, 6> without;  // the entries that do not need each header
  };
  static constexpr size_t block_entries = 1024;

  static Block make_block(const ListMatcher& matcher, size_t list, size_t first);
  static Table make_table(const ListMatcher& matcher, const Block& block, Field field);
  bool ask(const Block& block, const Packet& packet, TraceResult& result) const;

  const Tracer& tracer_;
  std::vector<Block> blocks_;
};

}  // namespace qimctl
