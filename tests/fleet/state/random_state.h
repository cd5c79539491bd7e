// States made of random numbers, and changed by them.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "fleet/state/state.h"

namespace fleet_test {

using qim::fleet::LinkList;
using qim::fleet::NodeLink;
using qim::fleet::NodeView;
using qim::fleet::State;
using qim::fleet::StateBuilder;
using qim::fleet::WireWriter;

struct OwnNode {
  uint32_t flags = 0;
  std::string dset;
  std::string tlv;
  std::map<uint16_t, NodeLink> links;
};
using OwnState = std::map<uint32_t, OwnNode>;

inline State state_of(const OwnState& nodes) {
  StateBuilder made;
  for (const auto& [id, node] : nodes) {
    WireWriter links;
    for (const auto& [field, link] : node.links) append_link(links, link);
    const std::string bytes = links.take();
    made.add({id, node.flags, node.dset, node.tlv, LinkList(bytes)});
  }
  return made.finish();
}

class RandomStates {
 public:
  explicit RandomStates(uint32_t seed) : random_(seed) {}

  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

  OwnState make(uint32_t nodes) {
    OwnState state;
    while (state.size() < nodes) state[id()] = node();
    return state;
  }
  // Removes, adds and changes a few nodes and links.
  void change(OwnState& state, uint32_t times) {
    for (uint32_t n = 0; n < times; n++) {
      const uint32_t what = below(6);
      if (what == 0 || state.empty()) state[id()] = node();
      if (state.empty()) continue;
      const auto at = std::next(state.begin(), below(static_cast<uint32_t>(state.size())));
      if (what == 1) state.erase(at);
      if (what == 2) at->second.tlv = text(below(40));
      if (what == 3) at->second.dset = at->second.dset.empty() ? text(21) : "";
      if (what == 4) put_link(at->second);
      if (what == 5 && !at->second.links.empty()) {
        at->second.links.erase(std::next(at->second.links.begin(),
                                         below(static_cast<uint32_t>(at->second.links.size()))));
      }
    }
  }

 private:
  uint32_t id() { return below(4) == 0 ? static_cast<uint32_t>(random_()) | 1 : 1 + below(900); }
  std::string text(uint32_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(below(256));
    return bytes;
  }
  void put_link(OwnNode& node) {
    const auto field = static_cast<uint16_t>(below(40) * 1638);
    node.links[field] = {field, static_cast<uint16_t>(below(3)), id(), below(5),
                         below(3) == 0 ? id() : 0};
  }
  OwnNode node() {
    OwnNode made;
    made.flags = below(3) == 0 ? 1 : 0;
    if (below(5) == 0) made.dset = text(21);
    made.tlv = text(below(60));
    for (uint32_t links = below(5); links != 0; links--) put_link(made);
    return made;
  }

  std::mt19937 random_;
};

}  // namespace fleet_test
