// Messages and their bytes; the only source that sees what is generated of fleet.proto.
#include "fleet/proto/messages.h"

#include <fleet.pb.h>

#include "fleet/base/compression.h"
#include "fleet/base/error.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

// A chunk is not believed to become more than this, whatever it says.
constexpr size_t most_plain = 64u * 1024 * 1024;

constexpr const char* revision_kind = "revision";
constexpr const char* head_kind = "head";
constexpr const char* status_kind = "status";

[[noreturn]] void refuse(const std::string& what, const std::string& why) {
  throw ForgedError(what + " " + why + "; it is not used");
}

std::string bytes_of(const google::protobuf::Message& message) {
  std::string bytes;
  message.SerializeToString(&bytes);
  return bytes;
}

std::string seal(const google::protobuf::Message& message, const char* kind,
                 const PrivateKey& key) {
  wire::Signed sealed;
  sealed.set_payload(bytes_of(message));
  sealed.set_key(to_bytes(key.public_key()));
  sealed.set_signature(key.sign(kind, sealed.payload()));
  return bytes_of(sealed);
}

// The signed bytes become `message`. `what` names the value in what is said.
KeyBytes open(std::string_view value, const TrustedKeys* trusted, const char* kind,
              const std::string& what, google::protobuf::Message& message) {
  wire::Signed sealed;
  KeyBytes key{};
  if (value.size() > most_value ||
      !sealed.ParseFromArray(value.data(), static_cast<int>(value.size())) ||
      !from_bytes(sealed.key(), key))
    refuse(what, "is no signed value");
  if (trusted != nullptr && trusted->find(key) == nullptr)
    refuse(what, "is signed by key " + short_hex(key) + ", which is not trusted");
  if (!verify(key, kind, sealed.payload(), sealed.signature()))
    refuse(what, "has a wrong signature");
  if (!message.ParseFromString(sealed.payload())) refuse(what, "is signed, but damaged");
  return key;
}

void take_digest(const std::string& bytes, const std::string& what, Digest& digest) {
  if (!from_bytes(bytes, digest)) refuse(what, "has a digest of a wrong length");
}

void take_place(const std::string& scope, const std::string& wanted, const std::string& what) {
  if (scope != wanted) refuse(what, "says that it belongs to " + qimctl::quoted(scope));
}

wire::Stage to_wire(const Stage& stage) {
  wire::Stage to;
  to.set_percent(stage.percent);
  for (const std::string& label : stage.labels) to.add_labels(label);
  to.set_salt(stage.salt);
  to.set_hold(stage.hold);
  to.set_max_failures(stage.max_failures);
  to.set_confirm_seconds(stage.confirm_seconds);
  return to;
}

Stage from_wire(const wire::Stage& stage) {
  return {.percent = stage.percent(),
          .labels = {stage.labels().begin(), stage.labels().end()},
          .salt = stage.salt(),
          .hold = stage.hold(),
          .max_failures = stage.max_failures(),
          .confirm_seconds = stage.confirm_seconds()};
}

}  // namespace

std::string seal_revision(const Revision& revision, const PrivateKey& key) {
  wire::Revision to;
  to.set_scope(revision.scope);
  to.set_number(revision.number);
  to.set_predecessor(revision.predecessor);
  to.set_predecessor_state(to_bytes(revision.predecessor_state));
  to.set_state(to_bytes(revision.state));
  to.set_has_difference(revision.has_difference);
  to.set_difference(revision.difference);
  to.set_difference_plain(revision.difference_plain);
  to.set_has_snapshot(revision.has_snapshot);
  for (const Chunk& chunk : revision.snapshot) {
    wire::Chunk* added = to.add_snapshot();
    added->set_digest(to_bytes(chunk.digest));
    added->set_size(chunk.size);
    added->set_plain(chunk.plain);
  }
  to.set_newest_snapshot(revision.newest_snapshot);
  to.set_chain_bytes(revision.chain_bytes);
  to.set_author(revision.author);
  to.set_time(revision.time);
  to.set_message(revision.message);
  return seal(to, revision_kind, key);
}

Revision open_revision(std::string_view value, const TrustedKeys& trusted, const std::string& scope,
                       uint64_t number) {
  const std::string what = "revision " + std::to_string(number) + " of " + qimctl::quoted(scope);
  wire::Revision from;
  open(value, &trusted, revision_kind, what, from);
  take_place(from.scope(), scope, what);
  if (from.number() != number)
    refuse(what, "says that it is number " + std::to_string(from.number()));
  if (from.predecessor() >= number || (!from.has_difference() && !from.has_snapshot()))
    refuse(what, "does not say how it is made");
  Revision revision;
  revision.scope = from.scope();
  revision.number = from.number();
  revision.predecessor = from.predecessor();
  take_digest(from.predecessor_state(), what, revision.predecessor_state);
  take_digest(from.state(), what, revision.state);
  revision.has_difference = from.has_difference();
  revision.difference = from.difference();
  revision.difference_plain = from.difference_plain();
  revision.has_snapshot = from.has_snapshot();
  for (const wire::Chunk& chunk : from.snapshot()) {
    Chunk added{{}, chunk.size(), chunk.plain()};
    take_digest(chunk.digest(), what, added.digest);
    revision.snapshot.push_back(added);
  }
  revision.newest_snapshot = from.newest_snapshot();
  revision.chain_bytes = from.chain_bytes();
  revision.author = from.author();
  revision.time = from.time();
  revision.message = from.message();
  return revision;
}

std::string seal_head(const Head& head, const PrivateKey& key) {
  wire::Head to;
  to.set_scope(head.scope);
  to.set_sequence(head.sequence);
  to.set_last(head.last);
  to.set_base(head.base);
  to.set_base_state(to_bytes(head.base_state));
  to.set_next(head.next);
  to.set_next_state(to_bytes(head.next_state));
  *to.mutable_stage() = to_wire(head.stage);
  to.set_author(head.author);
  to.set_time(head.time);
  to.set_what(head.what);
  to.set_carried(head.carried);
  return seal(to, head_kind, key);
}

Head open_head(std::string_view value, const TrustedKeys& trusted, const std::string& scope) {
  const std::string what = "the head of " + qimctl::quoted(scope);
  wire::Head from;
  open(value, &trusted, head_kind, what, from);
  take_place(from.scope(), scope, what);
  Head head;
  head.scope = from.scope();
  head.sequence = from.sequence();
  head.last = from.last();
  head.base = from.base();
  take_digest(from.base_state(), what, head.base_state);
  head.next = from.next();
  take_digest(from.next_state(), what, head.next_state);
  head.stage = from_wire(from.stage());
  head.author = from.author();
  head.time = from.time();
  head.what = from.what();
  head.carried = from.carried();
  return head;
}

std::string seal_status(const Status& status, const PrivateKey& key) {
  wire::Status to;
  to.set_scope(status.scope);
  to.set_device(status.device);
  to.set_sequence(status.sequence);
  to.set_applied(status.applied);
  to.set_state(to_bytes(status.state));
  to.set_refused(status.refused);
  to.set_reason(status.reason);
  to.set_away_since(status.away_since);
  to.set_drifted(status.drifted);
  to.set_drift(status.drift);
  to.set_database(status.database);
  for (const std::string& label : status.labels) to.add_labels(label);
  to.set_head_sequence(status.head_sequence);
  to.set_time(status.time);
  to.set_version(status.version);
  return seal(to, status_kind, key);
}

Status open_status(std::string_view value, const TrustedKeys* trusted, const std::string& scope,
                   const std::string& device, KeyBytes* signer) {
  const std::string what = "the status of " + qimctl::quoted(device);
  wire::Status from;
  const KeyBytes key = open(value, trusted, status_kind, what, from);
  take_place(from.scope(), scope, what);
  if (from.device() != device) refuse(what, "is that of " + qimctl::quoted(from.device()));
  if (signer != nullptr) *signer = key;
  Status status;
  status.scope = from.scope();
  status.device = from.device();
  status.sequence = from.sequence();
  status.applied = from.applied();
  take_digest(from.state(), what, status.state);
  status.refused = from.refused();
  status.reason = from.reason();
  status.away_since = from.away_since();
  status.drifted = from.drifted();
  status.drift = from.drift();
  status.database = from.database();
  status.labels = {from.labels().begin(), from.labels().end()};
  status.head_sequence = from.head_sequence();
  status.time = from.time();
  status.version = from.version();
  return status;
}

std::string open_chunk(const Chunk& chunk, std::string_view stored) {
  const std::string what = "chunk " + short_hex(chunk.digest);
  if (stored.size() != chunk.size || sha256(stored) != chunk.digest)
    refuse(what, "is not what its digest says");
  if (chunk.plain > most_plain) refuse(what, "is longer than any may be");
  std::string plain = decompress(stored, static_cast<size_t>(chunk.plain));
  if (plain.size() != chunk.plain) refuse(what, "is shorter than it says");
  return plain;
}

}  // namespace qim::fleet
