// The descriptor tables as the codec sees them.
#ifndef TESTS_LIBRARY_SCHEMA_TABLES_H
#define TESTS_LIBRARY_SCHEMA_TABLES_H

#include <vector>

#include "qim.h"

namespace schema_tests {

// The header declares only the head of each table; what follows it is the codec's to know.
// Compilers that can see which table it is must not conclude that nothing follows.
inline const tlvo_table_t* whole(const tlvo_table_t& table) {
  const tlvo_table_t* volatile at = &table;
  return at;
}

inline const tlvo_field_t* first_field(const tlvo_table_t& table) {
  return reinterpret_cast<const tlvo_field_t*>(whole(table) + 1);
}

inline std::vector<tlvo_field_t> fields_of(const tlvo_table_t& table) {
  const tlvo_field_t* field = first_field(table);
  std::vector<tlvo_field_t> fields;
  while (field->position != TLVO_FIELD_END) fields.push_back(*field++);
  return fields;
}

// The field of that id; tables without it are the test's mistake.
inline tlvo_field_t field_of(const tlvo_table_t& table, std::uint32_t id) {
  for (const tlvo_field_t& field : fields_of(table)) {
    if (field.id == id) return field;
  }
  return {};
}

}  // namespace schema_tests

#endif
