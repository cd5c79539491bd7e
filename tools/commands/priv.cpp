// `qimctl priv`: this tool's private data on a node.
#include "tools/commands/priv.h"

#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "tools/nodes/records.h"

namespace qimctl {

void print_private(const ReadSession& session, uint32_t id, OutputForm form) {
  print_bytes(read_private(session, read_record(session, id)), form);
}

void set_private(const ReadSession& session, uint32_t id, const std::vector<uint8_t>& data,
                 OutputForm form) {
  const auto length = static_cast<uint32_t>(data.size());
  require_node(qim_node_priv_set(session.handle(), id, data.data(), length),
               "set the private data of " + node_id_text(id));
  if (is_text(form)) return;
  JsonValue value;
  value.set("node", node_id_text(id));
  value.set("bytes", data.size());
  print_value(value, form);
}

}  // namespace qimctl
