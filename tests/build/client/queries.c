/* Data sets, enforcement destinations, and the parts of nodes whose length varies. */
#include <string.h>

#include "client.h"

#define FILTER 0x04100010u
#define ACTION 0x04100030u
#define DEF 0x04100070u
#define PINST 0x04100080u
#define EDEST 0x04100090u
#define DSET 0x041000a0u
#define DSET_NONAME 0x041000a1u

void data_sets(client_t* client) {
  qim_node_t node;
  qim_pinst_t wanted;
  IS(qim_ses_pinst_get(client->ses, 0, &node), 0); /* those without a name come first */
  IS(node.id, DSET_NONAME);
  IS(node.type, QIM_NODE_DSET_NONAME);
  IS(qim_ses_pinst_get(client->ses, 99, &node), ROV_ERR_NO_ITEM);

  memset(&wanted, 0, sizeof wanted);
  qim_if_policy_dest_set(1, 0x01020304, 101, 287454021, &wanted.fields.dest);
  wanted.fields.type = 5;
  wanted.fields.dir = QIM_DIR_IN;
  IS(qim_ses_pinst_name_get(client->ses, &wanted, &node), 0);
  IS(node.id, DSET);
  IS(node.type, QIM_NODE_DSET);
  IS(node.body.pinst.fields.dest.intf.vlan, 101);
  wanted.fields.type = 6;
  IS(qim_ses_pinst_name_get(client->ses, &wanted, &node), ROV_ERR_NO_ITEM);

  IS(qim_node_pinst_get(client->ses, PINST, 0, &node), 0); /* the node itself, then referrers */
  IS(node.id, PINST);
  IS(qim_node_pinst_get(client->ses, PINST, 1, &node), 0);
  IS(node.id, EDEST);
  IS(qim_node_pinst_get(client->ses, 0, 0, &node), QIM_ERR_INVALID);
}

void enforcement(client_t* client) {
  qim_policy_dest_t interface;
  qim_policy_dest_t service;
  qim_node_t pinst;
  qim_node_t node;
  uint32_t count = 0;
  qim_if_policy_dest_set(1, 0x01020304, 100, 0x11223344, &interface);
  qim_srv_policy_dest_set(9, 2, &service);
  service.srv.srv_vdc = 1;
  IS(qim_node_read(client->ses, PINST, QIM_NODE_PINST, &pinst), 0);
  IS(qim_pinst_edest_lookup(client->ses, &pinst, &interface, &node), 0);
  IS(node.id, EDEST);
  IS(node.type, QIM_NODE_EDEST);
  IS(node.body.pinst.ln_2c1.node, PINST);
  IS(qim_pinst_edest_name_get(client->ses, PINST, &service, &node), 0);
  IS(node.id, EDEST + 1);
  IS(qim_pinst_edest_name_get(client->ses, FILTER, &service, &node), QIM_ERR_NODE_TYPE);
  service.srv.srv_id = 10;
  IS(qim_pinst_edest_lookup(client->ses, &pinst, &service, NULL), QIM_ERR_NO_EDEST);

  IS(qim_pinst_edest_get(client->ses, PINST, 2, &node), 0);
  IS(node.id, EDEST + 2);
  IS(qim_pinst_edest_get_int(client->ses, PINST, 1, &node, &count), 0);
  IS(node.id, EDEST + 1);
  IS(count, 1);
  IS(qim_pinst_edest_get_int(client->ses, PINST, 3, NULL, &count), QIM_ERR_INVALID);
  IS(count, 3);
}

static void are_the_criteria(const qim_criterion_t* crit) {
  static const uint8_t network[] = {0xc0, 0, 2, 0, 24};
  IS(crit->type, 0x305);
  IS(crit->args_len, 1);
  IS(crit->args[0], 6);
  crit = crit->next;
  IS(crit->type, 0x30a);
  IS(crit->args_len, sizeof network);
  SAME(crit->args, network, sizeof network);
  IS(crit->next->type, 0x50a);
  IS(crit->next->next == NULL, 1);
}

void variable_parts(client_t* client) {
  static const uint8_t action_args[] = {0, 0, 0, 6, 0, 0, 0, 1, 0xee};
  static const uint8_t def_args[] = {0, 0xff};
  uint64_t room[32]; /* aligned for every record */
  uint8_t bytes[9];
  qim_node_t node;
  memset(bytes, 0xee, sizeof bytes);
  IS(qim_action_arg_get(client->ses, ACTION, 7, bytes), 0); /* too small: untouched */
  IS(bytes[0], 0xee);
  IS(qim_action_arg_get(client->ses, ACTION, sizeof bytes, bytes), 0);
  SAME(bytes, action_args, sizeof bytes);
  IS(qim_def_arg_get(client->ses, DEF, sizeof def_args, bytes), 0);
  SAME(bytes, def_args, sizeof def_args);
  IS(qim_def_arg_get(client->ses, ACTION, sizeof bytes, bytes), QIM_ERR_NODE_TYPE);

  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  IS(node.body.filter.crit_bytes <= sizeof room, 1);
  IS(qim_filter_criteria_get(client->ses, FILTER, node.body.filter.crit_bytes, room), 0);
  are_the_criteria((const qim_criterion_t*)(const void*)room);
  IS(qim_filter_criteria_get(client->ses, FILTER, 8, room), QIM_ERR_BUF_SMALL);
  memset(room, 0xee, sizeof room);
  IS(qim_node_readall(client->ses, FILTER, QIM_NODE_FILTER, &node, sizeof room, room), 0);
  IS(node.id, FILTER);
  are_the_criteria(node.body.filter.crit);
  IS(qim_node_readall(client->ses, FILTER, QIM_NODE_FILTER, &node, 8, room), QIM_ERR_BUF_SMALL);
}

void lists(client_t* client) {
  rov_rqst_t second;
  rov_rqst_t first;
  rov_rmtln_t remote;
  rov_node_id_t id;
  (void)client;
  memset(&first, 0, sizeof first);
  memset(&second, 0, sizeof second);
  memset(&remote, 0, sizeof remote);
  qim_to_rov_node_id_nochk(FILTER, &id);
  first.next = &second;
  first.node.word[0] = PINST;
  second.node2.word[0] = FILTER;
  qim_rqst_to_rov(&first);
  SAME(&second.node2, &id, sizeof id);
  IS(first.next == &second, 1);
  qim_rqst_from_rov(&first);
  IS(first.node.word[0], PINST);
  IS(second.node2.word[0], FILTER);

  remote.node.word[0] = FILTER;
  remote.node2.word[0] = PINST;
  qim_rmtln_to_rov(&remote);
  SAME(&remote.node, &id, sizeof id);
  IS(remote.id_len, sizeof id);
  qim_rmtln_from_rov(&remote);
  IS(remote.node.word[0], FILTER);
  IS(remote.node2.word[0], PINST);
}
