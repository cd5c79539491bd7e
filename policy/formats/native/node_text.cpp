// Nodes as the native format's text.
#include "policy/formats/native/node_text.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "policy/formats/native/native.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Record;
using qim::schema::Row;

// An object in one line. Names and texts are written as they are: none here has anything to escape.
class ObjectText {
 public:
  explicit ObjectText(std::string& to) : to_(to) { to_ += '{'; }
  void close() { to_ += '}'; }

  // What follows is the member's value.
  void member(std::string_view name) {
    to_ += first_ ? "\"" : ",\"";
    first_ = false;
    to_ += name;
    to_ += "\":";
  }
  void text(std::string_view name, std::string_view value) {
    member(name);
    to_ += '"';
    to_ += value;
    to_ += '"';
  }
  void number(std::string_view name, uint64_t value) {
    char digits[20];
    char* end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    member(name);
    to_.append(digits, static_cast<size_t>(end - digits));
  }
  void bytes(std::string_view name, const void* from, size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    member(name);
    to_ += '"';
    for (const auto *at = static_cast<const uint8_t*>(from), *end = at + count; at != end; at++) {
      to_ += digits[*at >> 4];
      to_ += digits[*at & 0xf];
    }
    to_ += '"';
  }
  void id(std::string_view name, uint32_t value) {
    const uint8_t big_endian[] = {static_cast<uint8_t>(value >> 24),
                                  static_cast<uint8_t>(value >> 16),
                                  static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    bytes(name, big_endian, sizeof(big_endian));
    to_.insert(to_.size() - 9, "0x");
  }

 private:
  std::string& to_;
  bool first_ = true;
};

void add_row(std::string& to, ObjectText& object, const Row& row, const void* record) {
  if (row.coding == Coding::record) {
    object.member(row.name);
    ObjectText inner(to);
    for (const Row& member : *row.record)
      if (is_input(member))
        add_row(to, inner, member, static_cast<const char*>(record) + row.position);
    inner.close();
    return;
  }
  const uint64_t value = load(record, row.position, row.width);
  const char* name =
      row.show_kind == ROV_SHOW_ENUM ? link_kind_name(static_cast<uint32_t>(value)) : nullptr;
  if (name != nullptr) {
    object.text(row.name, name);
  } else if (value <= max_json_number) {
    object.number(row.name, value);
  } else {
    object.text(row.name, hex_number(value, 16));
  }
}

void add_criteria(std::string& to, const qim_criterion_t* first) {
  to += '[';
  for (const qim_criterion_t* criterion = first; criterion != nullptr;
       criterion = criterion->next) {
    if (criterion != first) to += ',';
    ObjectText object(to);
    object.number("type", criterion->type);
    object.bytes("args", criterion->args, criterion->args_len);
    object.close();
  }
  to += ']';
}

bool is_told(const Row& row) {
  return is_input(row) || row.coding == Coding::list || row.coding == Coding::args;
}

void add_body(std::string& to, ObjectText& node, const qim_node_t& record) {
  const Record& rows = *qim::schema::node_type(record.type)->body;
  if (std::none_of(rows.begin(), rows.end(), is_told)) return;
  node.member("body");
  ObjectText body(to);
  for (const Row& row : rows) {
    if (is_input(row)) {
      add_row(to, body, row, &record.body);
    } else if (row.coding == Coding::list) {
      body.member(row.name);
      add_criteria(to, record.body.filter.crit);
    } else if (row.coding == Coding::args) {
      const auto [bytes, length] = qim::schema::args_at(&record.body, row.position, row.length_at);
      body.bytes(row.name, bytes, length);
    }
  }
  body.close();
}

void add_link(std::string& to, ObjectText& links, const rov_link_t& link) {
  const std::string name = slot_name(link.field);
  const uint32_t node = qim_from_rov_node_id(&link.node);
  const uint32_t node2 = qim_from_rov_node_id(&link.node2);
  if (node2 == 0 && link.val == 0 && link.tag == 0) return links.id(name, node);
  links.member(name);
  ObjectText object(to);
  object.id("node", node);
  if (node2 != 0) object.id("node2", node2);
  if (link.val != 0) object.number("val", link.val);
  if (link.tag != 0) object.number("tag", link.tag);
  object.close();
}

void add_private(std::string& to, ObjectText& node, const StoredNode& stored) {
  size_t others = stored.clients.size();
  for (const ClientData& data : stored.clients) {
    if (data.client != client_id) continue;
    node.bytes("priv", data.data.data(), data.data.size());
    others--;
  }
  if (others == 0) return;
  node.member("private");
  ObjectText object(to);
  for (const ClientData& data : stored.clients)
    if (data.client != client_id)
      object.bytes(hex_number(data.client, 8), data.data.data(), data.data.size());
  object.close();
}

// What stands behind a node's contents.
void add_rest(std::string& to, ObjectText& node, const std::string& name,
              const StoredNode& stored) {
  if (!stored.links.empty()) {
    node.member("links");
    ObjectText links(to);
    for (const rov_link_t& link : stored.links) add_link(to, links, link);
    links.close();
  }
  if (!name.empty()) {
    node.member("dset");
    to += name;
  }
  add_private(to, node, stored);
  node.close();
}

}  // namespace

void append_record_form(std::string& to, const qim_node_t& record, const std::string& name,
                        const StoredNode& stored) {
  const qim::schema::NodeType& type = *qim::schema::node_type(record.type);
  ObjectText node(to);
  node.id("id", record.id);
  node.text("type", type.name);
  if (!qim::schema::is_of(record.type, qim::schema::family::data_sets)) {
    for (const Row& row : qim::schema::node)
      if (is_input(row)) add_row(to, node, row, &record);
    add_body(to, node, record);
  }
  add_rest(to, node, name, stored);
}

void append_raw_form(std::string& to, const StoredNode& stored) {
  ObjectText node(to);
  node.id("id", stored.number());
  node.text("type", raw_type_name);
  node.member("body");
  ObjectText body(to);
  body.number("flags", stored.flags);
  body.bytes("tlv", stored.tlv.data(), stored.tlv.size());
  body.close();
  const std::string name = stored.dset.empty() ? "" : '"' + hex_bytes(stored.dset) + '"';
  add_rest(to, node, name, stored);
}

}  // namespace qimctl
