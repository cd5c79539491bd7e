// `qimctl args`: the arguments of an action or default.
#include "tools/commands/args.h"

#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "schema/args_field.h"
#include "schema/rows.h"
#include "tools/nodes/records.h"

namespace qimctl {

namespace {

// "Action or Def"
std::string types_with_arguments() {
  std::string names;
  for (const qim::schema::NodeType* type : qim::schema::types_by_code.at) {
    if (type == nullptr || args_of(*type) == nullptr) continue;
    names += (names.empty() ? "" : " or ") + std::string(type->name);
  }
  return names;
}

std::vector<uint8_t> arguments(const ReadSession& session, const qim_node_t& record) {
  const qim::schema::Row* row = args_of(*qim::schema::node_type(record.type));
  if (row == nullptr) {
    throw DatabaseError(
        QIM_ERR_NODE_TYPE, "read the arguments of " + node_id_text(record.id),
        "it is of type " + node_type_name(record.type) + ", not " + types_with_arguments());
  }
  const NodeImage image = read_node(session, record.id);
  const auto [bytes, length] =
      qim::schema::args_at(&image.record.body, row->position, row->length_at);
  return {bytes, bytes + length};
}

}  // namespace

void print_args(const ReadSession& session, uint32_t id, OutputForm form) {
  print_bytes(arguments(session, read_record(session, id)), form);
}

}  // namespace qimctl
