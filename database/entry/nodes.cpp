// C entries: reading nodes, links, referrers and data sets.
#include "database/graph/nodes.h"
#include "database/base/error.h"
#include "database/graph/datasets.h"
#include "database/graph/edit.h"
#include "database/graph/links.h"
#include "database/graph/referrers.h"
#include "database/session/session.h"
#include "rov_edit.h"

namespace {

using rov::Access;
using rov::fail;
using rov::Note;
using rov::number_of;

uint32_t missing_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

}  // namespace

uint32_t rov_node_parms_get(uint32_t ses, rov_node_id_t id, rov_node_parms_t* parms) {
  if (parms == nullptr) return missing_argument(3);
  const uint32_t node = number_of(id);
  return rov::with_view(ses,
                        [=](rov::View& view) { return rov::node_parms_of(view, node, parms); });
}

uint32_t rov_node_data_get(uint32_t ses, rov_node_id_t id, uint32_t tlv_len, void* tlv,
                           uint32_t dset_len, void* dset, uint32_t priv_len, void* priv) {
  const uint32_t node = number_of(id);
  return rov::with_view(ses, [=](rov::View& view) {
    return rov::node_data(view, node, {tlv_len, tlv}, {dset_len, dset}, {priv_len, priv});
  });
}

uint32_t rov_node_next(uint32_t ses, rov_node_id_t after, rov_node_parms_t* parms) {
  if (parms == nullptr) return missing_argument(3);
  Access access(ses);
  if (access.failed()) return access.status();
  const uint32_t number = number_of(after);
  if (number == 0 && (after.word[0] | after.word[1] | after.word[2] | after.word[3]) != 0) {
    return missing_argument(2);
  }
  const uint32_t status = rov::node_after(access.view(), number);
  return status == ROV_OK ? rov::node_parms(access.view(), parms) : status;
}

uint32_t rov_node_ln_field_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  return rov_node_link_get(ses, id, field, link);
}

uint32_t rov_node_link_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  if (link == nullptr) return missing_argument(4);
  const uint32_t node = number_of(id);
  return rov::with_view(
      ses, [=](rov::View& view) { return rov::link_of_field(view, node, field, link); });
}

uint32_t rov_node_link_match(uint32_t ses, rov_node_id_t id, uint32_t field, uint32_t mask,
                             uint32_t value, uint32_t width, rov_link_t* link) {
  if (link == nullptr) return missing_argument(7);
  if (width == 0 || width > 32) return missing_argument(6);
  Access access(ses);
  if (access.failed()) return access.status();
  const uint32_t wanted = (field & ~mask) | (value & mask);
  return rov::link_matching(access.view(), number_of(id), wanted, width, link);
}

uint32_t rov_node_link_nth(uint32_t ses, rov_node_id_t id, uint32_t n, rov_link_t* link) {
  if (link == nullptr) return missing_argument(4);
  Access access(ses);
  if (access.failed()) return access.status();
  return rov::link_number(access.view(), number_of(id), n, link);
}

uint32_t rov_node_ref_get(uint32_t ses, rov_node_id_t id, uint32_t index, uint32_t* total,
                          uint32_t* field, rov_node_id_t* ref) {
  Access access(ses);
  if (access.failed()) return access.status();
  rov::View& view = access.view();
  const uint32_t node = number_of(id);
  uint32_t status = rov::find_settled_node(view, node);
  if (status != ROV_OK) return status;
  rov::Referrer referrer;
  status = rov::referrer_at(view, node, index, &referrer);
  if (status == ROV_ERR_NO_ITEM) return fail(status, Note::kNoReferrer, node, index);
  if (status != ROV_OK) return status;
  if (total != nullptr) *total = view.node.refs;
  if (field != nullptr) *field = referrer.field;
  if (ref != nullptr) *ref = rov::id_of(referrer.node);
  return ROV_OK;
}

uint32_t rov_node_ref_get_all(uint32_t ses, rov_node_id_t id, rov_node_id_t* refs, uint32_t count) {
  if (refs == nullptr && count != 0) return missing_argument(3);
  Access access(ses);
  if (access.failed()) return access.status();
  const uint32_t node = number_of(id);
  const uint32_t status = rov::find_settled_node(access.view(), node);
  if (status != ROV_OK) return status;
  uint32_t filled = 0;
  return rov::referrers_all(access.view(), node, refs, count, &filled);
}

uint32_t rov_node_dset_get(uint32_t ses, rov_node_id_t id, uint32_t selector,
                           rov_node_parms_t* parms) {
  if (parms == nullptr) return missing_argument(4);
  Access access(ses);
  if (access.failed()) return access.status();
  uint32_t node = 0;
  const uint32_t status = rov::dataset_of_node(access.view(), number_of(id), selector, &node);
  return status == ROV_OK ? rov::node_parms_of(access.view(), node, parms) : status;
}

uint32_t rov_ses_get_num_dsets(uint32_t ses, uint32_t* count) {
  if (count == nullptr) return missing_argument(2);
  Access access(ses);
  if (access.failed()) return access.status();
  return rov::datasets_count(access.view(), count);
}

uint32_t rov_ses_dset_get(uint32_t ses, uint32_t selector, rov_node_parms_t* parms) {
  if (parms == nullptr) return missing_argument(3);
  Access access(ses);
  if (access.failed()) return access.status();
  uint32_t node = 0;
  const uint32_t status = rov::dataset_at(access.view(), selector, &node);
  return status == ROV_OK ? rov::node_parms_of(access.view(), node, parms) : status;
}

uint32_t rov_ses_dset_name_get(uint32_t ses, uint32_t len, const void* name,
                               rov_node_parms_t* parms) {
  if (name == nullptr) return missing_argument(3);
  if (parms == nullptr) return missing_argument(4);
  if (len != rov::kNameBytes) return fail(ROV_ERR_LENGTH, Note::kNameLength, len);
  Access access(ses);
  if (access.failed()) return access.status();
  uint32_t node = 0;
  const uint32_t status =
      rov::dataset_named(access.view(), static_cast<const uint8_t*>(name), &node);
  return status == ROV_OK ? rov::node_parms_of(access.view(), node, parms) : status;
}
