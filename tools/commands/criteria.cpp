// `qimctl criteria`: a filter's criteria.
#include "tools/commands/criteria.h"

#include <utility>
#include <vector>

#include "policy/base/criteria.h"
#include "policy/base/json.h"
#include "policy/base/names.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"
#include "tools/nodes/records.h"

namespace qimctl {

void print_criteria(const ReadSession& session, uint32_t id, OutputForm form) {
  const qim_node_t record = read_typed(session, id, QIM_NODE_FILTER, "read the criteria of");
  std::vector<uint64_t> room(record.body.filter.crit_bytes / sizeof(uint64_t) + 1);
  const auto bytes = static_cast<uint32_t>(room.size() * sizeof(uint64_t));
  if (record.body.filter.crit_cnt != 0) {
    require(qim_filter_criteria_get(session.handle(), id, bytes, room.data()),
            "read the criteria of " + node_id_text(id));
  } else if (is_text(form)) {
    return print("none\n");
  }
  Rows rows(form, {});
  const auto* crit = reinterpret_cast<const qim_criterion_t*>(room.data());
  if (record.body.filter.crit_cnt == 0) crit = nullptr;
  for (; crit != nullptr; crit = crit->next) {
    const std::string text = criterion_text(crit->type, {crit->args, crit->args_len});
    if (is_text(form)) {
      print(text + "\n");
      continue;
    }
    JsonValue item;
    item.set("type", crit->type);
    item.set("args", hex_bytes(crit->args, crit->args_len));
    item.set("text", text);
    rows.add(item);
  }
  rows.finish();
}

}  // namespace qimctl
