// Checking single records of the store.
#ifndef DATABASE_FILE_RECORDS_H
#define DATABASE_FILE_RECORDS_H

#include "database/base/tables.h"
#include "database/file/tree.h"

namespace rov {

// The records of one table: their keys, checksums and shapes.
class RecordCheck final : public EntryVisitor {
 public:
  RecordCheck(const Pages& pages, Table table) : pages_(pages), table_(table) {}
  uint32_t visit(const Place& place, Bytes key, Bytes value) override;

 private:
  uint32_t broken(const Place& place, Bytes key, const char* what) const;

  const Pages& pages_;
  Table table_;
};

}  // namespace rov

#endif
