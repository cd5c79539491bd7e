// `qimctl dump` and `qimctl restore`: a whole database as one file, and back.
#pragma once

#include <string>

#include "policy/store/database.h"

namespace qimctl {

// Prints all nodes with their links, data-set names and all clients' private data in the native
// format: in canonical order, a node a line, with a checksum at the end. One database gives the
// same bytes on every machine.
void dump_database(const ReadSession& session);

struct RestoreCounts {
  size_t nodes = 0;
  size_t links = 0;
};

// Stores what a dump holds, in one transaction, in the database in `directory`
// (database_directory), which is made when it is not there and must have no nodes. Throws
// InputError, also for a file without checksum, and DatabaseError; nothing is stored then.
RestoreCounts restore_database(const std::string& directory, const std::string& file);

}  // namespace qimctl
