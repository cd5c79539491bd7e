// `qimctl dump`: a whole database as one file.
#pragma once

#include "policy/store/database.h"

namespace qimctl {

// Prints all nodes with their links, data-set names and all clients' private data in the native
// format: in canonical order, a node a line, with a checksum at the end. One database gives the
// same bytes on every machine. The database is verified first, and an output that would lack nodes
// stays without its end.
void dump_database(const Database& database);

}  // namespace qimctl
