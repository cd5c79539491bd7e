// `qimctl criteria`: a filter's criteria.
#include "tools/commands/criteria.h"

#include <utility>
#include <vector>

#include "policy/base/criteria.h"
#include "policy/base/json.h"
#include "policy/base/names.h"
#include "tools/base/output.h"
#include "tools/nodes/records.h"

namespace qimctl {

void print_criteria(const ReadSession& session, uint32_t id, bool json) {
  const qim_node_t record = read_typed(session, id, QIM_NODE_FILTER, "read the criteria of");
  std::vector<uint64_t> room(record.body.filter.crit_bytes / sizeof(uint64_t) + 1);
  const auto bytes = static_cast<uint32_t>(room.size() * sizeof(uint64_t));
  if (record.body.filter.crit_cnt == 0) {
    print(json ? "[]\n" : "none\n");
    return;
  }
  require(qim_filter_criteria_get(session.handle(), id, bytes, room.data()),
          "read the criteria of " + node_id_text(id));
  JsonValue list = JsonValue::array();
  for (const auto* crit = reinterpret_cast<const qim_criterion_t*>(room.data()); crit != nullptr;
       crit = crit->next) {
    if (crit->type == criterion_name) continue;
    const std::string text = criterion_text(crit->type, {crit->args, crit->args_len});
    JsonValue item;
    item.set("type", crit->type);
    item.set("args", hex_bytes(crit->args, crit->args_len));
    item.set("text", text);
    list.add(std::move(item));
    if (!json) print(text + "\n");
  }
  if (json) print(list.dump(2) + "\n");
}

}  // namespace qimctl
