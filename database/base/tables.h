// The tables of the store, as its layers and as the engine know them.
#ifndef DATABASE_BASE_TABLES_H
#define DATABASE_BASE_TABLES_H

#include <cstdint>

namespace rov {

// database/record/keys.h describes what is in them.
enum class Table : uint8_t { kNodes, kReferrers, kDataSets, kPrivate, kClients, kChanges, kUsers };
constexpr uint32_t kTables = 7;

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
