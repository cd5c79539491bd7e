// Edits of every kind, for a database that holds what they meet.
#ifndef TESTS_SYSTEM_FAULT_EDITS_H
#define TESTS_SYSTEM_FAULT_EDITS_H

#include <cstdint>
#include <vector>

namespace fault {

struct Edit {
  const char* name;
  uint32_t (*make)(uint32_t ses);  // in a write session; gives the first status that is not good
};

// Commits what the edits need, in an empty database.
uint32_t prepare_for_edits(uint32_t db);

// Each can be made after those before it, or by itself.
const std::vector<Edit>& all_edits();

}  // namespace fault

#endif
