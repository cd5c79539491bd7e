// Following the chain of revisions back to what is held, or to a snapshot.
#include "fleet/agent/supply.h"

#include <algorithm>

#include "fleet/base/compression.h"

namespace qim::fleet {

namespace {

// Revisions are followed back beyond a snapshot only for so many steps.
constexpr uint64_t most_steps = 64;
constexpr uint64_t most_difference = uint64_t{64} << 20;
constexpr uint64_t most_state = uint64_t{1} << 30;

std::string value_of(const Source& source, const std::string& key, const std::string& what) {
  const GetAnswer answer = source.store.get(key);
  if (!answer.found) throw MissingError("the store has no " + what);
  return answer.found->value;
}

std::string name_of(uint64_t number) {
  return "revision " + std::to_string(number);
}

Revision read_revision(const Source& source, uint64_t number, const Digest& state) {
  const bool carried =
      source.head != nullptr && source.head->next == number && !source.head->carried.empty();
  const std::string value =
      carried ? source.head->carried
              : value_of(source, source.keys.revision(source.scope, number), name_of(number));
  Revision revision = open_revision(value, source.trusted, source.scope, number);
  if (revision.state != state) {
    throw ForgedError(name_of(number) + " is of another state than it should be");
  }
  return revision;
}

std::string difference_of(const Revision& revision) {
  if (revision.difference_plain > most_difference) {
    throw ForgedError("the difference of " + name_of(revision.number) + " is too large");
  }
  return decompress(revision.difference, static_cast<size_t>(revision.difference_plain));
}

State snapshot_of(const Source& source, const Revision& revision) {
  uint64_t size = 0;
  for (const Chunk& chunk : revision.snapshot) size += chunk.plain;
  if (size > most_state)
    throw ForgedError("the snapshot of " + name_of(revision.number) + " is too large");
  std::string bytes;
  bytes.reserve(static_cast<size_t>(size));
  for (const Chunk& chunk : revision.snapshot) {
    const std::string value = value_of(source, source.keys.chunk(chunk.digest),
                                       "part of the snapshot of " + name_of(revision.number));
    bytes += open_chunk(chunk, value);
  }
  return State::parse(std::move(bytes));
}

bool is_behind(const Held& held, const Revision& revision) {
  return held.number != 0 && held.number < revision.number &&
         revision.number - held.number <= most_steps;
}

}  // namespace

Supply fetch(const Source& source, const Target& target, const Held& held) {
  Supply supply;
  std::optional<Revision> newest_snapshot;  // on the way, and how many differences lead on from it
  size_t from_snapshot = 0;
  Revision revision = read_revision(source, target.number, target.state);
  for (;;) {
    if (revision.has_snapshot && !newest_snapshot) {
      newest_snapshot = revision;
      from_snapshot = supply.differences.size();
    }
    const bool goes_on = revision.has_difference && (!newest_snapshot || is_behind(held, revision));
    if (!goes_on) break;
    supply.differences.push_back(difference_of(revision));
    const Digest before = revision.predecessor_state;
    const uint64_t number = revision.predecessor;
    if (number == held.number && (number == 0 || before == held.state)) {
      // The empty database is what a device without a mark need not have.
      if (number != 0) {
        std::reverse(supply.differences.begin(), supply.differences.end());
        return supply;
      }
      break;
    }
    if (number == 0) break;
    if (number >= revision.number)
      throw ForgedError(name_of(revision.number) + " follows " + name_of(number));
    try {
      revision = read_revision(source, number, before);
    } catch (const MissingError&) {
      // Old ones are pruned, and the snapshot leads there as well.
      if (!newest_snapshot) throw;
      break;
    }
  }
  if (newest_snapshot) {
    supply.differences.resize(from_snapshot);
    supply.snapshot = snapshot_of(source, *newest_snapshot);
  } else if (revision.has_difference && revision.predecessor == 0) {
    supply.snapshot = State();
  } else {
    throw MissingError("the store has neither a snapshot nor all differences up to " +
                       name_of(target.number));
  }
  std::reverse(supply.differences.begin(), supply.differences.end());
  return supply;
}

}  // namespace qim::fleet
