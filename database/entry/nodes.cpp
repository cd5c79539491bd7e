// C entries: reading nodes, links, referrers and data sets, and publishing data sets.
#include "database/graph/nodes.h"

#include "database/base/error.h"
#include "database/graph/datasets.h"
#include "database/graph/edit.h"
#include "database/graph/referrers.h"
#include "database/session/publication.h"
#include "database/session/session.h"
#include "rov_edit.h"

using rov::bad_argument;
using rov::fail;
using rov::Note;
using rov::number_of;
using rov::View;

uint32_t rov_node_parms_get(uint32_t ses, rov_node_id_t id, rov_node_parms_t* parms) {
  if (parms == nullptr) return bad_argument(3);
  const uint32_t node = number_of(id);
  return rov::with_view(ses, [=](View& view) { return rov::node_parms_of(view, node, parms); });
}

uint32_t rov_node_data_get(uint32_t ses, rov_node_id_t id, uint32_t tlv_len, void* tlv,
                           uint32_t dset_len, void* dset, uint32_t priv_len, void* priv) {
  const uint32_t node = number_of(id);
  return rov::with_view(ses, [=](View& view) {
    return rov::node_data(view, node, {tlv_len, tlv}, {dset_len, dset}, {priv_len, priv});
  });
}

uint32_t rov_node_next(uint32_t ses, rov_node_id_t after, rov_node_parms_t* parms) {
  if (parms == nullptr) return bad_argument(3);
  return rov::with_view(ses, [=](View& view) {
    const uint32_t number = number_of(after);
    if (number == 0 && !rov::is_zero(after)) return bad_argument(2);
    const uint32_t status = rov::node_after(view, number);
    return status == ROV_OK ? rov::node_parms(view, parms) : status;
  });
}

uint32_t rov_node_ln_field_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  return rov_node_link_get(ses, id, field, link);
}

uint32_t rov_node_link_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  if (link == nullptr) return bad_argument(4);
  const uint32_t node = number_of(id);
  return rov::with_view(ses,
                        [=](View& view) { return rov::link_of_field(view, node, field, link); });
}

uint32_t rov_node_link_match(uint32_t ses, rov_node_id_t id, uint32_t field, uint32_t mask,
                             uint32_t value, uint32_t width, rov_link_t* link) {
  if (link == nullptr) return bad_argument(7);
  if (width == 0 || width > 32) return bad_argument(6);
  const uint32_t wanted = (field & ~mask) | (value & mask);
  return rov::with_view(ses, [=](View& view) {
    return rov::link_matching(view, number_of(id), wanted, width, link);
  });
}

uint32_t rov_node_link_nth(uint32_t ses, rov_node_id_t id, uint32_t n, rov_link_t* link) {
  if (link == nullptr) return bad_argument(4);
  return rov::with_view(ses,
                        [=](View& view) { return rov::link_number(view, number_of(id), n, link); });
}

uint32_t rov_node_ref_get(uint32_t ses, rov_node_id_t id, uint32_t index, uint32_t* total,
                          uint32_t* field, rov_node_id_t* ref) {
  return rov::with_view(ses, [=](View& view) {
    return rov::referrer_get(view, number_of(id), index, total, field, ref);
  });
}

uint32_t rov_node_ref_get_all(uint32_t ses, rov_node_id_t id, rov_node_id_t* refs, uint32_t count) {
  if (refs == nullptr && count != 0) return bad_argument(3);
  return rov::with_view(ses, [=](View& view) {
    const uint32_t status = rov::find_settled_node(view, number_of(id));
    uint32_t filled = 0;
    return status == ROV_OK ? rov::referrers_all(view, number_of(id), refs, count, &filled)
                            : status;
  });
}

uint32_t rov_node_dset_get(uint32_t ses, rov_node_id_t id, uint32_t selector,
                           rov_node_parms_t* parms) {
  if (parms == nullptr) return bad_argument(4);
  return rov::with_view(ses, [=](View& view) {
    uint32_t node = 0;
    const uint32_t status = rov::dataset_of_node(view, number_of(id), selector, &node);
    return status == ROV_OK ? rov::node_parms_of(view, node, parms) : status;
  });
}

uint32_t rov_ses_get_num_dsets(uint32_t ses, uint32_t* count) {
  if (count == nullptr) return bad_argument(2);
  return rov::with_view(ses, [=](View& view) { return rov::datasets_count(view, count); });
}

uint32_t rov_ses_dset_get(uint32_t ses, uint32_t selector, rov_node_parms_t* parms) {
  if (parms == nullptr) return bad_argument(3);
  return rov::with_view(ses, [=](View& view) {
    uint32_t node = 0;
    const uint32_t status = rov::dataset_at(view, selector, &node);
    return status == ROV_OK ? rov::node_parms_of(view, node, parms) : status;
  });
}

uint32_t rov_ses_dset_name_get(uint32_t ses, uint32_t len, const void* name,
                               rov_node_parms_t* parms) {
  if (name == nullptr) return bad_argument(3);
  if (parms == nullptr) return bad_argument(4);
  if (len != rov::kNameBytes) return fail(ROV_ERR_LENGTH, Note::kNameLength, len);
  return rov::with_view(ses, [=](View& view) {
    uint32_t node = 0;
    const uint32_t status = rov::dataset_named(view, static_cast<const uint8_t*>(name), &node);
    return status == ROV_OK ? rov::node_parms_of(view, node, parms) : status;
  });
}

uint32_t rov_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size) {
  if (dset_name == nullptr) return bad_argument(2);
  if (size == nullptr) return bad_argument(3);
  return rov::publication_size(ses, static_cast<const uint8_t*>(dset_name), size);
}

uint32_t rov_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf) {
  if (dset_name == nullptr) return bad_argument(2);
  if (buf == nullptr) return bad_argument(4);
  return rov::publication_write(ses, static_cast<const uint8_t*>(dset_name),
                                static_cast<uint8_t*>(buf), len);
}
