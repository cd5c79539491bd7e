// What the store has of a revision that is to be taken, checked as far as its signatures and digests go.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fleet/agent/machine.h"
#include "fleet/etcd/store.h"
#include "fleet/proto/keys.h"
#include "fleet/state/state.h"

namespace qim::fleet {

// How to come from what is held to the target: differences alone, or a whole state first.
struct Supply {
  std::optional<State> snapshot;
  std::vector<std::string> differences;  // in the order in which they are applied
};

struct Source {
  Store& store;
  const Keys& keys;
  const TrustedKeys& trusted;
  const std::string& scope;
  const Head* head = nullptr;  // what it carries is not asked for
};

// What is missing, though the store could be reached: somebody withholds it, or it comes later.
class MissingError : public Error {
 public:
  using Error::Error;
};

// Throws StoreError, ForgedError and MissingError.
Supply fetch(const Source& source, const Target& target, const Held& held);

}  // namespace qim::fleet
