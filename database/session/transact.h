// Work that a call does in a session: in one that is open, or in one of the call's own.
#pragma once

#include "database/session/session.h"

namespace rov {

// Runs `work` on the newest commit of a database.
template <class Work>
[[nodiscard]] uint32_t with_newest(uint32_t db, Work work) {
  uint32_t ses = 0;
  uint32_t status = session_open(db, false, &ses);
  if (status != ROV_OK) return status;
  {
    Access access(ses);
    status = access.failed() ? access.status() : work(access.view());
  }
  // It fails where somebody closed the database, and the session with it.
  static_cast<void>(session_close(ses));
  return status;
}

// Runs `work` in a write session of its own and commits it; the new commit's number goes to
// *revision when it is not NULL.
template <class Work>
[[nodiscard]] uint32_t with_writer(uint32_t db, Work work, uint64_t* revision = nullptr) {
  uint32_t ses = 0;
  uint32_t status = session_open(db, true, &ses);
  if (status != ROV_OK) return status;
  {
    Access access(ses);
    status = access.failed() ? access.status() : work(access.view());
  }
  if (status == ROV_OK) return session_commit(ses, revision);
  // It fails where somebody closed the database, and the session with it.
  static_cast<void>(session_close(ses));
  return status;
}

// Whether the handle is a write session's, and not its base's. ROV_ERR_READ_ONLY, noted, and the
// reason why there is no access.
[[nodiscard]] uint32_t check_writer(Access& access, uint32_t handle);

// Notes how an edit of a write session ended, and returns that. Failures that come before anything
// was changed leave the session as it was; others may have stopped an edit half-way, after which
// nothing of the session may be committed.
[[nodiscard]] uint32_t note_edit(Session& session, uint32_t status);

// Runs an edit in the write session of that handle.
template <class Edit>
[[nodiscard]] uint32_t with_edits(uint32_t handle, Edit edit) {
  Access access(handle);
  const uint32_t status = check_writer(access, handle);
  return status == ROV_OK ? note_edit(access.session(), edit(access.view())) : status;
}

// Commits a write session with who it is by, closes it, and wakes whoever follows the database.
[[nodiscard]] uint32_t session_publish(uint32_t handle);

// Sets the client's private data on a node: in a write session as one of its edits, otherwise at
// once, in a commit of their own that the session sees from then on.
[[nodiscard]] uint32_t session_set_private(uint32_t handle, uint32_t node, const void* data,
                                           uint32_t len);
// Sets any client's in a write session.
[[nodiscard]] uint32_t session_set_private_for(uint32_t handle, uint32_t client, uint32_t node,
                                               const void* data, uint32_t len);

}  // namespace rov
