// What access lists decide about a packet.
//
// The lists at one interface in one direction are asked in the order of their stages. The first entry
// that matches decides; a list without one hands on to the next; when none matches, the default of
// the last list decides. Where a packet, or a match of another model, leaves open whether an entry
// matches, both are followed: the verdict is certain when all ways lead to the same.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "policy/trace/condition.h"

namespace qimctl {

// Whether an entry matches a packet.
struct EntryAnswer {
  Truth truth = Truth::yes;
  uint32_t criterion = 0;  // that says no, or is the first to leave it open; none of a yes
};

// A list whose criteria are taken apart. The list stays where it is.
class ListMatcher {
 public:
  explicit ListMatcher(const AccessList& list);

  const AccessList& list() const { return *list_; }
  EntryAnswer ask(size_t entry, const Packet& packet) const;
  std::span<const Condition> conditions(size_t entry) const {
    return std::span(conditions_).subspan(ends_[entry], ends_[entry + 1] - ends_[entry]);
  }

 private:
  const AccessList* list_;
  std::vector<Condition> conditions_;  // of one entry behind those of another
  std::vector<size_t> ends_{0};        // of each entry's, and before it the first one's begin
};

// What is done with a packet.
struct Verdict {
  ActionType forwarding = ActionType::drop;
  bool log = false;
  std::string policer;

  bool operator==(const Verdict&) const = default;
};
Verdict verdict_of(const Entry& entry);
// "accept", "drop log", "accept police gold"
std::string verdict_text(const Verdict& verdict);

// Lists in the order in which they are asked.
using Lists = std::vector<const AccessList*>;
// At an interface in a direction.
Lists lists_at(const Model& model, const std::string& interface, uint8_t dir);

// A way in which the packet may be decided: by an entry, or by the default of the list.
struct Outcome {
  Verdict verdict;
  size_t list = 0;              // of those that were asked
  std::optional<size_t> entry;  // nothing: the default
};

struct AskedEntry {
  size_t list = 0;
  size_t entry = 0;
  EntryAnswer answer;
};

struct TraceResult {
  std::vector<AskedEntry> asked;  // in order, with what each said; on demand only
  std::vector<Outcome> outcomes;  // at least one; the last one is what holds when all that is
                                  // left open does not match
  bool is_certain() const;        // all forward, or all don't, in the same way
};

// Asks lists about one packet, with what each entry said: criteria are taken apart as they are asked,
// so that no more of them are than one packet needs. There must be a list.
TraceResult trace_once(const Lists& lists, const Packet& packet);

// A sequence of lists, ready to be asked. It must not be empty, and the lists stay where they are.
class Tracer {
 public:
  explicit Tracer(const Lists& lists);

  TraceResult trace(const Packet& packet, bool with_asked) const;
  const std::vector<ListMatcher>& lists() const { return matchers_; }

 private:
  Lists all_;
  std::vector<ListMatcher> matchers_;
};

}  // namespace qimctl
