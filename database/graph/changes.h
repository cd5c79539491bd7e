// The change log: what each commit changed and who committed, kept in the store with the changes
// themselves.
#pragma once

#include "database/graph/view.h"
#include "rov_edit.h"

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
  uint32_t time = 0;  // seconds, as time(2) has them
  uint32_t dset_len = 0;
  uint8_t dset[kNameBytes] = {};
};

// Who commits.
struct Author {
  uint32_t client = 0;
  uint32_t group = 0;
};

// The number of a client in this process, by which it asks for the right to write. Its commits have it
// too, unless the log has another process's with that number; then one that no process can have stands in
// for it, in their low halves.
uint64_t user_number(uint32_t client);
constexpr bool is_stand_in(uint64_t user) {
  return (user & 0x80000000) != 0;
}
// Whether that is a client of this very process.
[[nodiscard]] uint32_t is_own_user(View& view, uint64_t user, bool* own);

// The edits (edit.h) with the change that is logged of each: whatever follows a database learns of
// what was written through these only.
[[nodiscard]] uint32_t logged_node_put(View& view, const rov_edit_node_t& node);
[[nodiscard]] uint32_t logged_node_del(View& view, uint32_t node);
[[nodiscard]] uint32_t logged_link_put(View& view, uint32_t owner, const Link& link);
[[nodiscard]] uint32_t logged_link_del(View& view, uint32_t owner, uint32_t field);

// Logs a change of a write session's view; revision, number and user are filled in.
[[nodiscard]] uint32_t change_log(View& view, Change change);
// Before the commit: logs who commits, and prunes the log.
[[nodiscard]] uint32_t changes_seal(View& view, const Author& author);

// The first change behind (revision, number). ROV_ERR_NO_ITEM, not noted, when there is none yet.
[[nodiscard]] uint32_t change_after(View& view, uint64_t revision, uint32_t number, Change* change);
// The newest commit whose changes are not all there any more.
[[nodiscard]] uint32_t changes_pruned(View& view, uint64_t* revision);

// What is known of a user, as long as one of its changes is kept. ROV_ERR_NO_ITEM, not noted.
[[nodiscard]] uint32_t user_get(View& view, uint64_t user, rov_usr_t* info);

}  // namespace rov
