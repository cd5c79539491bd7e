// What a fleet keeps in the store, and its bytes.
//
// All that is found there is signed: the payload's bytes are kept as they were signed, and nobody
// encodes them anew. What seal_*() gives is a value of the store; open_*() gives what it says once its
// signature is that of a trusted key and it says that it belongs where it was found, so that neither a
// changed value nor one that was swapped for another passes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/base/digest.h"
#include "fleet/base/signature.h"

namespace qim::fleet {

// What values may be, encoded; the store takes 1.5 MiB.
inline constexpr size_t most_value = 1024 * 1024 + 256 * 1024;
inline constexpr size_t most_chunk = 512 * 1024;  // stored
// What a head carries goes to every device, also to those that take it later.
inline constexpr size_t most_carried = 4096;

struct Chunk {
  Digest digest{};     // of the stored bytes, which it lies under
  uint64_t size = 0;   // of these
  uint64_t plain = 0;  // decompressed
};

// A state of the policy, and how it comes from another one. There is a difference, or a snapshot, or
// both.
struct Revision {
  std::string scope;
  uint64_t number = 0;       // from 1
  uint64_t predecessor = 0;  // 0 = the empty database
  Digest predecessor_state{};
  Digest state{};
  bool has_difference = false;
  std::string difference;         // compressed
  uint64_t difference_plain = 0;  // its length decompressed
  bool has_snapshot = false;
  std::vector<Chunk> snapshot;   // in their order
  uint64_t newest_snapshot = 0;  // on the way of predecessors, this one included; 0 = none
  uint64_t chain_bytes = 0;      // of the differences since then
  std::string author;
  int64_t time = 0;
  std::string message;
};

// Which devices take the next revision.
struct Stage {
  uint32_t percent = 0;             // of all, by their names and the salt
  std::vector<std::string> labels;  // and those that bear one of these
  std::string salt;
  bool hold = false;  // nobody takes it who has not taken it yet
  uint32_t max_failures = 0;
  uint32_t confirm_seconds = 0;  // a device goes back that reaches nobody for so long; 0 = never
};

// Where a scope stands. Base is what devices hold that do not take next; both are the same when all
// is rolled out. Its sequence only ever grows, also when a rollback makes the numbers smaller.
struct Head {
  std::string scope;
  uint64_t sequence = 0;
  uint64_t last = 0;  // the highest number of a revision
  uint64_t base = 0;  // 0 = none: a device stays as it is
  Digest base_state{};
  uint64_t next = 0;
  Digest next_state{};
  Stage stage;
  std::string author;
  int64_t time = 0;
  std::string what;     // "push", "rollback", ... for people
  std::string carried;  // the next revision's value, which saves a question; may be ""
};

// What a device says of itself.
struct Status {
  std::string scope;
  std::string device;
  uint64_t sequence = 0;  // of what it said
  uint64_t applied = 0;   // 0 = nothing yet
  Digest state{};
  uint64_t refused = 0;  // 0 = none
  std::string reason;
  int64_t away_since = 0;  // until when it reached the store, before it came back; 0 = never away
  bool drifted = false;
  std::string drift;     // how
  std::string database;  // its identity
  std::vector<std::string> labels;
  uint64_t head_sequence = 0;  // of the head that it goes by
  int64_t time = 0;
  std::string version;
};

std::string seal_revision(const Revision& revision, const PrivateKey& key);
std::string seal_head(const Head& head, const PrivateKey& key);
std::string seal_status(const Status& status, const PrivateKey& key);

// All throw ForgedError.
Revision open_revision(std::string_view value, const TrustedKeys& trusted, const std::string& scope,
                       uint64_t number);
Head open_head(std::string_view value, const TrustedKeys& trusted, const std::string& scope);
// `signer`, if any, becomes the key that signed it. Without `trusted` any key may, and it is up to the
// caller whether that is the device's.
Status open_status(std::string_view value, const TrustedKeys* trusted, const std::string& scope,
                   const std::string& device, KeyBytes* signer = nullptr);

// The contents of a chunk. Throws ForgedError unless the stored bytes are those of its digest.
std::string open_chunk(const Chunk& chunk, std::string_view stored);

}  // namespace qim::fleet
