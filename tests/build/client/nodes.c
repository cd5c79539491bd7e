/* Nodes, read into records of the client's or opened; their links and referrers. */
#include <mem.h>
#include <stdlib.h>
#include <string.h>

#include "client.h"

#define FILTER 0x04100010u
#define VOICE 0x04100011u
#define ACTION 0x04100031u
#define HACTION 0x04100040u
#define POLICER 0x04100050u
#define IFELSE_GROUP 0x04100003u
#define PINST 0x04100080u

static void is_the_filter(const qim_node_t* node) {
  IS(node->id, FILTER);
  IS(node->type, QIM_NODE_FILTER);
  IS(node->group, 7);
  IS(node->links_total, 2);
  IS(node->links_unfixed, 1);
  IS(node->refs, 1);
  IS(node->body.filter.ln_081, VOICE);
  IS(node->body.filter.crit_cnt, 3);
  IS(node->body.filter.crit_bytes, 3 * 32 + 1 + 5 + 5);
}

void nodes(client_t* client) {
  qim_node_t node;
  qim_node_t copy;
  rov_node_id_t id;
  rov_node_parms_t parms;
  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  is_the_filter(&node);
  IS(qim_node_read_no_nedest(client->ses, FILTER, QIM_NODE_FILTER, &node), 0);
  is_the_filter(&node);
  qim_to_rov_node_id_nochk(FILTER, &id);
  IS(rov_node_parms_get(client->ses, id, &parms), 0);
  IS(qim_node_read_int(client->ses, 0, &parms, 0, &node), 0);
  is_the_filter(&node);
  memset(&copy, 0xff, sizeof copy);
  IS(qim_node_cp(client->ses, &node, &copy), 0);
  is_the_filter(&copy);
  IS(qim_node_read(client->ses, FILTER, QIM_NODE_ACTION, &node), QIM_ERR_NODE_TYPE);
  IS(node.id, 0);

  IS(qim_is_filterlist_type(&copy), 1);
  IS(qim_is_actionlist_type(&copy), 0);
  IS(qim_is_ifelse_filter_type(&copy), 1);
  IS(qim_node_read(client->ses, ACTION, 0, &node), 0);
  IS(qim_is_filterlist_type(&node), 0);
  IS(qim_is_actionlist_type(&node), 1);
  IS(qim_node_read(client->ses, IFELSE_GROUP, 0, &node), 0);
  IS(qim_is_filterlist_type(&node), 0);
  IS(qim_is_ifelse_filter_type(&node), 1);
}

static qim_node_cache_entry_t* entry_of(qim_node_t* node) {
  return (qim_node_cache_entry_t*)(void*)((char*)node - offsetof(qim_node_cache_entry_t, node));
}

void open_nodes(client_t* client) {
  qim_lib_ctx_t* lib = qim_lib_get();
  qim_node_t* node = NULL;
  qim_node_t copy;
  IS(qim_int_node_open(client->ses, FILTER, NULL, QIM_NODE_FILTER, &node, lib), 0);
  is_the_filter(node);
  IS(node->body.filter.crit->type, 0x305);
  IS(node->body.filter.crit->args[0], 6);
  IS(node->body.filter.crit->next->next->type, 0x50a);
  IS(entry_of(node)->ses, client->ses);
  memset(&copy, 0, sizeof copy);
  IS(qim_node_cp(client->ses, node, &copy), 0);
  IS(copy.body.filter.crit == NULL, 1); /* pointers stay behind */
  IS(qim_int_node_close(node, lib), 0);
  IS(qim_int_node_open(client->ses, FILTER, NULL, QIM_NODE_GROUP, &node, lib), QIM_ERR_NODE_TYPE);
  IS(node == NULL, 1);
  IS(qim_int_node_open(client->ses, POLICER, NULL, 0, &node, lib), 0);
  IS(node->body.police.comt_bw.rate, 64000);
  IS(qim_lib_node_destroy(entry_of(node), lib), 0);
}

/* It keeps nothing. */
void cache(client_t* client) {
  qim_lib_ctx_t* lib = qim_lib_get();
  qim_node_t* node = NULL;
  qim_node_cache_entry_t unset;
  qim_node_cache_entry_t* entry = &unset;
  IS(qim_int_node_open(client->ses, FILTER, NULL, 0, &node, lib), 0);
  IS(qim_node_cache_add(client->ses, entry_of(node), lib), 0);
  IS(qim_node_cache_get(client->ses, FILTER, &entry), 0);
  IS(entry == NULL, 1);
  IS(node_cache_head == NULL && node_cache_tail == NULL, 1);
  entry = &unset;
  IS(qim_node_cache_unlink(client->ses, FILTER, &entry), 0);
  IS(entry == NULL, 1);
  IS(qim_node_cache_rm(client->ses, FILTER, lib), 0);
  IS(qim_node_cache_replace(client->ses, node, lib), 0);
  IS(qim_node_cache_destroy(lib), 0);
  is_the_filter(node); /* none of these freed it */
  IS(qim_int_node_close(node, lib), 0);
}

void links(client_t* client) {
  qim_node_t node;
  qim_link_t link;
  const qim_node_id_t* single = NULL;
  const qim_link_t* full = NULL;
  IS(qim_link_field_get(client->ses, FILTER, 0x081, &link), 0);
  IS(link.node, VOICE);
  IS(qim_link_get(client->ses, HACTION, 0x182, &link), 0);
  IS(link.node, POLICER);
  IS(link.node2, 0x04100002);
  IS(link.val, 1);
  IS(link.tag, 65535);
  IS(qim_link_opt_get(client->ses, FILTER, 0x082, &link), 0);
  IS(link.node, ACTION);
  IS(link.field, 0x8082);
  IS(qim_link_field_get(client->ses, ACTION, 0x141, &link), ROV_ERR_NO_LINK);
  IS(link.node, 0);

  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  IS(qim_link_ptr(&node, 0x081, &single, &full), 0);
  IS(single == &node.body.filter.ln_081 && full == NULL, 1);
  IS(qim_link_ptr(&node, 0x999, &single, &full), QIM_ERR_INVALID);
  IS(qim_link_val(client->ses, &node, 0x081, &link), 0);
  IS(link.node, VOICE);
  IS(qim_link_val(client->ses, &node, 0x8082, &link), 0);
  IS(link.node, ACTION);
}

void references(client_t* client) {
  static const qim_node_id_t expected[] = {0x04100090, 0x04100091, 0x04100092, 0x041000a0, 0};
  qim_node_t node;
  qim_node_id_t ref = 1;
  qim_node_id_t* refs = NULL;
  uint32_t count = 0;
  uint32_t i;
  for (i = 0; i < 5; i++) {
    IS(qim_ref_get(client->ses, PINST, i, &ref), 0);
    IS(ref, expected[i]);
    IS(qim_node_ref_get(client->ses, PINST, i, &ref), 0);
    IS(ref, expected[i]);
  }
  IS(qim_node_read(client->ses, PINST, QIM_NODE_PINST, &node), 0);
  IS(qim_ref_get_all(client->ses, &node, &refs, &count), 0);
  IS(count, 4);
  SAME(refs, expected, 4 * sizeof *refs);
  free(refs);
}
