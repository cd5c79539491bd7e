// A scope as who publishes sees it: its head, its revisions, and how the head is moved.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/base/clock.h"
#include "fleet/etcd/store.h"
#include "fleet/proto/keys.h"
#include "fleet/proto/messages.h"
#include "fleet/state/state.h"

namespace qim::fleet {

// What was asked for can't be done as things stand; nothing was changed.
struct RefusedError : Error {
  using Error::Error;
};
// There is no such scope or revision.
struct AbsentError : Error {
  using Error::Error;
};

struct Publisher {
  Store& store;
  Keys keys;
  TrustedKeys trusted;         // publishers, this one among them
  const TrustedKeys* devices;  // NULL: a device may sign with any key
  const PrivateKey* key;       // NULL: it only reads
  std::string author;
  Clock& clock = system_clock();
  uint32_t tries = 8;  // of what is not known to have been done
};

struct StoredHead {
  Head head;
  int64_t modified = 0;  // what a change of it is conditional on, 0 = there is none yet
};

// A revision's difference as it was before it was compressed. Throws ForgedError.
std::string difference_of(const Revision& revision);

class Scope {
 public:
  // Throws ConfigError for a name that is none.
  Scope(const Publisher& publisher, const std::string& name);

  const std::string& name() const { return name_; }
  const Publisher& publisher() const { return publisher_; }

  // One of sequence 0 when there is none. Throws StoreError and ForgedError, as all that follow.
  StoredHead head() const;
  // Throws AbsentError when there is none.
  StoredHead require_head() const;
  Revision revision(uint64_t number) const;  // throws AbsentError
  std::vector<Revision> revisions() const;   // all, by their numbers

  // The state of a revision, from the newest snapshot before it on. Its digest is right. 0 = that of an
  // empty database.
  State state(uint64_t number) const;

  // Makes `moved` the head, and with it `revision` if there is one, unless somebody moved the head
  // since `before` was read: then it throws RefusedError. It is done once, however often answers are
  // lost; StoreError says that its fate is not known.
  void move(const StoredHead& before, Head moved, const Revision* revision = nullptr) const;

  // Stores the bytes in pieces that are named by their digests, those alone that are not there yet.
  std::vector<Chunk> store_chunks(const State& state) const;

 private:
  bool is_ours(const Write& written) const;
  void store_chunk(const Chunk& chunk, const std::string& stored) const;

  const Publisher& publisher_;
  std::string name_;
};

}  // namespace qim::fleet
