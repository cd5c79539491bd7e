// A link, seen from the node that it leads to.
#ifndef DATABASE_RECORD_REFERENCE_H
#define DATABASE_RECORD_REFERENCE_H

#include <cstdint>

namespace rov {

// `owner` has a link to `target` in that field.
struct Reference {
  uint32_t target;
  uint32_t owner;
  uint32_t field;
};

}  // namespace rov

#endif
