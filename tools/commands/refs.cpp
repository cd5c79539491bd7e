// `qimctl refs`: the nodes that refer to a node.
#include "tools/commands/refs.h"

#include <cstdlib>
#include <memory>
#include <vector>

#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "tools/nodes/records.h"

namespace qimctl {

namespace {

std::vector<uint32_t> referrers(const ReadSession& session, const qim_node_t& record) {
  uint32_t* ids = nullptr;
  uint32_t count = 0;
  require(qim_ref_get_all(session.handle(), &record, &ids, &count),
          "list the referrers of " + node_id_text(record.id));
  const std::unique_ptr<uint32_t, decltype(&free)> owned(ids, free);
  return {ids, ids + count};
}

}  // namespace

void print_referrers(const ReadSession& session, uint32_t id, OutputForm form) {
  std::vector<qim_node_t> records;
  for (const uint32_t referrer : referrers(session, read_record(session, id))) {
    records.push_back(read_record(session, referrer));
  }
  print_records(records, "referrer", form);
}

}  // namespace qimctl
