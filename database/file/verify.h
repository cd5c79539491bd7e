// Verifying a data file without the engine, which trusts what it maps.
//
// Everything is read with pread, into memory that is bounded by the length of the file: the meta
// pages, every page of every tree and every entry on it, the list of free pages, and every record
// with its checksum. Each page must be used exactly once. A file that passes holds the commit that
// its newest meta page describes, and nothing that the engine follows in it leads astray.
//
// Nobody may write to the file meanwhile.
#pragma once

#include "database/base/tables.h"

namespace rov {

// What was found in a good file.
struct VerifyReport {
  uint64_t revision = 0;  // the newest commit
  uint64_t bytes = 0;     // of the file
  uint64_t pages = 0;     // free ones included
  uint64_t free_pages = 0;
  uint32_t page_size = 0;
  uint64_t records[kTables] = {};
  uint64_t sums[kTables] = {};  // of the records' checksums
};

// ROV_OK, or what is wrong, noted with page, offset and what to do: ROV_ERR_CORRUPT, ROV_ERR_FORMAT
// for what is no file of the engine, ROV_ERR_IO, ROV_ERR_NO_MEM. path: of the database, for
// messages. `report` may be NULL.
[[nodiscard]] uint32_t verify_data(int file, const char* path, VerifyReport* report);

}  // namespace rov
