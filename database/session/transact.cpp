// Write sessions from without: which failures end them, how they commit, and private data.
#include "database/session/transact.h"

#include <new>

#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/graph/edit.h"
#include "database/graph/private.h"

namespace rov {
namespace {

// Readies a write session for its commit: logs who it is by. *sealed: whether it was one.
uint32_t seal(uint32_t ses, bool* sealed) {
  Access access(ses);
  uint32_t status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  const Session& session = access.session();
  *sealed = true;
  if (session.broken != 0) return ROV_OK;  // the commit refuses it, and says why
  status = edit_settle(access.view());
  if (status == ROV_OK) {
    status = changes_seal(access.view(), {session.db->client, session.db->group.load()});
  }
  return note_edit(access.session(), status);
}

// Private data are set last of what an edit does, so that only these have stopped it half-way.
uint32_t note_private(Session& session, uint32_t status) {
  if (status == ROV_ERR_NO_MEM || status == ROV_ERR_CORRUPT) session.broken = status;
  return status;
}

// Sets the data as an edit, or over a snapshot that stays where it is: the session itself carries
// what it wrote.
uint32_t set_private_here(Access& access, uint32_t node, const void* data, uint32_t len) {
  View& view = access.view();
  if (view.edits == nullptr) {
    view.edits = new (std::nothrow) Edits;
    if (view.edits == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Edits));
  }
  return private_set(view, node, data, len);
}

// What a call that writes through a session needs to know of it.
struct Target {
  uint32_t db = 0;
  bool written = false;  // it was a write session, and has the data
};

// Sets the data in a write session; otherwise makes sure that the session sees the node.
uint32_t begin_private(uint32_t ses, uint32_t node, const void* data, uint32_t len,
                       Target* target) {
  Access access(ses);
  if (access.failed()) return access.status();
  Session& session = access.session();
  target->db = session.db->handle;
  target->written = session.write && session.handle == ses;
  if (!target->written) return view_find_node(access.view(), node);
  return note_private(session, private_set(access.view(), node, data, len));
}

}  // namespace

uint32_t check_writer(Access& access, uint32_t handle) {
  if (access.failed()) return access.status();
  if (access.session().write && access.session().handle == handle) return ROV_OK;
  return fail(ROV_ERR_READ_ONLY, Note::kReadOnly, handle);
}

uint32_t note_edit(Session& session, uint32_t status) {
  switch (status) {
    case ROV_OK:
    case ROV_ERR_INVALID:
    case ROV_ERR_LENGTH:
    case ROV_ERR_NO_ITEM:
    case ROV_ERR_NO_LINK:
      return status;
    default:
      session.broken = status;
      return status;
  }
}

uint32_t session_publish(uint32_t handle) {
  bool is_writer = false;
  const uint32_t sealed = seal(handle, &is_writer);
  if (sealed == ROV_ERR_SES_EXPIRED) static_cast<void>(session_abandon(handle));
  return is_writer ? session_commit(handle, nullptr) : sealed;
}

uint32_t session_set_private(uint32_t handle, uint32_t node, const void* data, uint32_t len) {
  Target target;
  uint32_t status = begin_private(handle, node, data, len, &target);
  if (status != ROV_OK || target.written) return status;
  uint64_t revision = 0;
  const auto set = [=](View& view) { return private_set(view, node, data, len); };
  status = with_writer(target.db, set, &revision);
  if (status != ROV_OK || kind_of(handle) == Kind::kBase) return status;
  if (session_follow(handle, revision)) return ROV_OK;
  // Others committed since the session's snapshot, which stays.
  Access access(handle);
  return access.failed() ? access.status() : set_private_here(access, node, data, len);
}

uint32_t session_set_private_for(uint32_t handle, uint32_t client, uint32_t node, const void* data,
                                 uint32_t len) {
  Access access(handle);
  const uint32_t status = check_writer(access, handle);
  if (status != ROV_OK) return status;
  return note_private(access.session(), private_set_for(access.view(), client, node, data, len));
}

}  // namespace rov
