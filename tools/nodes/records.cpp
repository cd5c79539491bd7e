// Nodes and bytes as answers to questions about them.
#include "tools/nodes/records.h"

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"

namespace qimctl {

void print_record(const qim_node_t& record, OutputForm form) {
  if (!is_text(form)) return print_value(record_to_json(record), form);
  const std::string contents = body_summary(record);
  print(node_id_text(record.id) + "  " + node_type_name(record.type) +
        (contents.empty() ? "" : "  " + contents) + "\n");
}

void print_records(const std::vector<qim_node_t>& records, const char* noun, OutputForm form) {
  Rows rows(form, {{"NODE"}, {"TYPE"}, {"CONTENTS"}});
  for (const qim_node_t& record : records) {
    if (rows.is_text()) {
      rows.add({node_id_text(record.id), node_type_name(record.type), body_summary(record)});
    } else {
      rows.add(record_to_json(record));
    }
  }
  rows.finish(noun);
}

void print_bytes(const std::vector<uint8_t>& bytes, OutputForm form) {
  if (!is_text(form)) return print_value(hex_bytes(bytes), form);
  const std::string text = private_text(bytes.data(), bytes.size());
  print((bytes.empty() ? "none" : hex_bytes(bytes)) + (text.empty() ? "" : "  " + text) + "\n");
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
