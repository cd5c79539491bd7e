// Somebody who publishes revisions of a small policy, in the plainest way.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "fleet/base/signature.h"
#include "fleet/proto/keys.h"
#include "fleet/proto/messages.h"
#include "fleet/state/state.h"
#include "tests/fleet/support/fake_store.h"

namespace fleet_test {

// Nodes that the policy library understands: actions by number, each with a text, and a link to another
// one.
struct SmallPolicy {
  std::map<uint32_t, std::string> actions;
  std::map<uint32_t, uint32_t> links;

  qim::fleet::State state() const;
};

class Publisher {
 public:
  // How a value gets into the store.
  using Put = std::function<void(const std::string& key, const std::string& value)>;
  Publisher(Put put, std::string scope);
  Publisher(FakeStore& store, std::string scope);

  const qim::fleet::TrustedKeys& trusted() const { return trusted_; }
  const qim::fleet::Keys& keys() const { return keys_; }
  const std::string& scope() const { return scope_; }

  // Stores a revision behind the newest one, with a snapshot too if wanted. Its number.
  uint64_t add(const qim::fleet::State& state, bool snapshot);
  // The same with a difference that makes something else than it says.
  uint64_t add_false(const qim::fleet::State& said, const qim::fleet::State& made);
  // Moves the head.
  void move(uint64_t base, uint64_t next, const qim::fleet::Stage& stage = {});
  // To all devices at once.
  uint64_t publish(const qim::fleet::State& state, bool snapshot = false);

  uint64_t last() const { return states_.size(); }
  const qim::fleet::State& state(uint64_t number) const { return states_.at(number - 1); }
  const qim::fleet::Head& head() const { return head_; }
  std::string sealed_head(const qim::fleet::Head& head) const;

 private:
  uint64_t store(const qim::fleet::State& said, const std::string& difference, bool snapshot);

  Put put_;
  std::string scope_;
  qim::fleet::Keys keys_{"/qim/"};
  qim::fleet::PrivateKey key_ = qim::fleet::PrivateKey::generate();
  qim::fleet::TrustedKeys trusted_{{{key_.public_key(), "publisher"}}};
  std::vector<qim::fleet::State> states_;
  uint64_t newest_snapshot_ = 0;
  qim::fleet::Head head_;
};

}  // namespace fleet_test
