/* What a client keeps on nodes, on the database and on its sessions. */
#include <string.h>

#include "client.h"

#define FILTER 0x04100010u

void node_data(client_t* client) {
  char buf[8] = "";
  void* ptr = buf;
  qim_node_t node;
  /* The importer's data on this node are another client's. */
  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  IS(node.priv_len, 0);
  IS(qim_node_priv_ptr_get(client->ses, FILTER, &ptr), 0);
  IS(ptr == NULL, 1);
  IS(qim_node_priv_set(client->ses, FILTER, "mine", 5), 0);
  IS(qim_node_priv_ptr_set(client->ses, FILTER, client), 0);
  IS(qim_node_read(client->ses, FILTER, 0, &node), 0);
  IS(node.priv_len, 5);
  IS(node.priv_ptr, (uintptr_t)client);
  IS(qim_node_priv_get(client->ses, FILTER, 4, buf), ROV_ERR_LENGTH);
  IS(qim_node_priv_get(client->ses, FILTER, sizeof buf, buf), 0);
  IS(strcmp(buf, "mine"), 0);
  IS(qim_node_priv_ptr_get(client->ses, FILTER, &ptr), 0);
  IS(ptr == client, 1);
  IS(qim_node_priv_set(client->ses, 0, "mine", 5), QIM_ERR_INVALID);
}

static rov_priv_t piece(uint32_t key, void* data, uint32_t len) {
  rov_priv_t made;
  made.key = key;
  made.len = len;
  made.data = data;
  return made;
}

void database_data(client_t* client) {
  char text[] = "kept";
  char buf[16] = "";
  rov_priv_t to = piece(3, text, sizeof text);
  rov_priv_t from = piece(3, buf, sizeof buf);
  IS(qim_db_priv_read(client->db, &from), ROV_ERR_NO_VALUE);
  IS(qim_db_priv_write(client->db, &to), 0);
  IS(qim_db_priv_read(client->db, &from), 0);
  IS(from.len, sizeof text);
  IS(strcmp(buf, text), 0);
  IS(qim_db_priv_post(client->db, 8, 7, "posted"), 0);

  /* As after a restart: what is there, by ascending keys. */
  from = piece(0, buf, sizeof buf);
  IS(qim_db_priv_recover(client->db, 0, &from), 0);
  IS(from.key, 3);
  IS(strcmp(buf, text), 0);
  from = piece(0, buf, sizeof buf);
  IS(qim_db_priv_recover2(client->db, 3, 0, &from), 0);
  IS(from.key, 8);
  IS(strcmp(buf, "posted"), 0);
  from = piece(0, buf, sizeof buf);
  IS(qim_db_priv_recover2(client->db, 8, 0, &from), ROV_ERR_NO_VALUE);
  IS(qim_db_priv_delete(client->db, 3), 0);
  from = piece(3, buf, sizeof buf);
  IS(qim_db_priv_read(client->db, &from), ROV_ERR_NO_VALUE);
}

void session_data(client_t* client) {
  char text[] = "left behind";
  char buf[16] = "";
  uint32_t ended = 0;
  rov_priv_t to = piece(5, text, sizeof text);
  rov_priv_t from = piece(5, buf, sizeof buf);
  IS(qim_ses_open_ro(client->db, &ended), 0);
  IS(qim_ses_priv_write(ended, &to, 0), 0);
  IS(qim_ses_priv_read(ended, &from), 0);
  IS(strcmp(buf, text), 0);
  IS(rov_ses_close(ended), 0);
  from = piece(5, buf, sizeof buf);
  IS(qim_ses_priv_read(client->ses, &from), ROV_ERR_NO_VALUE);

  IS(qim_ses_priv_recover2(client->ses, 0, ROV_PRIV_KEEP, &from), 0); /* only looks */
  IS(from.key, 5);
  from = piece(5, buf, sizeof buf);
  IS(qim_ses_priv_read(client->ses, &from), ROV_ERR_NO_VALUE);
  from = piece(0, buf, sizeof buf);
  IS(qim_ses_priv_recover(client->ses, 0, &from), 0);
  from = piece(5, buf, sizeof buf);
  IS(qim_ses_priv_read(client->ses, &from), 0);
  IS(strcmp(buf, text), 0);
  IS(qim_ses_priv_delete(client->ses, 5, 0), 0);
  IS(qim_ses_priv_delete(client->ses, 5, 0), ROV_ERR_NO_VALUE);
}
