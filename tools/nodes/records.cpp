// Nodes and bytes as answers to questions about them.
#include "tools/nodes/records.h"

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "tools/base/output.h"
#include "tools/base/table.h"

namespace qimctl {

void print_record(const qim_node_t& record, bool json) {
  if (json) {
    print(record_to_json(record).dump(2) + "\n");
    return;
  }
  const std::string contents = body_summary(record);
  print(node_id_text(record.id) + "  " + node_type_name(record.type) +
        (contents.empty() ? "" : "  " + contents) + "\n");
}

void print_records(const std::vector<qim_node_t>& records, const char* noun, bool json) {
  if (json) {
    JsonValue list = JsonValue::array();
    for (const qim_node_t& record : records) list.add(record_to_json(record));
    print(list.dump(2) + "\n");
    return;
  }
  TextTable table({"NODE", "TYPE", "CONTENTS"});
  for (const qim_node_t& record : records) {
    table.add({node_id_text(record.id), node_type_name(record.type), body_summary(record)});
  }
  if (!records.empty()) print(table.text());
  print(counted(records.size(), noun) + "\n");
}

void print_bytes(const std::vector<uint8_t>& bytes, bool json) {
  const std::string text = private_text(bytes.data(), bytes.size());
  if (json) {
    print(JsonValue(hex_bytes(bytes)).dump() + "\n");
  } else {
    print((bytes.empty() ? "none" : hex_bytes(bytes)) + (text.empty() ? "" : "  " + text) + "\n");
  }
}

qim_node_t read_typed(const ReadSession& session, uint32_t id, uint32_t type,
                      const std::string& purpose) {
  const qim_node_t record = read_record(session, id);
  if (record.type == type) return record;
  throw DatabaseError(
      QIM_ERR_NODE_TYPE, purpose + " " + node_id_text(id),
      "it is of type " + node_type_name(record.type) + ", not " + node_type_name(type));
}

}  // namespace qimctl
