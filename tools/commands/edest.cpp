// `qimctl edest`: where a policy instance is enforced.
#include "tools/commands/edest.h"

#include "policy/base/names.h"
#include "tools/nodes/records.h"

namespace qimctl {

void print_edests(const ReadSession& session, uint32_t pinst, OutputForm form) {
  const qim_node_t instance =
      read_typed(session, pinst, QIM_NODE_PINST, "list the enforcement destinations of");
  std::vector<qim_node_t> records;
  for (uint32_t n = 0; n < instance.refs; n++) {
    qim_node_t record{};
    const uint32_t status = qim_pinst_edest_get(session.handle(), pinst, n, &record);
    if (status == QIM_ERR_INVALID) break;  // there is no n-th
    require(status, "read the enforcement destinations of " + node_id_text(pinst));
    records.push_back(record);
  }
  print_records(records, "enforcement destination", form);
}

void print_edest_at(const ReadSession& session, uint32_t pinst, const qim_policy_dest_t& dest,
                    OutputForm form) {
  const std::string purpose = "find that enforcement destination of";
  const qim_node_t instance = read_typed(session, pinst, QIM_NODE_PINST, purpose);
  qim_node_t record{};
  require(qim_pinst_edest_lookup(session.handle(), &instance, &dest, &record),
          purpose + " " + node_id_text(pinst));
  print_record(record, form);
}

}  // namespace qimctl
