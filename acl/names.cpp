// What lists, entries, interfaces and policers are called.
#include "acl/names.h"

#include <stdlib.h>
#include <string.h>

#include "qim_acl.h"

namespace {

// Where a name goes: the caller's buffer, and the length of the name.
struct Place {
  uint32_t room;
  char* buf;
  uint32_t* len;
};

uint32_t give(const uint8_t* name, uint32_t count, const Place& out) {
  *out.len = count;
  if (out.room <= count) return QIM_ERR_BUF_SMALL;
  if (count != 0) memcpy(out.buf, name, count);
  out.buf[count] = '\0';
  return 0;
}

// Reads the record of a node of that type. It is asked for whatever it is, for the library keeps a
// node of another type than was asked for open.
uint32_t read_record(uint32_t ses, qim_node_id_t id, uint32_t type, qim_node_t& node) {
  const uint32_t status = qim_node_read(ses, id, 0, &node);
  if (status != 0 || node.type == type) return status;
  return QIM_ERR_NODE_TYPE;
}

// A node with its criteria or arguments.
struct Whole {
  Whole() = default;
  Whole(const Whole&) = delete;
  Whole& operator=(const Whole&) = delete;
  ~Whole() { free(block); }

  uint32_t read(uint32_t ses, qim_node_id_t id, uint32_t type);

  qim_node_t node = {};
  void* block = nullptr;
};

uint32_t Whole::read(uint32_t ses, qim_node_id_t id, uint32_t type) {
  const uint32_t status = read_record(ses, id, type, node);
  if (status != 0) return status;
  const bool filter = type == QIM_NODE_FILTER;
  uint32_t room = (node.priv_len + 7u) / 8u * 8u + 8u;
  room += filter ? node.body.filter.crit_bytes : node.body.action.args_len;
  block = malloc(room);
  if (block == nullptr) return QIM_ERR_NO_MEM;
  return qim_node_readall(ses, id, 0, &node, static_cast<int32_t>(room), block);
}

uint32_t action_name(uint32_t ses, qim_node_id_t id, const Place& out) {
  *out.len = 0;
  Whole action;
  const uint32_t status = action.read(ses, id, QIM_NODE_ACTION);
  if (status != 0) return status;
  const qim_action_t& body = action.node.body.action;
  if (body.type != QIM_ACTION_NAME) return QIM_ERR_NODE_TYPE;
  return give(body.args, body.args_len, out);
}

// Of a node of that type, whose link `field` leads to the Action that names it.
uint32_t linked_name(uint32_t ses, qim_node_id_t id, uint32_t type, uint16_t field,
                     const Place& out) {
  *out.len = 0;
  qim_node_t node;
  uint32_t status = read_record(ses, id, type, node);
  if (status != 0) return status;
  qim_link_t link;
  status = qim_link_field_get(ses, id, field, &link);
  if (status != 0) return status;
  return action_name(ses, link.node, out);
}

}  // namespace

uint32_t qim_policy_name_get(uint32_t ses, qim_node_id_t action, uint32_t room, char* buf,
                             uint32_t* len) {
  return action_name(ses, action, {room, buf, len});
}

uint32_t qim_list_name_get(uint32_t ses, qim_node_id_t group, uint32_t room, char* buf,
                           uint32_t* len) {
  return linked_name(ses, group, QIM_NODE_GROUP, QIM_LN_GROUP_NAME, {room, buf, len});
}

uint32_t qim_interface_name_get(uint32_t ses, qim_node_id_t edest, uint32_t room, char* buf,
                                uint32_t* len) {
  return linked_name(ses, edest, QIM_NODE_EDEST, QIM_LN_EDEST_NAME, {room, buf, len});
}

uint32_t qim_policer_name_get(uint32_t ses, qim_node_id_t police, uint32_t room, char* buf,
                              uint32_t* len) {
  return linked_name(ses, police, QIM_NODE_POLICE, QIM_LN_POLICE_NAME, {room, buf, len});
}

uint32_t qim_entry_name_get(uint32_t ses, qim_node_id_t filter, uint32_t room, char* buf,
                            uint32_t* len) {
  *len = 0;
  Whole entry;
  const uint32_t status = entry.read(ses, filter, QIM_NODE_FILTER);
  if (status != 0) return status;
  const qim_criterion_t* criterion = entry.node.body.filter.crit;
  while (criterion != nullptr && criterion->type != QIM_CRIT_NAME) criterion = criterion->next;
  if (criterion == nullptr) return QIM_POLICY_NO_NAME;
  return give(criterion->args, criterion->args_len, {room, buf, len});
}

uint32_t qim_interface_index(const char* name, uint32_t len) {
  return qim::acl::interface_index(name, len);
}
