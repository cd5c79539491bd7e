#include "tests/fleet/agent/publisher.h"

#include "fleet/base/compression.h"
#include "fleet/state/difference.h"
#include "fleet/state/state_digest.h"
#include "policy/store/store_policy.h"

namespace fleet_test {

using namespace qim::fleet;

State SmallPolicy::state() const {
  StateBuilder made;
  for (const auto& [id, text] : actions) {
    qimctl::Node node;
    node.id = id;
    node.record.type = QIM_NODE_ACTION;
    node.args.assign(text.begin(), text.end());
    const std::vector<uint8_t> tlv = qimctl::encode_node(node);
    WireWriter list;
    const auto link = links.find(id);
    if (link != links.end() && actions.contains(link->second)) {
      append_link(list, {0x8082, 0, link->second, 0, 0});
    }
    const std::string bytes = list.take();
    made.add({id, qimctl::database_flags(node), "", std::string(tlv.begin(), tlv.end()),
              LinkList(bytes)});
  }
  return made.finish();
}

Publisher::Publisher(Put put, std::string scope) : put_(std::move(put)), scope_(std::move(scope)) {
  head_.scope = scope_;
}

Publisher::Publisher(FakeStore& store, std::string scope)
    : Publisher(
          [&store](const std::string& key, const std::string& value) { store.put(key, value); },
          std::move(scope)) {}

uint64_t Publisher::add(const State& state, bool snapshot) {
  return store(state, difference(states_.empty() ? State() : states_.back(), state), snapshot);
}

uint64_t Publisher::add_false(const State& said, const State& made) {
  return store(said, difference(states_.empty() ? State() : states_.back(), made), false);
}

uint64_t Publisher::store(const State& said, const std::string& difference, bool snapshot) {
  Revision revision;
  revision.scope = scope_;
  revision.number = last() + 1;
  revision.predecessor = last();
  revision.predecessor_state = state_digest(states_.empty() ? State() : states_.back());
  revision.state = state_digest(said);
  revision.has_difference = true;
  revision.difference = compress(difference);
  revision.difference_plain = difference.size();
  if (snapshot) {
    revision.has_snapshot = true;
    newest_snapshot_ = revision.number;
    for (const std::string_view piece : cut_pieces(said)) {
      const std::string stored = compress(piece);
      const Chunk chunk{sha256(stored), stored.size(), piece.size()};
      put_(keys_.chunk(chunk.digest), stored);
      revision.snapshot.push_back(chunk);
    }
  }
  revision.newest_snapshot = newest_snapshot_;
  put_(keys_.revision(scope_, revision.number), seal_revision(revision, key_));
  states_.push_back(said);
  return revision.number;
}

std::string Publisher::sealed_head(const Head& head) const {
  return seal_head(head, key_);
}

void Publisher::move(uint64_t base, uint64_t next, const Stage& stage) {
  head_.sequence++;
  head_.last = last();
  head_.base = base;
  head_.next = next;
  if (base != 0) head_.base_state = state_digest(state(base));
  head_.next_state = state_digest(state(next));
  head_.stage = stage;
  put_(keys_.head(scope_), sealed_head(head_));
}

uint64_t Publisher::publish(const State& state, bool snapshot) {
  const uint64_t number = add(state, snapshot);
  move(number, number);
  return number;
}

}  // namespace fleet_test
