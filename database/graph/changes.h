// The change log: what each commit changed and who committed, kept in the store with the changes
// themselves.
#ifndef DATABASE_GRAPH_CHANGES_H
#define DATABASE_GRAPH_CHANGES_H

#include "database/graph/view.h"

namespace rov {

// A commit of more changes is logged as one gap: whoever follows reads everything again, which then
// costs less than the changes would.
constexpr uint32_t kMaxChangesPerCommit = 4096;
// So many changes are kept, the newest.
constexpr uint32_t kMaxChanges = 65536;

struct Change {
  uint64_t revision = 0;
  uint32_t number = 0;
  uint32_t kind = 0;  // ROV_CHANGE_*
  uint32_t field = 0;
  uint32_t node = 0;
  uint64_t user = 0;
  uint32_t dset_len = 0;
  uint8_t dset[kNameBytes] = {};
};

// Who commits.
struct Author {
  uint32_t client = 0;
  uint32_t group = 0;
};

// The number of a client in this process.
uint64_t user_number(uint32_t client);

// Takes a node's data-set name into a change, where the node is there and has one.
uint32_t change_name(View& view, uint32_t node, Change* change);
// Logs a change of a write session's view; revision, number and user are filled in.
uint32_t change_log(View& view, Change change);
// Before the commit: logs who commits, and prunes the log.
uint32_t changes_seal(View& view, const Author& author);

// The first change behind (revision, number). ROV_ERR_NO_ITEM, not noted, when there is none yet.
uint32_t change_after(View& view, uint64_t revision, uint32_t number, Change* change);
// The newest commit whose changes are not all there any more.
uint32_t changes_pruned(View& view, uint64_t* revision);

// What is known of a user. ROV_ERR_NO_ITEM, not noted.
uint32_t user_get(View& view, uint64_t user, rov_usr_t* info);

}  // namespace rov

#endif
