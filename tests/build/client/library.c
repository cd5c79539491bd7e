/* The library itself: starting and ending it, its contexts, its reports of failures. */
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "client.h"

#define FILTER 0x04100010u

void start_up(client_t* client) {
  rov_parms_t parms;
  uint32_t again = 0;
  IS(qim_lib_get()->use_count, 0);
  IS(qim_lib_close(0, 0), QIM_ERR_NOT_INIT);
  IS(qim_lib_defaults(CLIENT_ID, 0), 0);
  IS(qim_lib_get()->rov_lib != 0, 1);

  IS(qim_db_init_parms_init(&parms, ROV_VERSION + 1), ROV_ERR_INVALID);
  IS(qim_db_init_parms_init(&parms, ROV_VERSION), 0);
  IS(parms.size, sizeof parms);
  parms.p.db_path = client->directory;
  IS(qim_lib_init(0, 0, CLIENT_ID, 7, &parms, 0, QIM_INIT_AGAIN, 0, &client->db), 0);
  IS(qim_lib_get()->use_count, 1);
  IS(qim_lib_get()->init_id, CLIENT_ID);
  IS(qim_lib_get()->init_arg, 7);

  /* A second user of the same process, who soon leaves. */
  IS(qim_lib_init(0, 0, CLIENT_ID + 1, 7, &parms, 0, 0, 0, &again), QIM_ERR_INVALID);
  IS(qim_lib_init(0, 0, CLIENT_ID, 7, &parms, 0, 0, 0, &again), 0);
  IS(again != client->db, 1);
  IS(qim_lib_get()->use_count, 2);
  IS(qim_lib_close(again, 0), 0);
  IS(qim_lib_get()->use_count, 1);

  IS(qim_lib_init_locks(0, 1000, 5, 0, 1), ROV_ERR_INVALID);
  IS(qim_lib_init_locks(0, 1000, 5, 0, 0), 0);
  IS(qim_ses_open_ro(client->db, &client->ses), 0);
}

static char logged[600];

static void keep_line(uint32_t severity, const char* text, void* arg) {
  *(uint32_t*)arg = severity;
  snprintf(logged, sizeof logged, "%s", text);
}

void errors(client_t* client) {
  uint32_t severity = 0;
  qim_node_t node;
  rov_err_t error;
  HAS(rov_status_name(ROV_ERR_NO_ITEM), "ROV_ERR_NO_ITEM");
  IS(strlen(rov_status_text(ROV_ERR_NO_ITEM)) > 10, 1);

  IS(qim_db_reg_logger(client->db, keep_line, &severity), 0);
  qim_dbg_errors(QIM_ERR_INVALID, "a_stranger", 42, qim_lib_get());
  IS(strcmp(qim_dbgmsg, "ERROR STATUS: 0x41160005 (a_stranger/42)\n"), 0);
  IS(strcmp(logged, qim_dbgmsg), 0);
  IS(severity, 2);
  logged[0] = 0;
  IS(qim_node_read(client->ses, 0, 0, &node), QIM_ERR_INVALID);
  IS(logged[0], 0);
  IS(qim_db_debug(client->db, QIM_DBG_REPORT), 0);
  IS(qim_lib_get()->db_parms.dbg_flags, QIM_DBG_REPORT);
  IS(qim_node_read(client->ses, 0, 0, &node), QIM_ERR_INVALID);
  HAS(logged, "ERROR STATUS: 0x41160005 (");
  IS(qim_db_debug(client->db, 0), 0);
  IS(qim_db_reg_logger(client->db, NULL, NULL), 0);
  IS(qim_dbg, 0); /* the library leaves it to clients */
  qim_dbg = 1;

  IS(qim_node_read(client->ses, 0x77, 0, &node), ROV_ERR_NO_ITEM);
  memset(&error, 0, sizeof error);
  IS(qim_err_getprev(&error), 0);
  IS(error.status, ROV_ERR_NO_ITEM);
  HAS(error.message, "0x00000077");
  IS(qim_err_retry_ok(ROV_ERR_BUSY, 0), 1);
  IS(qim_err_retry_ok(ROV_ERR_BUSY, 10), 0);
  IS(qim_err_retry_ok(ROV_ERR_SES_EXPIRED, 0), 0);
  IS(qim_cl_err_retry_ok(ROV_ERR_SES_EXPIRED, 0), 1);
}

/* A context of its own, which begins as the process's. */
static void* read_in_thread(void* arg) {
  const client_t* client = arg;
  qim_node_t node;
  IS(qim_lib_tls_init(0), 0);
  IS(qim_lib_get()->init_id, CLIENT_ID);
  IS(qim_node_read(client->ses, FILTER, QIM_NODE_FILTER, &node), 0);
  IS(node.id, FILTER);
  return qim_lib_get();
}

void threads(client_t* client) {
  const qim_lib_ctx_t* of_process = qim_lib_get();
  const qim_lib_ctx_t* own;
  pthread_t thread;
  void* of_thread = NULL;
  IS(qim_lib_tls_init(0), 0);
  own = qim_lib_get();
  IS(own != of_process, 1);
  IS(own->use_count, 1);
  IS(pthread_create(&thread, NULL, read_in_thread, client), 0);
  IS(pthread_join(thread, &of_thread), 0);
  IS(of_thread != own && of_thread != (const void*)of_process, 1);
  IS(qim_lib_tls_init_int(), 0);
  IS(qim_lib_get() != own, 1);
  IS(qim_lib_get()->init_id, CLIENT_ID);
}

void shut_down(client_t* client) {
  IS(rov_ses_close(client->ses), 0);
  IS(qim_lib_close(client->db, 0), 0);
  IS(qim_lib_get()->init_id, 0);
  IS(qim_lib_close(client->db, 0), QIM_ERR_NOT_INIT);
}
