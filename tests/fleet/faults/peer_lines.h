// The lines between the members of a store, each through a proxy, so that one can be parted from the
// others while whoever uses the store still reaches all.
#pragma once

#include <memory>
#include <vector>

#include "tests/fleet/faults/proxy.h"
#include "tests/fleet/support/cluster.h"

namespace fleet_test {

class PeerLines {
 public:
  // A port that leads to the next member's own one.
  int add(int port) {
    proxies_.push_back(std::make_unique<Proxy>("127.0.0.1:" + std::to_string(port)));
    return proxies_.back()->port();
  }
  // From here on that member hears none of the others and is heard by none: lines end, or are silent.
  void part(const Cluster& cluster, int member, bool silently) const {
    std::vector<pid_t> others;
    for (int n = 0; n < cluster.size(); n++) {
      if (n == member) continue;
      others.push_back(cluster.pid(n));
      proxies_[static_cast<size_t>(n)]->part({cluster.pid(member)}, silently);
    }
    proxies_[static_cast<size_t>(member)]->part(others, silently);
  }
  void join() const {
    for (const auto& proxy : proxies_) proxy->part({}, false);
  }

 private:
  std::vector<std::unique_ptr<Proxy>> proxies_;  // by member
};

}  // namespace fleet_test
