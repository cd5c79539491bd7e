// `qimctl refs`: the nodes that refer to a node.
#include "tools/commands/refs.h"

#include "policy/store/node_image.h"
#include "tools/nodes/records.h"

namespace qimctl {

bool print_referrers(const ReadSession& session, uint32_t id, OutputForm form) {
  return print_records(session, read_referrers(session, read_record(session, id)), "referrer",
                       form);
}

}  // namespace qimctl
