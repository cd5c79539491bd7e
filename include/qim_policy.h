/*
 * qim_policy.h - access lists in policy nodes: the codes that stand in records and criteria, and how
 * to read the names of lists, entries and interfaces. qim.h leaves these values to its clients;
 * clients that agree on access lists include this header too.
 *
 * An access list is a Group. Its link QIM_LN_GROUP_FIRST leads to a chain of Filters, an entry each,
 * QIM_LN_GROUP_DEF to what becomes of a packet that no entry matches. A Pinst leads to the Group; an
 * Edest, which is an interface, to the Pinst. What people call them:
 *  - list: the Group's link QIM_LN_GROUP_NAME leads to an Action of type QIM_ACTION_NAME, whose
 *    arguments are the name.
 *  - interface: the same, link QIM_LN_EDEST_NAME of the Edest. Policer: QIM_LN_POLICE_NAME of the
 *    Police.
 *  - entry: the arguments of the Filter's criterion QIM_CRIT_NAME, which holds for every packet.
 * Names are UTF-8 without a terminator.
 *
 * Plain C99; usable from C++. The conventions of qim.h hold.
 */
#ifndef QIM_POLICY_H
#define QIM_POLICY_H

#include <stdlib.h>
#include <string.h>

#include "qim.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Codes =================================================================================== */

/* A criterion's type is a header (high byte) and a field in it (low byte): field 0 asks only that
 * the packet has the header. QIM_HEADER_ENTRY is no header: what is said of the entry itself. */
enum {
  QIM_HEADER_ENTRY = 0x0000,
  QIM_HEADER_INTERFACE = 0x0100,
  QIM_HEADER_ETH = 0x0200,
  QIM_HEADER_IPV4 = 0x0300,
  QIM_HEADER_IPV6 = 0x0400,
  QIM_HEADER_TCP = 0x0500,
  QIM_HEADER_UDP = 0x0600,
  QIM_HEADER_ICMP = 0x0700
};

enum {
  QIM_CRIT_NAME = 0x0001,  /* the entry's name, in UTF-8: holds for every packet */
  QIM_CRIT_OPAQUE = 0x0002 /* a match that only another data model understands: who does not know it
                              cannot tell whether the entry matches. An entry may have several */
};

/* The comparison that begins a port criterion's arguments. */
enum { QIM_PORT_EQ = 1, QIM_PORT_NEQ = 2, QIM_PORT_LTE = 3, QIM_PORT_GTE = 4, QIM_PORT_RANGE = 5 };

/* qim_action_t.type, and the first three qim_def_t.type, too. */
enum {
  QIM_ACTION_ACCEPT = 1,
  QIM_ACTION_DROP = 2,
  QIM_ACTION_REJECT = 3, /* drop, and tell the sender with an ICMP error */
  QIM_ACTION_LOG = 0x101,
  QIM_ACTION_NAME = 0x102 /* nothing to do: its arguments are what a node is called */
};

/* qim_group_t.type of an access list. 1 is QIM_GROUP_IFELSE. */
enum { QIM_GROUP_ACCESS_LIST = 2 };

/* qim_group_t.subtype of an access list: a bit for each kind of header that it may match on, 0 when
 * it does not say. */
enum { QIM_ACL_ETH = 1, QIM_ACL_IPV4 = 2, QIM_ACL_IPV6 = 4 };

/* The policy type in the data-set names of access lists: this, and in the low 16 bits the stage, the
 * place of the list among those of one interface and direction, from 1. */
enum { QIM_POLICY_ACCESS_LIST = 0x00010000, QIM_POLICY_STAGES = 0x0000ffff };

/* The direction in data-set names: QIM_DIR_IN is input; of the other values, which are all output,
 * this is the one that access lists use. */
enum { QIM_DIR_OUT = 2 };

/* qim_action_bw_t.rate_units and burst_units of a policer: rates are in units a second. */
enum { QIM_UNIT_BYTES = 1, QIM_UNIT_PACKETS = 2 };

/* Links that no slot holds: read them with qim_link_field_get. */
enum {
  QIM_LN_GROUP_NAME = 0x8283, /* Group: the Action that names it */
  QIM_LN_EDEST_NAME = 0x82c2, /* Edest: the Action that names its interface */
  QIM_LN_POLICE_NAME = 0x8204 /* Police: the Action that names it */
};

/* The status of a node that has no name: the database's ROV_ERR_NO_LINK. */
enum { QIM_POLICY_NO_NAME = 0x4117000f };

/* ==== Names =================================================================================== */

/* Copies `count` bytes at `name` into `room` bytes at `buf`, and a 0 behind them. */
static inline uint32_t qim_policy_copy_name(const uint8_t* name, uint32_t count, uint32_t room,
                                            char* buf, uint32_t* len) {
  *len = count;
  if (room <= count) return QIM_ERR_BUF_SMALL;
  if (count != 0) memcpy(buf, name, count);
  buf[count] = '\0';
  return 0;
}

/* Reads the record of a node of that type. It is asked for whatever it is, for the library keeps a node
 * of another type than was asked for open. */
static inline uint32_t qim_policy_record(uint32_t ses, qim_node_id_t node, uint32_t type,
                                         qim_node_t* out) {
  const uint32_t status = qim_node_read(ses, node, 0, out);
  return status != 0 || out->type == type ? status : (uint32_t)QIM_ERR_NODE_TYPE;
}

/* Reads a node of that type with its variable parts, in memory at *block, which the caller frees
 * with free(), whatever is returned. */
static inline uint32_t qim_policy_read(uint32_t ses, qim_node_id_t node, uint32_t type,
                                       qim_node_t* out, void** block) {
  uint32_t room;
  uint32_t status;
  *block = NULL;
  status = qim_policy_record(ses, node, type, out);
  if (status != 0) return status;
  room = (out->priv_len + 7u) / 8u * 8u;
  room += type == QIM_NODE_FILTER ? out->body.filter.crit_bytes : out->body.action.args_len;
  room += 8;
  *block = malloc(room);
  if (*block == NULL) return QIM_ERR_NO_MEM;
  return qim_node_readall(ses, node, 0, out, (int32_t)room, *block);
}

/* The functions below read what a node is called into `room` bytes at `buf`, terminated with a 0,
 * and into *len the bytes of the name without that 0. `buf` is the caller's and may be NULL when
 * `room` is 0.
 * Return 0; QIM_ERR_BUF_SMALL, with *len set and `buf` untouched, when the name and the 0 do not
 * fit; QIM_POLICY_NO_NAME; QIM_ERR_NODE_TYPE for a node of another type, also where the link to the
 * name leads to one; QIM_ERR_NO_MEM; QIM_ERR_INVALID for node 0; a database status. After a failure
 * other than QIM_ERR_BUF_SMALL *len is 0. */

/* Of an Action of type QIM_ACTION_NAME. Any other Action gives QIM_ERR_NODE_TYPE. */
static inline uint32_t qim_policy_name_get(uint32_t ses, qim_node_id_t action, uint32_t room,
                                           char* buf, uint32_t* len) {
  qim_node_t node;
  void* block;
  uint32_t status = qim_policy_read(ses, action, QIM_NODE_ACTION, &node, &block);
  *len = 0;
  if (status == 0 && node.body.action.type != QIM_ACTION_NAME) status = QIM_ERR_NODE_TYPE;
  if (status == 0) {
    status = qim_policy_copy_name(node.body.action.args, node.body.action.args_len, room, buf, len);
  }
  free(block);
  return status;
}

/* Of a node of type `type`, whose link `field` leads to the Action that names it. */
static inline uint32_t qim_policy_linked_name_get(uint32_t ses, qim_node_id_t node, uint32_t type,
                                                  uint16_t field, uint32_t room, char* buf,
                                                  uint32_t* len) {
  qim_node_t record;
  qim_link_t link;
  uint32_t status;
  *len = 0;
  status = qim_policy_record(ses, node, type, &record);
  if (status != 0) return status;
  status = qim_link_field_get(ses, node, field, &link);
  if (status != 0) return status;
  return qim_policy_name_get(ses, link.node, room, buf, len);
}

/* The name of an access list, by its Group. */
static inline uint32_t qim_list_name_get(uint32_t ses, qim_node_id_t group, uint32_t room,
                                         char* buf, uint32_t* len) {
  return qim_policy_linked_name_get(ses, group, QIM_NODE_GROUP, QIM_LN_GROUP_NAME, room, buf, len);
}

/* The name of the interface that a list is attached to, by the Edest. */
static inline uint32_t qim_interface_name_get(uint32_t ses, qim_node_id_t edest, uint32_t room,
                                              char* buf, uint32_t* len) {
  return qim_policy_linked_name_get(ses, edest, QIM_NODE_EDEST, QIM_LN_EDEST_NAME, room, buf, len);
}

/* The name of a policer, by its Police. */
static inline uint32_t qim_policer_name_get(uint32_t ses, qim_node_id_t police, uint32_t room,
                                            char* buf, uint32_t* len) {
  return qim_policy_linked_name_get(ses, police, QIM_NODE_POLICE, QIM_LN_POLICE_NAME, room, buf,
                                    len);
}

/* The name of an entry, by its Filter. */
static inline uint32_t qim_entry_name_get(uint32_t ses, qim_node_id_t filter, uint32_t room,
                                          char* buf, uint32_t* len) {
  qim_node_t node;
  void* block;
  const qim_criterion_t* criterion;
  uint32_t status = qim_policy_read(ses, filter, QIM_NODE_FILTER, &node, &block);
  *len = 0;
  if (status == 0) {
    criterion = node.body.filter.crit;
    while (criterion != NULL && criterion->type != QIM_CRIT_NAME) criterion = criterion->next;
    status = QIM_POLICY_NO_NAME;
    if (criterion != NULL) {
      status = qim_policy_copy_name(criterion->args, criterion->args_len, room, buf, len);
    }
  }
  free(block);
  return status;
}

#ifdef __cplusplus
}
#endif

#endif
