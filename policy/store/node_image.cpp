// Reading nodes.
#include "policy/store/node_image.h"

#include <algorithm>

#include "policy/base/names.h"
#include "rov_edit.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Naming;
using qim::schema::NodeType;
using qim::schema::Row;
using qim::schema::Slot;

std::string reading(uint32_t id) {
  return "read node " + node_id_text(id);
}

size_t align8(size_t bytes) {
  return (bytes + 7) / 8 * 8;
}

// What qim_node_readall needs beside the record.
size_t room_for(const qim_node_t& record) {
  size_t bytes = align8(record.priv_len);
  const NodeType& type = *qim::schema::node_type(record.type);
  if (has_criteria(record.type)) bytes += record.body.filter.crit_bytes;
  const Row* args = args_of(type);
  if (args != nullptr)
    bytes += qim::schema::args_at(&record.body, args->position, args->length_at).length;
  return align8(bytes);
}

void add_slots(const ReadSession& session, const qim_node_t& record,
               std::vector<qim_link_t>& links) {
  const NodeType* type = qim::schema::node_type(record.type);
  if (type == nullptr) return;
  for (const Row& row : *type->body) {
    if (row.slot == Slot::none) continue;
    qim_link_t link;
    const uint32_t status = qim_link_field_get(session.handle(), record.id, row.link, &link);
    if (status == ROV_ERR_NO_LINK) continue;
    require(status, "read the link " + slot_name(row.link) + " of node " + node_id_text(record.id));
    links.push_back(link);
  }
}

// Does a node of this type keep its link `field` in a slot of its record?
bool has_slot(uint32_t type, uint16_t field) {
  const NodeType* known = qim::schema::node_type(type);
  return known != nullptr && slot_of(*known, field) != nullptr;
}

// The database tells which links a node has; the library reads them.
void add_others(const ReadSession& session, const qim_node_t& record,
                std::vector<qim_link_t>& links) {
  for (uint32_t n = 0; n < record.links_total; n++) {
    rov_link_t entry;
    const uint32_t found = rov_node_link_nth(session.handle(), database_id(record.id), n, &entry);
    if (found == ROV_ERR_NO_LINK) return;
    require(found, "list the links of node " + node_id_text(record.id));
    if (has_slot(record.type, entry.field)) continue;
    qim_link_t link;
    require(qim_link_get(session.handle(), record.id, entry.field, &link),
            "read the link " + slot_name(entry.field) + " of node " + node_id_text(record.id));
    links.push_back(link);
  }
}

}  // namespace

bool has_criteria(uint32_t type) {
  const NodeType* known = qim::schema::node_type(type);
  return known != nullptr && list_of(*known) != nullptr;
}

bool has_dset(const qim_node_t& record) {
  const NodeType* type = qim::schema::node_type(record.type);
  if (type == nullptr || type->naming == Naming::never) return false;
  return type->naming == Naming::required || record.body.pinst.fields.dest.fmt != 0;
}

qim_dsetname_t name_of(const qim_pinst_fields_t& fields) {
  qim_dsetname_t name{};
  name.dest = fields.dest;
  name.type = fields.type;
  name.dir = fields.dir;
  qim_dsetname_hton(&name);
  return name;
}

qim_node_t read_record(const ReadSession& session, uint32_t id) {
  qim_node_t record;
  require_node(qim_node_read(session.handle(), id, 0, &record), reading(id));
  return record;
}

std::vector<qim_link_t> read_links(const ReadSession& session, const qim_node_t& record) {
  std::vector<qim_link_t> links;
  add_slots(session, record, links);
  if (record.links_unfixed != 0) add_others(session, record, links);
  std::sort(links.begin(), links.end(),
            [](const qim_link_t& a, const qim_link_t& b) { return a.field < b.field; });
  return links;
}

std::vector<uint8_t> read_private(const ReadSession& session, const qim_node_t& record) {
  std::vector<uint8_t> bytes(record.priv_len);
  if (bytes.empty()) return bytes;
  require(qim_node_priv_get(session.handle(), record.id, record.priv_len, bytes.data()),
          "read the private data of node " + node_id_text(record.id));
  return bytes;
}

NodeImage read_contents(const ReadSession& session, uint32_t id) {
  NodeImage image;
  const size_t bytes = room_for(read_record(session, id));
  image.room.resize(bytes / sizeof(uint64_t));
  require_node(qim_node_readall(session.handle(), id, 0, &image.record, static_cast<int32_t>(bytes),
                                image.room.data()),
               reading(id));
  return image;
}

NodeImage read_node(const ReadSession& session, uint32_t id) {
  NodeImage image = read_contents(session, id);
  image.links = read_links(session, image.record);
  if (has_dset(image.record)) image.dset = name_of(image.record.body.pinst.fields);
  return image;
}

void each_node(uint32_t session, const std::function<void(const rov_node_parms_t&)>& visit) {
  rov_node_id_t after{};
  rov_node_parms_t parms;
  uint32_t status = ROV_OK;
  while ((status = rov_node_next(session, after, &parms)) == ROV_OK) {
    visit(parms);
    after = parms.id;
  }
  if (status != ROV_ERR_NO_ITEM) require(status, "list the nodes");
}

}  // namespace qimctl
