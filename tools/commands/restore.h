// `qimctl restore`: a database made from a dump.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/base/form.h"

namespace qimctl {

struct RestoreCounts {
  size_t nodes = 0;
  size_t links = 0;
};

// Stores what a dump holds, in one transaction, in the database in `directory`
// (database_directory), which is made when it is not there and must have no nodes. Throws
// InputError, also for a file without checksum, and DatabaseError; nothing is stored then.
// group: as in Database.
RestoreCounts restore_database(const std::string& directory, const std::string& file,
                               uint32_t group = 0);

void print_restored(const RestoreCounts& counts, OutputForm form);

}  // namespace qimctl
