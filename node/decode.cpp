// From a node's TLV to its record: the codec fills in what was stored, and the rest follows from
// that, the links by the node's type, and the counts.
#include "node/decode.h"

#include "lib/report.h"
#include "node/resolve.h"
#include "rov.h"
#include "tlvo.h"

namespace qim::node {
namespace {

constexpr const char* kDecode = "qim_node_from_tlva";

// What copying a criterion out takes beside its arguments: its record and the alignment around
// both.
constexpr uint32_t kCriterionRoom = 32;

void count_criteria(qim_filter_t& filter) {
  uint32_t bytes = 0;
  for (const qim_criterion_t* crit = filter.crit; crit != nullptr; crit = crit->next) {
    filter.crit_cnt++;
    bytes += kCriterionRoom + crit->args_len;
  }
  filter.crit_bytes = bytes;
}

// Every referrer of a policy instance counts as an enforcement destination, so there is nothing to
// count anew.
void qim_node_nonedests_recount(qim_node_t* node) {
  node->body.pinst.nonedests = 0;
}

uint32_t pinst_fill(uint32_t ses, uint32_t name_len, const void* name, qim_node_t* node) {
  qim_node_nonedests_recount(node);
  node->body.pinst.edests = node->refs;
  const uint32_t status = qim_pinst_dsetname_get(ses, name_len, name, node);
  if (status != ROV_OK) report(status, kDecode, 337, qim_lib_get());
  return status;
}

// What a node's type asks for after decoding.
uint32_t finish(uint32_t ses, const schema::NodeType* type, qim_node_t* node) {
  if (type == nullptr) {
    qim_dbg_errors(QIM_ERR_INTERNAL, kDecode, 361, qim_lib_get());
    return QIM_ERR_NODE_TYPE;
  }
  const uint32_t status = links_get(ses, *type, node);
  if (schema::list_of(*type) != nullptr) {
    count_criteria(node->body.filter);  // even of a filter whose links failed
  }
  return status;
}

}  // namespace

uint32_t qim_node_from_tlva(uint32_t ses, uint32_t tlv_len, const void* tlv, uint32_t name_len,
                            const void* name, qim_node_t* node) {
  uint32_t status = qim_node_to_struct(&node, tlv, tlv_len, TLVO_DEC_IN_PLACE);
  if (status != ROV_OK) {
    report(status, kDecode, 304, qim_lib_get());
    return status;
  }
  const schema::NodeType* type = schema::tlv_type(node->type);
  if (type != nullptr && type->naming != schema::Naming::never) {
    return pinst_fill(ses, name_len, name, node);
  }
  status = finish(ses, type, node);
  if (status != ROV_OK) report(status, kDecode, 370, qim_lib_get());
  return status;
}

}  // namespace qim::node
