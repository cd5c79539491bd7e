// Nodes as JSON.
#include "policy/formats/native/node_json.h"

#include <span>

#include "policy/base/criteria.h"
#include "policy/base/dsetname.h"
#include "policy/base/json_layout.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/words.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Record;
using qim::schema::Row;
using qim::schema::Slot;

const Record* body_of(uint32_t type) {
  const qim::schema::NodeType* known = qim::schema::node_type(type);
  return known == nullptr || known->body->row_count == 0 ? nullptr : known->body;
}

// A count or the like, which the library fills in by itself.
bool is_computed(const Row& row) {
  const std::string name = row.name;
  return row.copied && row.coding == Coding::none && row.slot == Slot::none && row.width <= 8 &&
         !name.starts_with("reserved") && name.find('.') == std::string::npos;
}

// Are the variable parts of a body told?
enum class Variable { none, commented, worded };

JsonValue criterion_to_json(const qim_criterion_t& criterion) {
  JsonValue value;
  value.set("type", criterion.type);
  value.set("args", hex_bytes(criterion.args, criterion.args_len));
  if (find_criterion_kind(criterion.type) != nullptr) {
    value.set("comment", criterion_text(criterion.type, {criterion.args, criterion.args_len}));
  }
  return value;
}

JsonValue criteria_to_json(const qim_criterion_t* first, Variable how) {
  JsonValue list = JsonValue::array();
  for (const qim_criterion_t* criterion = first; criterion != nullptr;
       criterion = criterion->next) {
    if (how == Variable::worded) {
      list.add(criterion_text(criterion->type, {criterion->args, criterion->args_len}));
    } else {
      list.add(criterion_to_json(*criterion));
    }
  }
  return list;
}

// The variable part that hangs on a pointer of the body.
JsonValue variable_to_json(const Row& row, const qim_node_t& record, Variable how) {
  if (row.coding == Coding::list) return criteria_to_json(record.body.filter.crit, how);
  const auto [bytes, length] = qim::schema::args_at(&record.body, row.position, row.length_at);
  return hex_bytes(bytes, length);
}

// The codes in a body that stand for something.
void name_types(const qim_node_t& record, JsonValue& body) {
  const std::string type = body_type_name(record);
  if (type.empty()) return;
  body.set("type", type);
  if (record.type == QIM_NODE_GROUP)
    body.set("subtype", list_type_words(record.body.group.subtype));
}

JsonValue body_to_json(const qim_node_t& record, Variable parts) {
  JsonValue body = JsonValue::object();
  const Record* rows = body_of(record.type);
  if (rows == nullptr) return body;
  for (const Row& row : *rows) {
    if (is_input(row)) body.set(row.name, row_to_json(row, &record.body));
    const bool variable = row.coding == Coding::list || row.coding == Coding::args;
    if (variable && parts != Variable::none) {
      body.set(row.name, variable_to_json(row, record, parts));
    }
  }
  if (parts == Variable::worded) name_types(record, body);
  return body;
}

void add_computed(const Record& rows, const void* record, JsonValue& computed) {
  for (const Row& row : rows) {
    if (is_computed(row)) computed.set(row.name, row_to_json(row, record));
  }
}

JsonValue computed_to_json(const qim_node_t& record) {
  JsonValue computed;
  add_computed(qim::schema::node, &record, computed);
  // These two lead the node's own description.
  computed.erase("id");
  computed.erase("type");
  const Record* rows = body_of(record.type);
  if (rows != nullptr) add_computed(*rows, &record.body, computed);
  return computed;
}

JsonValue head_to_json(const qim_node_t& record, Variable parts) {
  JsonValue value;
  value.set("id", node_id_text(record.id));
  value.set("type", node_type_name(record.type));
  if (qim::schema::is_of(record.type, qim::schema::family::data_sets)) return value;
  for (const Row& row : qim::schema::node) {
    if (is_input(row)) value.set(row.name, row_to_json(row, &record));
  }
  JsonValue body = body_to_json(record, parts);
  if (!body.is_empty()) value.set("body", std::move(body));
  return value;
}

void append(std::string& text, const std::string& part) {
  if (!text.empty() && !part.empty()) text += ", ";
  text += part;
}

std::string quoted(const uint8_t* name, size_t length) {
  return qimctl::quoted({name, name + length});
}

// What an entry is called, in quotes; "" when it is called nothing.
std::string entry_name(const qim_criterion_t* first) {
  for (const auto* criterion = first; criterion != nullptr; criterion = criterion->next) {
    if (criterion->type == criterion_name) return quoted(criterion->args, criterion->args_len);
  }
  return "";
}

// " (accept)" behind the type of an action or a default, which share their types.
std::string type_note(const qim_node_t& record) {
  const std::string name = record.type == QIM_NODE_GROUP ? "" : body_type_name(record);
  return name.empty() ? "" : " (" + name + ")";
}

JsonValue image_to_json(const NodeImage& image, Variable parts) {
  JsonValue value = head_to_json(image.record, parts);
  if (!image.links.empty()) {
    JsonValue links;
    for (const qim_link_t& link : image.links) {
      links.append(slot_name(link.field), link_to_json(link));
    }
    value.set("links", std::move(links));
  }
  if (image.dset) value.set("dset", dset_to_json(*image.dset));
  if (image.record.priv_len != 0) {
    value.set("priv", hex_bytes(image.record.priv_buf, image.record.priv_len));
  }
  value.set("computed", computed_to_json(image.record));
  return value;
}

std::string member_summary(const Row& row, const qim_node_t& record) {
  const JsonValue value = row_to_json(row, &record.body);
  if (value.is_zero()) return "";
  const bool type = row.tlv_id != 0 && std::string_view(row.name) == "type";
  return row.name + (" " + inline_text(value.get())) + (type ? type_note(record) : "");
}

}  // namespace

JsonValue node_to_json(const NodeImage& image) {
  return image_to_json(image, Variable::commented);
}

JsonValue node_to_worded_json(const NodeImage& image) {
  return image_to_json(image, Variable::worded);
}

JsonValue link_to_json(const qim_link_t& link) {
  if (link.node2 == 0 && link.val == 0 && link.tag == 0) return node_id_text(link.node);
  JsonValue value;
  value.set("node", node_id_text(link.node));
  if (link.node2 != 0) value.set("node2", node_id_text(link.node2));
  if (link.val != 0) value.set("val", link.val);
  if (link.tag != 0) value.set("tag", link.tag);
  return value;
}

JsonValue record_to_json(const qim_node_t& record) {
  JsonValue value = head_to_json(record, Variable::none);
  if (has_dset(record)) value.set("dset", dset_to_json(name_of(record.body.pinst.fields)));
  value.set("computed", computed_to_json(record));
  return value;
}

std::string body_type_name(const qim_node_t& record) {
  if (record.type == QIM_NODE_ACTION) return std::string(action_name(record.body.action.type));
  if (record.type == QIM_NODE_DEF) return std::string(action_name(record.body.def.type));
  const bool is_list = record.type == QIM_NODE_GROUP && record.body.group.type == group_access_list;
  return is_list ? "access list" : "";
}

std::string members_summary(const qim_node_t& record) {
  std::string text;
  const Record* rows = body_of(record.type);
  if (rows == nullptr) return text;
  for (const Row& row : *rows) {
    if (is_input(row) || is_computed(row)) append(text, member_summary(row, record));
  }
  return text;
}

std::string body_summary(const qim_node_t& record) {
  std::string text;
  if (has_dset(record)) append(text, dset_text(record.body.pinst.fields));
  append(text, members_summary(record));
  return text;
}

std::string private_text(const void* data, size_t length) {
  const std::string text(static_cast<const char*>(data), length);
  return reads_as_text(text) ? quoted(text) : "";
}

std::string named_summary(const std::string& private_text, const qim_node_t& record) {
  std::string text = private_text;
  append(text, body_summary(record));
  return text;
}

std::string node_summary(const NodeImage& image) {
  qim_node_t record = image.record;
  std::string text = private_text(record.priv_buf, record.priv_len);
  if (record.type == QIM_NODE_ACTION && record.body.action.type == QIM_ACTION_NAME) {
    append(text, quoted(record.body.action.args, record.body.action.args_len));
    record.body.action.args_len = 0;
  }
  if (has_criteria(record.type)) {
    append(text, entry_name(record.body.filter.crit));
    for (const auto* criterion = record.body.filter.crit; criterion != nullptr;
         criterion = criterion->next) {
      if (criterion->type == criterion_name) continue;
      append(text, criterion_text(criterion->type, {criterion->args, criterion->args_len}));
    }
    record.body.filter.crit_cnt = 0;
    record.body.filter.crit_bytes = 0;
    // What nearly all do is not worth the room.
    const bool usual =
        record.body.filter.match == QIM_LINK_TRUE && record.body.filter.nomatch == QIM_LINK_NEXT;
    if (usual) record.body.filter.match = record.body.filter.nomatch = 0;
  }
  return named_summary(text, record);
}

}  // namespace qimctl
