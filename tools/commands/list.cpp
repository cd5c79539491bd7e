// `qimctl list`: the nodes of a database.
#include "tools/commands/list.h"

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "tools/base/output.h"
#include "tools/base/table.h"

namespace qimctl {

namespace {

// Calls visit(record) for every node that is wanted.
template <typename Visit>
void each_record(const ReadSession& session, const ListOptions& options, Visit visit) {
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const qim_node_t record = read_record(session, qim_from_rov_node_id(&parms.id));
    if (!options.type || record.type == *options.type) visit(record);
  });
}

// Printed node by node: a database may be larger than what one likes to hold at once.
void list_json(const ReadSession& session, const ListOptions& options) {
  const char* separator = "[\n";
  each_record(session, options, [&separator](const qim_node_t& record) {
    print(separator + record_to_json(record).dump());
    separator = ",\n";
  });
  print(*separator == '[' ? "[]\n" : "\n]\n");
}

// What a node is called is often kept with it.
std::string contents(const ReadSession& session, const qim_node_t& record) {
  constexpr uint32_t longest_name = 64;
  if (record.priv_len > longest_name) return body_summary(record);
  const std::vector<uint8_t> priv = read_private(session, record);
  return named_summary(private_text(priv.data(), priv.size()), record);
}

void list_text(const ReadSession& session, const ListOptions& options) {
  TextTable table({"NODE", "TYPE", "GROUP", "FLAGS", "LINKS", "REFS", "CONTENTS"});
  size_t count = 0;
  each_record(session, options, [&](const qim_node_t& record) {
    table.add({node_id_text(record.id), node_type_name(record.type), std::to_string(record.group),
               hex_number(record.flags, 1), std::to_string(record.links_total),
               std::to_string(record.refs), contents(session, record)});
    count++;
  });
  if (count != 0) print(table.text());
  print(counted(count, "node") + "\n");
}

}  // namespace

void list_nodes(const ReadSession& session, const ListOptions& options) {
  options.json ? list_json(session, options) : list_text(session, options);
}

}  // namespace qimctl
