// `qimctl edest`: where a policy instance is enforced.
#include "tools/commands/edest.h"

#include <utility>
#include <vector>

#include "policy/base/names.h"
#include "tools/nodes/records.h"

namespace qimctl {

bool print_edests(const ReadSession& session, uint32_t pinst, OutputForm form) {
  const qim_node_t instance =
      read_typed(session, pinst, QIM_NODE_PINST, "list the enforcement destinations of");
  std::vector<ListedNode> nodes;
  for (ListedNode& node : read_referrers(session, instance)) {
    if (!node.record || node.record->type == QIM_NODE_EDEST) nodes.push_back(std::move(node));
  }
  return print_records(session, nodes, "enforcement destination", form);
}

void print_edest_at(const ReadSession& session, uint32_t pinst, const qim_policy_dest_t& dest,
                    OutputForm form) {
  const std::string purpose = "find that enforcement destination of";
  const qim_node_t instance = read_typed(session, pinst, QIM_NODE_PINST, purpose);
  qim_node_t record{};
  require(qim_pinst_edest_lookup(session.handle(), &instance, &dest, &record),
          purpose + " " + node_id_text(pinst));
  print_record(session, record, form);
}

}  // namespace qimctl
