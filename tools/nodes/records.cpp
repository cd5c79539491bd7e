// Nodes and bytes as answers to questions about them.
#include "tools/nodes/records.h"

#include <cstdlib>
#include <memory>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"
#include "tools/nodes/node_words.h"

namespace qimctl {

namespace {

std::string words_of(const ReadSession& session, const qim_node_t& record, OutputForm form) {
  return node_words(session, read_contents(session, record.id), form == OutputForm::wide);
}

}  // namespace

void print_record(const ReadSession& session, const qim_node_t& record, OutputForm form) {
  if (!is_text(form)) return print_value(record_to_json(record), form);
  const std::string contents = words_of(session, record, form);
  print(node_id_text(record.id) + "  " + node_type_name(record.type) +
        (contents.empty() ? "" : "  " + contents) + "\n");
}

ListedNode read_listed(const ReadSession& session, uint32_t id) {
  ListedNode node{id, {}, ""};
  try {
    node.record = read_record(session, id);
  } catch (const DatabaseError& error) {
    if (!is_about_contents(error.status())) throw;
    node.why = std::string("undecodable: ") + harmless(error.what());
  }
  return node;
}

JsonValue listed_to_json(const ListedNode& node) {
  if (node.record) return record_to_json(*node.record);
  JsonValue value;
  value.set("id", node_id_text(node.id));
  value.set("undecodable", node.why);
  return value;
}

bool print_records(const ReadSession& session, const std::vector<ListedNode>& nodes,
                   const char* noun, OutputForm form) {
  Rows rows(form, {{"NODE"}, {"TYPE"}, {"CONTENTS"}});
  bool all = true;
  for (const ListedNode& node : nodes) {
    if (!node.record) all = false;
    if (!rows.is_text()) {
      rows.add(listed_to_json(node));
    } else if (node.record) {
      rows.add({node_id_text(node.id), node_type_name(node.record->type),
                words_of(session, *node.record, form)});
    } else {
      rows.add({node_id_text(node.id), "?", node.why});
    }
  }
  rows.finish(noun);
  return all;
}

std::vector<ListedNode> read_referrers(const ReadSession& session, const qim_node_t& record) {
  uint32_t* ids = nullptr;
  uint32_t count = 0;
  require(qim_ref_get_all(session.handle(), &record, &ids, &count),
          "list the referrers of " + node_id_text(record.id));
  const std::unique_ptr<uint32_t, decltype(&free)> owned(ids, free);
  std::vector<ListedNode> nodes;
  for (uint32_t i = 0; i < count; i++) nodes.push_back(read_listed(session, ids[i]));
  return nodes;
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
