// The policy that is measured: nodes of every type, made from a seed, so that every run has the
// same.
#ifndef BENCH_POLICY_H
#define BENCH_POLICY_H

#include <cstdint>
#include <vector>

#include "qim.h"

namespace bench {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kArgBytes = 8;  // of each criterion, action and default

// A node's record with all that hangs on it.
class Record {
 public:
  Record(uint32_t type, uint32_t criteria, uint32_t seed);
  Record(Record&&) = default;
  Record& operator=(Record&&) = default;
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  const qim_node_t& node() const { return node_; }
  Bytes tlv() const;

 private:
  qim_node_t node_ = {};
  std::vector<qim_criterion_t> criteria_;
  std::vector<uint8_t> args_;
};

// A node as it is written into a database.
struct Image {
  qim_node_id_t id = 0;
  Bytes tlv;
  Bytes name;
  std::vector<qim_link_t> links;
};

// What a database holds: blocks of ten nodes, one of each type in the order of `kTypes`. The last
// two of a block are a policy instance and its enforcement destination in every block whose number
// is a multiple of `named_every`, and filters in the others.
struct Plan {
  uint32_t nodes = 0;
  uint32_t named_every = 1;
  uint32_t criteria = 4;  // of each filter
  uint32_t reach = 0;     // how far away the links lead at most; 0: anywhere
};

constexpr uint32_t kBlock = 10;
constexpr uint32_t kPinstAt = 8;
constexpr uint32_t kEdestAt = 9;
constexpr uint32_t kTypes[kBlock] = {
    QIM_NODE_FILTER, QIM_NODE_ACTION, QIM_NODE_IFELSE, QIM_NODE_HFILTER, QIM_NODE_HACTION,
    QIM_NODE_POLICE, QIM_NODE_GROUP,  QIM_NODE_DEF,    QIM_NODE_PINST,   QIM_NODE_EDEST};
const char* type_name(uint32_t type);

constexpr qim_node_id_t id_at(uint32_t index) {
  return 0x00300001 + index;
}
Image image_at(const Plan& plan, uint32_t index);
// The place of the enforcement destination of that index.
qim_policy_dest_t place_of(uint32_t index);

// The name under which it or its policy instance is published: alike but for the place.
Bytes name_at(const qim_policy_dest_t& place);

// Numbers that look random: 0 <= next(n) < n.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 2 + 1) {}
  uint32_t next(uint32_t below) {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<uint32_t>(((state_ >> 32) * below) >> 32);
  }

 private:
  uint64_t state_;
};

}  // namespace bench

#endif
