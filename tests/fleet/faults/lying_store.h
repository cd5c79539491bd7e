// A proxy of the store that speaks its language, and says of what it was asked for what it likes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "fleet/etcd/client.h"

namespace fleet_test {

enum class Lie {
  none,
  changed,   // a bit of a value
  old,       // what the key had before
  swapped,   // what another key has
  withheld,  // nothing
};

class LyingStore {
 public:
  // Answers on a port of loopback, without certificates, by what those members say.
  LyingStore(const qim::fleet::EtcdOptions& members, uint64_t seed);
  ~LyingStore();
  LyingStore(const LyingStore&) = delete;
  LyingStore& operator=(const LyingStore&) = delete;

  std::string endpoint() const;
  // Half of what it says from here on.
  void tell(Lie lie);
  uint64_t lies() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace fleet_test
