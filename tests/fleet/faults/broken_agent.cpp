// An agent that is broken on purpose, in one of three ways, so that a checker can show that it would
// notice.
//
//   broken_agent two-commits|unchecked|by-node FILE
//
// FILE: settings as of qimd.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "fleet/agent/agent.h"
#include "fleet/base/backoff.h"
#include "processes/qimd/notify.h"
#include "processes/qimd/options.h"

namespace {

using namespace qim::fleet;

constexpr std::chrono::milliseconds between_commits{40};

class BrokenDevice : public Device {
 public:
  BrokenDevice(const DeviceOptions& options, std::string flaw)
      : Device(options), flaw_(std::move(flaw)) {}

  Held take(const Supply& supply, const Target& target, const std::string& scope) override {
    // The first sync is as it should be; what follows comes in differences.
    if (supply.snapshot) return Device::take(supply, target, scope);
    const Held next{scope, target.number, target.state, 0, {}, 0, {}};
    std::vector<NodeChange> changes;
    for (const std::string& step : supply.differences) {
      for (const NodeChange& change : parse_difference(step)) changes.push_back(change);
    }
    if (flaw_ == "unchecked" && changes.size() > 1) changes.pop_back();
    if (flaw_ == "by-node") {
      for (const NodeChange& change : changes) commit({change}, nullptr);
    }
    if (flaw_ == "two-commits") commit(changes, nullptr);
    std::this_thread::sleep_for(between_commits);
    commit(flaw_ == "unchecked" ? changes : std::vector<NodeChange>(), &next);
    return next;
  }

 private:
  void commit(const std::vector<NodeChange>& changes, const Held* mark) const {
    qimctl::WriteSession writer(database());
    apply_changes(writer, changes);
    if (mark != nullptr) write_mark(writer.handle(), *mark);
    writer.commit();
  }

  std::string flaw_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    const qimd::Options options = qimd::load_options(argv[2]);
    const TrustedKeys publishers = TrustedKeys::load(options.publishers);
    const PrivateKey signer = PrivateKey::load(options.signing_key);
    BrokenDevice device(options.device, argv[1]);
    const std::unique_ptr<Store> store = connect_etcd(options.store);
    Agent agent({device, *store, system_clock(), publishers, signer}, options.agent, random_seed(),
                qimd::say);
    for (;;) {
      agent.work();
      agent.wait(std::chrono::milliseconds(1000));
    }
  } catch (const std::exception& error) {
    fprintf(stderr, "%s\n", error.what());
    return 4;
  }
}
