// C entries: private data of nodes.
#include <new>

#include "database/base/error.h"
#include "database/graph/private.h"
#include "database/session/session.h"

namespace {

using rov::Access;
using rov::fail;
using rov::Note;
using rov::number_of;

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

// What a call that writes through a read-only session needs to know of it.
struct Target {
  uint32_t db = 0;
  bool written = false;  // it was a write session: done
};

uint32_t set_in_writer(Access& access, uint32_t node, const void* data, uint32_t len) {
  const uint32_t status = rov::private_set(access.view(), node, data, len);
  if (status == ROV_ERR_NO_MEM || status == ROV_ERR_CORRUPT) access.session().broken = status;
  return status;
}

// Sets the data at once in a write session; otherwise makes sure that the session sees the node.
uint32_t set_here(uint32_t ses, uint32_t node, const void* data, uint32_t len, Target* target) {
  Access access(ses);
  if (access.failed()) return access.status();
  target->db = access.session().db->handle;
  if (access.session().write && access.session().handle == ses) {
    target->written = true;
    return set_in_writer(access, node, data, len);
  }
  return rov::view_find_node(access.view(), node);
}

// Commits the data in a write session of their own.
uint32_t set_durably(uint32_t db, uint32_t node, const void* data, uint32_t len,
                     uint64_t* revision) {
  uint32_t writer = 0;
  uint32_t status = rov::session_open(db, true, &writer);
  if (status != ROV_OK) return status;
  {
    Access access(writer);
    status = access.failed() ? access.status() : rov::private_set(access.view(), node, data, len);
  }
  if (status == ROV_OK) return rov::session_commit(writer, revision);
  rov::session_close(writer);
  return status;
}

// Others committed since the session's snapshot, which stays: the session carries what it wrote
// itself.
uint32_t set_over_snapshot(uint32_t ses, uint32_t node, const void* data, uint32_t len) {
  Access access(ses);
  if (access.failed()) return access.status();
  rov::View& view = access.view();
  if (view.edits == nullptr) {
    view.edits = new (std::nothrow) rov::Edits;
    if (view.edits == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(rov::Edits));
  }
  return rov::private_set(view, node, data, len);
}

}  // namespace

uint32_t rov_node_priv_set(uint32_t ses, const rov_node_id_t* id, const void* data, uint32_t len) {
  if (id == nullptr) return bad_argument(2);
  if (data == nullptr && len != 0) return bad_argument(3);
  if (len > rov::kMaxPrivate) {
    return rov::fail_text(ROV_ERR_LENGTH, "private data have at most %u bytes, not %u",
                          rov::kMaxPrivate, len);
  }
  const uint32_t node = number_of(*id);
  Target target;
  uint32_t status = set_here(ses, node, data, len, &target);
  if (status != ROV_OK || target.written) return status;
  uint64_t revision = 0;
  status = set_durably(target.db, node, data, len, &revision);
  if (status != ROV_OK || rov::kind_of(ses) == rov::Kind::kBase) return status;
  if (rov::session_follow(ses, revision)) return ROV_OK;
  return set_over_snapshot(ses, node, data, len);
}

uint32_t rov_node_priv_ptr_set(uint32_t ses, const rov_node_id_t* id, void* ptr) {
  if (id == nullptr) return bad_argument(2);
  Access access(ses);
  if (access.failed()) return access.status();
  rov::View& view = access.view();
  const uint32_t node = number_of(*id);
  const uint32_t status = rov::view_find_node(view, node);
  if (status != ROV_OK) return status;
  const auto value = reinterpret_cast<uintptr_t>(ptr);
  if (view.snapshot->env->pointers.set(view.client, node, value)) return ROV_OK;
  return fail(ROV_ERR_NO_MEM, Note::kNoMemory);
}

uint32_t rov_node_priv_ptr_get(uint32_t ses, const rov_node_id_t* id, void** ptr) {
  if (id == nullptr) return bad_argument(2);
  if (ptr == nullptr) return bad_argument(3);
  Access access(ses);
  if (access.failed()) return access.status();
  rov::View& view = access.view();
  const uint32_t node = number_of(*id);
  const uint32_t status = rov::view_find_node(view, node);
  if (status != ROV_OK) return status;
  *ptr = reinterpret_cast<void*>(view.snapshot->env->pointers.get(view.client, node));
  return ROV_OK;
}

uint32_t rov_data_cpy(uint32_t len, void* buf, uint32_t src_len, const void* src) {
  if (src_len == 0) return ROV_OK;
  if (src_len > len) return fail(ROV_ERR_LENGTH, Note::kBuffer, len, src_len);
  if (buf == nullptr) return bad_argument(2);
  if (src == nullptr) return bad_argument(4);
  memcpy(buf, src, src_len);
  return ROV_OK;
}
