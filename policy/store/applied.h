// What was applied last, remembered in the database by the commit that applied it: who applies the same
// files again, or nearly the same, need not read what has not changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "policy/base/siphash.h"

namespace qimctl {

// Entries of a list that follow one another.
struct AppliedRun {
  uint32_t entries = 0;
  Digest digest{};

  bool operator==(const AppliedRun&) const = default;
};

// A text that was read.
struct AppliedText {
  Digest frame{};                              // of all but the entries
  std::vector<std::vector<AppliedRun>> lists;  // what is left of the text

  bool operator==(const AppliedText&) const = default;
};

struct Applied {
  uint64_t revision =
      0;  // that the commit has: of a database with another newest one nothing is said
  DigestKey key{};
  Digest context{};       // how the texts were read, and by what
  bool pruned = false;    // the database has no other lists
  bool by_entry = false;  // there is one text, whose lists are those of `names`, entry by entry
  std::vector<std::string> names;  // of the lists that the texts name, in their order
  std::vector<AppliedText> texts;
};

// Nothing when there is none, it is damaged, or the newest commit, `newest`, is not the one that wrote it.
std::optional<Applied> read_applied(uint32_t session, uint64_t newest);

// In a write session. What is too large is not remembered.
void write_applied(uint32_t session, const Applied& applied);

}  // namespace qimctl
