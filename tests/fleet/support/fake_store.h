// A store in memory that fails when it is told to.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fleet/etcd/store.h"

namespace fleet_test {

// What is shared by all who are connected to it. Safe for several threads.
class FakeStore {
 public:
  FakeStore();
  ~FakeStore();
  FakeStore(const FakeStore&) = delete;
  FakeStore& operator=(const FakeStore&) = delete;

  std::unique_ptr<qim::fleet::Store> connect();

  // What happens to a call instead of what should.
  enum class Fault {
    none,
    unreachable,   // nothing is done, and the caller knows
    lost_request,  // nothing is done, and the caller doesn't know
    lost_answer,   // it is done, and the caller doesn't know
    denied,
    refused
  };
  // Asked before each call: "get", "list", "change" or "watch", and the key. None by default.
  void on_call(std::function<Fault(const std::string& call, const std::string& key)> fault);
  // What a get or a list finds becomes what `lie` makes of it: a proxy that lies.
  void on_answer(std::function<void(qim::fleet::KeyValue& item)> lie);

  // Behind everybody's back.
  void put(const std::string& key, const std::string& value);
  void erase(const std::string& key);
  std::string value(const std::string& key) const;  // "" when there is none
  std::vector<std::string> keys() const;
  size_t calls() const;
  void set_cluster(uint64_t cluster);
  // All watches end, as they do when a member dies.
  void break_watches();
  // The whole store as it is, and back to it: a backup that is restored.
  std::map<std::string, qim::fleet::KeyValue> save() const;
  void restore(std::map<std::string, qim::fleet::KeyValue> items);

 private:
  class Connection;
  class FakeWatch;
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace fleet_test
