// C entries: write sessions.
#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/session/transact.h"

namespace {

using rov::bad_argument;
using rov::fail;
using rov::Note;
using rov::number_of;
using rov::View;

// Refuses an identifier that can name no node.
uint32_t check_identifier(const rov_node_id_t& id) {
  if (number_of(id) != 0) return ROV_OK;
  const uint32_t rest = id.word[1] | id.word[2] | id.word[3];
  return fail(ROV_ERR_INVALID, Note::kIdentifier, rest);
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
  if (status == ROV_OK && !rov::is_zero(link->node2)) status = check_identifier(link->node2);
  return status;
}

}  // namespace

uint32_t rov_edit_begin(uint32_t db, uint32_t* ses_out) {
  if (ses_out == nullptr) return bad_argument(2);
  return rov::session_open(db, true, ses_out);
}

uint32_t rov_edit_commit(uint32_t ses) {
  return rov::session_publish(ses);
}

uint32_t rov_edit_abandon(uint32_t ses) {
  return rov::session_abandon(ses);
}

uint32_t rov_edit_node_put(uint32_t ses, const rov_edit_node_t* node) {
  const uint32_t status = check_node(node);
  if (status != ROV_OK) return status;
  // NOLINTNEXTLINE(clang-analyzer-core.*): check_node refuses NULL, which the analyser forgets
  return rov::with_edits(ses, [=](View& view) { return rov::logged_node_put(view, *node); });
}

uint32_t rov_edit_node_del(uint32_t ses, rov_node_id_t id) {
  return rov::with_edits(ses,
                         [=](View& view) { return rov::logged_node_del(view, number_of(id)); });
}

uint32_t rov_edit_link_put(uint32_t ses, const rov_link_t* link) {
  const uint32_t status = check_link(link);
  if (status != ROV_OK) return status;
  const rov::Link stored = {link->field, link->tag, number_of(link->node), link->val,
                            number_of(link->node2)};
  return rov::with_edits(
      ses, [=](View& view) { return rov::logged_link_put(view, number_of(link->owner), stored); });
}

uint32_t rov_edit_link_del(uint32_t ses, rov_node_id_t owner, uint32_t field) {
  return rov::with_edits(
      ses, [=](View& view) { return rov::logged_link_del(view, number_of(owner), field); });
}
