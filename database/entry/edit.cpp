// C entries: write sessions.
#include <cstring>

#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/graph/edit.h"
#include "database/session/session.h"
#include "database/store/wake.h"

namespace {

using rov::Access;
using rov::Change;
using rov::fail;
using rov::Note;
using rov::number_of;
using rov::View;

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

// Refuses an identifier that can name no node.
uint32_t check_identifier(const rov_node_id_t& id) {
  if (number_of(id) != 0) return ROV_OK;
  const uint32_t rest = id.word[1] | id.word[2] | id.word[3];
  return fail(ROV_ERR_INVALID, Note::kIdentifier, rest);
}

bool is_zero(const rov_node_id_t& id) {
  return (id.word[0] | id.word[1] | id.word[2] | id.word[3]) == 0;
}

// Failures that come before anything was changed leave the session as it was; others may have
// stopped an edit half-way, after which nothing of the session may be committed.
uint32_t edited(rov::Session& session, uint32_t status) {
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

// A write session in use, not its base.
uint32_t check_writer(Access& access, uint32_t handle) {
  if (access.failed()) return access.status();
  if (access.session().write && access.session().handle == handle) return ROV_OK;
  return fail(ROV_ERR_READ_ONLY, Note::kReadOnly, handle);
}

uint32_t check_node(const rov_edit_node_t* node) {
  if (node == nullptr) return bad_argument(2);
  const uint32_t status = check_identifier(node->id);
  if (status != ROV_OK) return status;
  if (node->tlv_len > rov::kMaxTlv) {
    return rov::fail_text(ROV_ERR_LENGTH, "a node's TLV data have at most %u bytes, not %u",
                          rov::kMaxTlv, node->tlv_len);
  }
  if (node->dset_len != 0 && node->dset_len != rov::kNameBytes) {
    return fail(ROV_ERR_LENGTH, Note::kNameLength, node->dset_len);
  }
  const bool has_all = (node->tlv_len == 0 || node->tlv != nullptr) &&
                       (node->dset_len == 0 || node->dset != nullptr);
  return has_all ? uint32_t{ROV_OK} : bad_argument(2);
}

uint32_t check_link(const rov_link_t* link) {
  if (link == nullptr) return bad_argument(2);
  uint32_t status = check_identifier(link->owner);
  if (status == ROV_OK) status = check_identifier(link->node);
  if (status == ROV_OK && !is_zero(link->node2)) status = check_identifier(link->node2);
  return status;
}

// ---- Edits, with the changes that are logged of them ----

uint32_t log_link(View& view, uint32_t kind, uint32_t owner, uint32_t field) {
  Change change;
  change.kind = kind;
  change.node = owner;
  change.field = field;
  const uint32_t status = rov::change_name(view, owner, &change);
  return status == ROV_OK ? rov::change_log(view, change) : status;
}

uint32_t put_node(View& view, const rov_edit_node_t& node) {
  const uint32_t status = rov::edit_node_put(view, node);
  if (status != ROV_OK) return status;
  Change change;
  change.kind = ROV_CHANGE_NODE_PUT;
  change.node = number_of(node.id);
  change.dset_len = node.dset_len;
  if (node.dset_len != 0) memcpy(change.dset, node.dset, node.dset_len);
  return rov::change_log(view, change);
}

uint32_t delete_node(View& view, uint32_t node) {
  Change change;
  change.kind = ROV_CHANGE_NODE_DEL;
  change.node = node;
  uint32_t status = rov::change_name(view, node, &change);  // as long as it has one
  if (status == ROV_OK) status = rov::edit_node_del(view, node);
  return status == ROV_OK ? rov::change_log(view, change) : status;
}

uint32_t put_link(View& view, uint32_t owner, const rov::Link& link) {
  const uint32_t status = rov::edit_link_put(view, owner, link);
  return status == ROV_OK ? log_link(view, ROV_CHANGE_LINK_PUT, owner, link.field) : status;
}

uint32_t delete_link(View& view, uint32_t owner, uint32_t field) {
  const uint32_t status = rov::edit_link_del(view, owner, field);
  return status == ROV_OK ? log_link(view, ROV_CHANGE_LINK_DEL, owner, field) : status;
}

// Readies a write session for its commit: logs who it is by. *database: whom to wake.
uint32_t seal(uint32_t ses, uint32_t* database) {
  Access access(ses);
  uint32_t status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  const rov::Session& session = access.session();
  *database = session.db->handle;
  if (session.broken != 0) return ROV_OK;  // the commit refuses it, and says why
  status = rov::edit_settle(access.view());
  if (status == ROV_OK) {
    status = rov::changes_seal(access.view(), {session.db->client, session.db->group.load()});
  }
  return edited(access.session(), status);
}

// For those who follow the database. The handle is not pinned for longer, so that closing it waits
// for nothing.
rov::Waking waking_of(uint32_t database) {
  const rov::DatabasePin pin(database);
  return rov::Waking(pin.status() == ROV_OK ? pin->env->path : nullptr);
}

}  // namespace

uint32_t rov_edit_begin(uint32_t db, uint32_t* ses_out) {
  if (ses_out == nullptr) return bad_argument(2);
  return rov::session_open(db, true, ses_out);
}

uint32_t rov_edit_commit(uint32_t ses) {
  uint32_t database = 0;
  const uint32_t sealed = seal(ses, &database);
  if (sealed == ROV_ERR_SES_EXPIRED) rov::session_abandon(ses);
  if (database == 0) return sealed;
  const rov::Waking waking = waking_of(database);
  uint64_t revision = 0;
  const uint32_t status = rov::session_commit(ses, &revision);
  if (status == ROV_OK) waking.tell(revision);
  return status;
}

uint32_t rov_edit_abandon(uint32_t ses) {
  return rov::session_abandon(ses);
}

uint32_t rov_edit_node_put(uint32_t ses, const rov_edit_node_t* node) {
  uint32_t status = check_node(node);
  if (status != ROV_OK) return status;
  Access access(ses);
  status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  return edited(access.session(), put_node(access.view(), *node));
}

uint32_t rov_edit_node_del(uint32_t ses, rov_node_id_t id) {
  Access access(ses);
  const uint32_t status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  return edited(access.session(), delete_node(access.view(), number_of(id)));
}

uint32_t rov_edit_link_put(uint32_t ses, const rov_link_t* link) {
  uint32_t status = check_link(link);
  if (status != ROV_OK) return status;
  Access access(ses);
  status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  const rov::Link stored = {link->field, link->tag, number_of(link->node), link->val,
                            number_of(link->node2)};
  return edited(access.session(), put_link(access.view(), number_of(link->owner), stored));
}

uint32_t rov_edit_link_del(uint32_t ses, rov_node_id_t owner, uint32_t field) {
  Access access(ses);
  const uint32_t status = check_writer(access, ses);
  if (status != ROV_OK) return status;
  return edited(access.session(), delete_link(access.view(), number_of(owner), field));
}
