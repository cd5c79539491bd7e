// All that a database holds, read through its interface and taken down to one number.
#ifndef TESTS_SYSTEM_FAULT_CONTENTS_H
#define TESTS_SYSTEM_FAULT_CONTENTS_H

#include <cstdint>
#include <string>

namespace fault {

struct Contents {
  bool good = false;    // everything could be read
  std::string message;  // what failed
  uint32_t status = 0;  // with what
  uint64_t nodes = 0;
  uint64_t digest =
      0;  // of every node with its parts, links and referrers, and of the data sets in order
};

// Reads the newest commit of an open database.
Contents read_contents(uint32_t db);

}  // namespace fault

#endif
