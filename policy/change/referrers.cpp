// Who refers to nodes that are to go.
#include "policy/change/referrers.h"

#include <algorithm>

#include "policy/base/names.h"
#include "policy/store/database.h"
#include "rov.h"

namespace qimctl {

namespace {

std::string node_words(uint32_t session, uint32_t id) {
  qim_node_t record;
  const uint32_t status = qim_node_read(session, id, 0, &record);
  const std::string text = "node " + node_id_text(id);
  return status == ROV_OK ? text + " (" + node_type_name(record.type) + ")" : text;
}

// The first referrer that is none of `nodes`, 0 when there is none.
uint32_t outsider(uint32_t session, uint32_t id, const std::vector<uint32_t>& nodes) {
  for (uint32_t index = 0;; index++) {
    uint32_t referrer = 0;
    const uint32_t status = qim_ref_get(session, id, index, &referrer);
    if (status != ROV_ERR_NO_ITEM)
      require(status, "list the referrers of node " + node_id_text(id));
    if (referrer == 0 || !std::binary_search(nodes.begin(), nodes.end(), referrer)) return referrer;
  }
}

}  // namespace

std::string outside_referrer(uint32_t session, const std::vector<uint32_t>& nodes) {
  for (const uint32_t id : nodes) {
    const uint32_t referrer = outsider(session, id, nodes);
    if (referrer != 0) return node_words(session, referrer);
  }
  return "";
}

bool has_outside_referrer(uint32_t session, uint32_t id, const std::vector<uint32_t>& nodes) {
  return outsider(session, id, nodes) != 0;
}

}  // namespace qimctl
