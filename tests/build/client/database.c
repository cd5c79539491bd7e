/* The database's own operations: sessions, snapshots, changes, publications, show. */
#include <poll.h>
#include <rov_edit.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "client.h"

#define FILTER 0x04100010u
#define ACTION 0x04100031u
#define NEW_ACTION 0x04100039u

static rov_node_id_t in_database(qim_node_id_t id) {
  rov_node_id_t made;
  qim_to_rov_node_id_nochk(id, &made);
  return made;
}

static uint64_t this_user(void) {
  return (uint64_t)CLIENT_ID << 32 | (uint32_t)getpid();
}

/* Stores an action in a commit of its own. */
static void store_action(uint32_t db, qim_node_id_t id, uint32_t type) {
  qim_node_t node;
  uint8_t tlv[256];
  rov_edit_node_t put;
  uint32_t ses = 0;
  uint32_t len = 0;
  memset(&node, 0, sizeof node);
  memset(&put, 0, sizeof put);
  node.type = QIM_NODE_ACTION;
  node.body.action.type = type;
  IS(qim_node_to_tlv(&node, tlv, sizeof tlv, &len, NULL, 0), 0);
  put.id = in_database(id);
  put.tlv = tlv;
  put.tlv_len = len;
  IS(rov_edit_begin(db, &ses), 0);
  IS(rov_edit_node_put(ses, &put), 0);
  IS(rov_edit_commit(ses), 0);
}

static uint32_t action_type(uint32_t ses, qim_node_id_t id) {
  qim_node_t node;
  IS(qim_node_read(ses, id, QIM_NODE_ACTION, &node), 0);
  return node.body.action.type;
}

void sessions(client_t* client) {
  uint32_t ses = 0;
  uint32_t base = 0;
  uint32_t exists = 0;
  IS(qim_ses_open_ro(client->db, &ses), 0);
  IS(qim_ses_orig_handle(ses, &base), 0);
  IS(qim_db_ses_exists(client->db, ses, &exists), 0);
  IS(exists, 1);
  IS(qim_ses_timeout(ses), 0);
  IS(action_type(ses, ACTION), 1);
  store_action(client->db, ACTION, 11);
  IS(action_type(ses, ACTION), 1);   /* one commit */
  IS(action_type(base, ACTION), 11); /* the newest */
  store_action(client->db, ACTION, 1);
  IS(rov_ses_close(ses), 0);
  IS(qim_db_ses_exists(client->db, ses, &exists), 0);
  IS(exists, 0);
  IS(qim_ses_timeout(ses), ROV_ERR_HANDLE);
  IS(qim_db_ses_lock_grant(client->db, (uint64_t)CLIENT_ID << 32 | 0x7fffffff), ROV_ERR_NO_ITEM);
  IS(qim_db_ses_lock_grant(client->db, this_user()), 0);
  IS(qim_db_ses_lock_grant(client->db, 0), 0);
}

void snapshots(client_t* client) {
  uint32_t snapshot = 0;
  uint32_t ses = 0;
  char path[ROV_SNAPSHOT_PATH];
  IS(qim_db_snapshot(client->db, "before", &snapshot), 0);
  store_action(client->db, ACTION, 12);
  IS(qim_ses_open_ro(snapshot, &ses), 0);
  IS(action_type(ses, ACTION), 1);
  IS(rov_snapshot_close(snapshot), 0); /* and its session */
  IS(qim_ses_timeout(ses), ROV_ERR_HANDLE);
  IS(qim_db_uri_snapshot(client->db, "acme://edge-7", "monday", &snapshot), 0);
  IS(qim_ses_open_ro(snapshot, &ses), 0);
  IS(action_type(ses, ACTION), 12);
  IS(rov_snapshot_close(snapshot), 0);
  IS(rov_snapshot_next(client->db, NULL, sizeof path, path), 0);
  IS(strcmp(path, "acme://edge-7/monday"), 0);
  IS(qim_db_uri_rm(client->db, "acme://edge-7"), 0);
  IS(qim_db_uri_rm(client->db, "acme://edge-7"), ROV_ERR_NO_ITEM);
  IS(qim_db_uri_rm(client->db, "before"), 0);
  IS(rov_snapshot_next(client->db, NULL, sizeof path, path), ROV_ERR_NO_ITEM);
  store_action(client->db, ACTION, 1);
}

void changes(client_t* client) {
  rov_ntf_t ntf;
  rov_change_t change;
  rov_usr_t info;
  struct pollfd waiting;
  uint32_t len = 0;
  uint64_t user;
  memset(&ntf, 0, sizeof ntf);
  ntf.kinds = 1u << ROV_CHANGE_NODE_PUT;
  IS(qim_db_usr_group(client->db, 42), 0);
  IS(qim_db_ntf(client->db, &ntf), 0);
  IS(qim_process_msg(client->db, &change, sizeof change, &len), ROV_ERR_NO_VALUE);
  store_action(client->db, NEW_ACTION, 3);
  waiting.fd = ntf.fd;
  waiting.events = POLLIN;
  IS(poll(&waiting, 1, 10000), 1);
  IS(qim_process_msg(client->db, &change, sizeof change, &len), 0);
  IS(len, sizeof change);
  IS(qim_msg_is_qim(&change), 1);
  IS(change.kind, ROV_CHANGE_NODE_PUT);
  IS(qim_from_rov_node_id(&change.node), NEW_ACTION);
  IS(qim_process_msg(client->db, &change, sizeof change, &len), ROV_ERR_NO_VALUE);

  user = (uint64_t)change.user[0] << 32 | change.user[1];
  IS(user, this_user());
  IS(qim_usr_id_info(client->db, user, &info), 0);
  IS(info.pid, getpid());
  IS(info.uid, getuid());
  IS(info.client, CLIENT_ID);
  IS(info.group, 42);
  change.magic++;
  IS(qim_msg_is_qim(&change), 0);
}

void publications(client_t* client) {
  static const uint8_t head[8] = {'Q', 'P', 'U', 'B', 0, 0, 0, 1};
  uint8_t block[8192];
  uint32_t size = 0;
  qim_dsetname_t name;
  qim_dsetname_for_if_policy(5, QIM_DIR_IN, 1, 0x01020304, 101, 287454021, &name);
  IS(qim_db_set_ps_sizes(client->db, 1, 0), 0);
  IS(qim_ps_datasize(client->ses, &name, &size), ROV_ERR_PS_SIZE);
  IS(qim_db_set_ps_sizes(client->db, 0, 0), 0);
  IS(qim_ps_datasize(client->ses, &name, &size), 0);
  IS(size < sizeof block, 1);
  IS(qim_ps_data(client->ses, &name, size - 1, block), ROV_ERR_LENGTH);
  memset(block, 0xee, sizeof block);
  IS(qim_ps_data(client->ses, &name, size, block), 0);
  SAME(block, head, sizeof head);
  IS(block[14] << 8 | block[15], size);
  IS(block[size], 0xee);
}

static char shown[4096];

static void keep_text(const char* text, void* arg) {
  size_t* length = arg;
  *length += (size_t)snprintf(shown + *length, sizeof shown - *length, "%s", text);
}

void show(client_t* client) {
  rov_show_req_t request;
  size_t length = 0;
  qim_dsetname_t name;
  qim_dsetname_t other;
  char* line;
  memset(&request, 0, sizeof request);
  request.ses = client->ses;
  request.what = ROV_SHOW_NODE;
  request.node = in_database(FILTER);
  request.out = keep_text;
  request.arg = &length;
  IS(qim_db_show_internal(client->db, &request), 0);
  HAS(shown, "node 0x04100010: flags 0x0, 2 links, 1 referrers");
  HAS(shown, "type Filter (1)"); /* a name out of the library's table */
  IS(qim_dbg_tlva_handler.selector, ROV_SHOW_SEL_TLVA);
  IS(qim_dbg_dsetname.selector, ROV_SHOW_SEL_DSETNAME);

  qim_dsetname_for_if_policy(5, QIM_DIR_IN, 1, 2, 100, 0x11223344, &name);
  other = name; /* both are converted in place meanwhile */
  line = qim_dbg_dsetname_print(&name, &other, 7, 8, ">\n", "<");
  IS(line[0], '<');
  HAS(line, "inp");
  HAS(line, "11223344");
  HAS(line, ">\n");
}
