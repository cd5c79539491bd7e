// The list of free pages: a tree whose keys are commits and whose values are the pages that each
// set free.
#ifndef DATABASE_FILE_FREE_PAGES_H
#define DATABASE_FILE_FREE_PAGES_H

#include "database/file/tree.h"

namespace rov {

class FreeCheck final : public EntryVisitor {
 public:
  FreeCheck(Pages& pages, Word revision) : pages_(pages), revision_(revision) {}
  uint32_t visit(const Place& place, Bytes key, Bytes value) override;
  // Every commit frees pages, namely those that it wrote anew; only a file that was just made or
  // compacted has no list. `meta`: the page that says which commit this is.
  uint32_t check_newest(Word meta) const;
  uint64_t pages() const { return count_; }

 private:
  Pages& pages_;
  Word revision_;
  Word newest_ = 0;
  uint64_t count_ = 0;
};

}  // namespace rov

#endif
