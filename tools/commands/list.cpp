// `qimctl list`: the nodes of a database.
#include "tools/commands/list.h"

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "tools/base/rows.h"
#include "tools/nodes/records.h"

namespace qimctl {

namespace {

// What a node is called is often kept with it.
std::string contents(const ReadSession& session, const qim_node_t& record) {
  constexpr uint32_t longest_name = 64;
  if (record.priv_len > longest_name) return body_summary(record);
  const std::vector<uint8_t> priv = read_private(session, record);
  return named_summary(private_text(priv.data(), priv.size()), record);
}

void add_row(Rows& rows, const ReadSession& session, const ListedNode& node) {
  if (!rows.is_text()) return rows.add(listed_to_json(node));
  if (!node.record) return rows.add({node_id_text(node.id), "?", "", "", "", "", node.why});
  const qim_node_t& record = *node.record;
  rows.add({node_id_text(record.id), node_type_name(record.type), std::to_string(record.group),
            hex_number(record.flags, 1), std::to_string(record.links_total),
            std::to_string(record.refs), contents(session, record)});
}

}  // namespace

bool list_nodes(const ReadSession& session, const ListOptions& options) {
  Rows rows(options.form,
            {{"NODE"}, {"TYPE"}, {"GROUP"}, {"FLAGS"}, {"LINKS"}, {"REFS"}, {"CONTENTS"}});
  bool all = true;
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const ListedNode node = read_listed(session, qim_from_rov_node_id(&parms.id));
    if (options.type && (!node.record || node.record->type != *options.type)) return;
    if (!node.record) all = false;
    add_row(rows, session, node);
  });
  rows.finish("node");
  return all;
}

}  // namespace qimctl
