// Reading a scope and moving its head.
#include "fleet/publish/scope.h"

#include <algorithm>
#include <thread>

#include "fleet/base/backoff.h"
#include "fleet/base/compression.h"
#include "fleet/state/difference.h"
#include "fleet/state/state_digest.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

// No difference is believed to become more.
constexpr size_t most_plain = 256u * 1024 * 1024;
constexpr std::chrono::milliseconds first_pause{100};
constexpr std::chrono::milliseconds longest_pause{2000};

std::string revision_name(uint64_t number, const std::string& scope) {
  return "revision " + std::to_string(number) + " of " + qimctl::quoted(scope);
}

// What a change says whose fate nobody knows may be done, or not yet, so that it is tried again as it
// is: its conditions let it happen once.
template <typename Attempt>
auto insist(uint32_t tries, Attempt attempt) {
  Backoff backoff(first_pause, longest_pause, random_seed());
  for (uint32_t n = 1;; n++) {
    try {
      return attempt();
    } catch (const StoreError& error) {
      const bool passes =
          error.failure() == StoreFailure::unknown || error.failure() == StoreFailure::unreachable;
      if (!passes || n >= tries) throw;
    }
    std::this_thread::sleep_for(backoff.next());
  }
}

}  // namespace

std::string difference_of(const Revision& revision) {
  return decompress(revision.difference, most_plain);
}

Scope::Scope(const Publisher& publisher, const std::string& name)
    : publisher_(publisher), name_(name) {
  if (!is_name(name))
    throw ConfigError(qimctl::quoted(name) +
                      " is no name of a scope; it has letters, digits, '.', '_' and '-' only");
}

StoredHead Scope::head() const {
  const GetAnswer answer = publisher_.store.get(publisher_.keys.head(name_));
  StoredHead stored;
  stored.head.scope = name_;
  if (!answer.found) return stored;
  stored.head = open_head(answer.found->value, publisher_.trusted, name_);
  stored.modified = answer.found->modified;
  return stored;
}

StoredHead Scope::require_head() const {
  StoredHead stored = head();
  if (stored.head.sequence == 0)
    throw AbsentError("nothing was ever pushed to " + qimctl::quoted(name_) +
                      "; see 'qimctl fleet status' for the scopes there are");
  return stored;
}

Revision Scope::revision(uint64_t number) const {
  const GetAnswer answer = publisher_.store.get(publisher_.keys.revision(name_, number));
  if (!answer.found)
    throw AbsentError("there is no " + revision_name(number, name_) + "; see 'qimctl fleet log'");
  return open_revision(answer.found->value, publisher_.trusted, name_, number);
}

std::vector<Revision> Scope::revisions() const {
  std::vector<Revision> all;
  for (const KeyValue& item : list_all(publisher_.store, publisher_.keys.revisions(name_))) {
    const std::string digits = Keys::last_part(item.key);
    if (digits.empty() || digits.size() > 18 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
      throw ForgedError(qimctl::quoted(item.key) + " is no revision's key");
    all.push_back(open_revision(item.value, publisher_.trusted, name_, std::stoull(digits)));
  }
  return all;
}

State Scope::state(uint64_t number) const {
  // Back to a snapshot, or to the empty state that all begins with.
  std::vector<Revision> way;
  for (uint64_t at = number; at != 0; at = way.back().predecessor) {
    way.push_back(revision(at));
    if (way.back().has_snapshot) break;
    if (!way.back().has_difference)
      throw ForgedError(revision_name(at, name_) + " does not say how it is made");
  }
  State state;
  for (auto step = way.rbegin(); step != way.rend(); ++step) {
    if (step->has_snapshot) {
      std::string bytes;
      for (const Chunk& chunk : step->snapshot) {
        const GetAnswer answer = publisher_.store.get(publisher_.keys.chunk(chunk.digest));
        if (!answer.found)
          throw ForgedError("chunk " + short_hex(chunk.digest) + " of " +
                            revision_name(step->number, name_) + " is missing");
        bytes += open_chunk(chunk, answer.found->value);
      }
      state = State::parse(std::move(bytes));
    } else {
      const std::string bytes = difference_of(*step);
      state = changed(state, parse_difference(bytes));
    }
  }
  if (number != 0 && state_digest(state) != way.front().state)
    throw ForgedError(revision_name(number, name_) + " does not make the state that it says");
  return state;
}

bool Scope::is_ours(const Write& written) const {
  const GetAnswer answer = publisher_.store.get(written.key);
  return answer.found && answer.found->value == written.value;
}

void Scope::move(const StoredHead& before, Head moved, const Revision* revision) const {
  moved.scope = name_;
  moved.sequence = before.head.sequence + 1;
  moved.author = publisher_.author;
  moved.time = publisher_.clock.now();
  Change change;
  change.conditions.push_back({publisher_.keys.head(name_), before.modified});
  if (revision != nullptr) {
    const std::string key = publisher_.keys.revision(name_, revision->number);
    change.conditions.push_back({key, 0});
    change.writes.push_back({key, seal_revision(*revision, *publisher_.key)});
  }
  change.writes.push_back({publisher_.keys.head(name_), seal_head(moved, *publisher_.key)});
  const bool done = insist(publisher_.tries, [&] {
    // A condition that does not hold any more may be what an earlier try of this change has made.
    return publisher_.store.change(change).done || is_ours(change.writes.front());
  });
  if (!done)
    throw RefusedError("somebody else moved the head of " + qimctl::quoted(name_) +
                       " meanwhile; look at 'qimctl fleet log' and try again");
}

void Scope::store_chunk(const Chunk& chunk, const std::string& stored) const {
  const std::string key = publisher_.keys.chunk(chunk.digest);
  ListQuestion question;
  question.prefix = key;
  question.limit = 1;
  question.keys_only = true;
  insist(publisher_.tries, [&] {
    if (!publisher_.store.list(question).found.empty()) return true;
    // Who was faster has stored the same bytes.
    return publisher_.store.change({{{key, 0}}, {{key, stored}}}).done;
  });
}

std::vector<Chunk> Scope::store_chunks(const State& state) const {
  std::vector<Chunk> chunks;
  for (const std::string_view piece : cut_pieces(state)) {
    const std::string stored = compress(piece);
    chunks.push_back({sha256(stored), stored.size(), piece.size()});
    store_chunk(chunks.back(), stored);
  }
  return chunks;
}

}  // namespace qim::fleet
