// Digests of states and of databases.
#include "fleet/state/state_digest.h"

#include "fleet/state/database_state.h"

namespace qim::fleet {

namespace {

constexpr uint32_t block_bits = 8;

uint32_t block_of(uint32_t node) {
  return node >> block_bits;
}

Digest combined(const std::map<uint32_t, Digest>& blocks) {
  Sha256 all;
  all.add("qim state 1\n");
  for (const auto& [number, digest] : blocks) {
    WireWriter out;
    out.u32(number);
    out.bytes(to_bytes(digest));
    all.add(out.take());
  }
  return all.finish();
}

// Digests of blocks from nodes that come in their order.
class Blocks {
 public:
  explicit Blocks(std::map<uint32_t, Digest>& blocks) : blocks_(blocks) {}
  void add(const NodeView& node) {
    if (!bytes_.empty() && block_of(node.id) != number_) finish();
    number_ = block_of(node.id);
    WireWriter out;
    append_node(out, node);
    bytes_ += out.take();
  }
  void finish() {
    if (!bytes_.empty()) blocks_[number_] = sha256(bytes_);
    bytes_.clear();
  }

 private:
  std::map<uint32_t, Digest>& blocks_;
  uint32_t number_ = 0;
  std::string bytes_;
};

}  // namespace

Digest state_digest(const State& state) {
  std::map<uint32_t, Digest> blocks;
  size_t begin = 0;
  for (size_t n = 1; n <= state.size(); n++) {
    const uint32_t block = block_of(state.at(begin).id);
    if (n < state.size() && block_of(state.at(n).id) == block) continue;
    blocks[block] = sha256(state.records(begin, n));
    begin = n;
  }
  return combined(blocks);
}

void BlockDigests::read(uint32_t session) {
  blocks_.clear();
  Blocks made(blocks_);
  each_stored(session, 0, UINT32_MAX, [&](const NodeView& node) { made.add(node); });
  made.finish();
}

void BlockDigests::refresh(uint32_t session, const std::vector<uint32_t>& nodes) {
  bool any = false;
  uint32_t done = 0;
  for (const uint32_t node : nodes) {
    const uint32_t block = block_of(node);
    if (any && block == done) continue;
    any = true;
    done = block;
    blocks_.erase(block);
    Blocks made(blocks_);
    const uint32_t first = block << block_bits;
    each_stored(session, first, first | ((1U << block_bits) - 1),
                [&](const NodeView& there) { made.add(there); });
    made.finish();
  }
}

Digest BlockDigests::digest() const {
  return combined(blocks_);
}

}  // namespace qim::fleet
