// The tables of the store as the engine knows them.
#ifndef PLATFORM_TABLE_ROWS_H
#define PLATFORM_TABLE_ROWS_H

#include "platform/overlay.h"

namespace rov {

struct TableRow {
  const char* name;
  bool integer_keys;  // native integers of 4 bytes, which the engine compares fastest
};

// In the order of Table.
constexpr TableRow kTableRows[kTables] = {
    {"nodes", true},    {"referrers", false}, {"data sets", false}, {"private", false},
    {"clients", false}, {"changes", false},   {"users", false}};

}  // namespace rov

#endif
