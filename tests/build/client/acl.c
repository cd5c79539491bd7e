/* What the client reads of access lists by qim_acl.h. */
#include <qim_acl.h>
#include <stdlib.h>
#include <string.h>

#include "client.h"

#define FILTER 0x04100010u

void criteria(client_t* client) {
  qim_node_t node;
  qim_criterion_t* list;
  qim_crit_value_t value;
  uint8_t args[8];
  uint32_t len;
  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  list = malloc(node.body.filter.crit_bytes);
  IS(list != NULL, 1);
  IS(qim_filter_criteria_get(client->ses, FILTER, node.body.filter.crit_bytes, list), 0);
  IS(qim_crit_parse(list->type, list->args_len, list->args, &value), 0);
  IS(value.type, QIM_CRIT_IPV4_PROTOCOL);
  IS(value.as.number, 6);
  IS(qim_crit_parse(list->next->type, list->next->args_len, list->next->args, &value), 0);
  IS(value.layout, QIM_LAYOUT_IPV4_NETWORK);
  SAME(value.as.network.address, "\300\0\2\0", 4);
  IS(value.as.network.bits, 24);
  IS(qim_crit_build(&value, sizeof args, args, &len), 0);
  IS(len, list->next->args_len);
  SAME(args, list->next->args, len);
  value.as.network.bits = 33;
  IS(qim_crit_build(&value, sizeof args, args, &len), QIM_ERR_INVALID);
  free(list);
  IS(qim_crit_kind_get(QIM_CRIT_TCP_FLAGS) == qim_crit_kind_named("tcp.flags"), 1);
  IS(qim_crit_kinds(&len)->type, QIM_CRIT_NAME);
  IS(len >= 44, 1);
}

void list_names(client_t* client) {
  char name[8] = "before";
  uint32_t len = 99;
  IS(qim_entry_name_get(client->ses, FILTER, sizeof name, name, &len), QIM_POLICY_NO_NAME);
  IS(len, 0);
  SAME(name, "before", 7);
  IS(qim_list_name_get(client->ses, FILTER, sizeof name, name, &len), QIM_ERR_NODE_TYPE);
  IS(qim_interface_name_get(client->ses, 0, sizeof name, name, &len), QIM_ERR_INVALID);
  IS(qim_policer_name_get(client->ses, FILTER, sizeof name, name, &len), QIM_ERR_NODE_TYPE);
  IS(qim_policy_name_get(client->ses, FILTER, sizeof name, name, &len), QIM_ERR_NODE_TYPE);
  IS(qim_interface_index("te0/1", 5) == qim_interface_index("te0/1", 5), 1);
}

void statuses(client_t* client) {
  uint32_t ses;
  IS(qim_ses_open_ro(client->db, &ses), 0);
  IS(qim_ses_close(ses), 0);
  IS(qim_ses_close(ses), ROV_ERR_HANDLE);
  HAS(qim_status_name(QIM_ERR_NO_EDEST), "QIM_ERR_NO_EDEST");
  HAS(qim_status_text(ROV_ERR_HANDLE), "closed");
}
