/* A whole client: lists the access lists of a database with their entries and where they are applied,
 * then waits for changes.
 *
 *   ./client DATABASE [CHANGES]
 *
 * CHANGES is how many changes to wait for, 0 without it. The exit status is 0 when all went well.
 */
#include <inttypes.h>
#include <poll.h>
#include <qim_acl.h>
#include <rov.h>
#include <stdio.h>
#include <stdlib.h>

/* Tells clients apart: private data on nodes belong to one of them. */
#define CLIENT_ID 0x636c6e74u

static int failed(const char* what, uint32_t status) {
  fprintf(stderr, "client: %s: %s (%s)\n", what, qim_status_text(status), qim_status_name(status));
  return 1;
}

static void print_criterion(const qim_criterion_t* criterion) {
  qim_crit_value_t value;
  uint32_t i;
  if (qim_crit_parse(criterion->type, criterion->args_len, criterion->args, &value) != 0) {
    printf(" 0x%04" PRIx32 "?", criterion->type);
    return;
  }
  printf(" %s", qim_crit_kind_get(criterion->type)->name);
  if (value.layout == QIM_LAYOUT_PORTS) {
    printf(" %u-%u", value.as.ports.first, value.as.ports.last);
  } else if (value.layout == QIM_LAYOUT_IPV4_NETWORK) {
    for (i = 0; i < 4; i++) printf("%c%u", i == 0 ? ' ' : '.', value.as.network.address[i]);
    printf("/%u", value.as.network.bits);
  } else if (value.layout == QIM_LAYOUT_U8) {
    printf(" %" PRIu32, value.as.number);
  }
}

/* Prints an entry; *next is the entry behind it, or 0. */
static uint32_t print_entry(uint32_t ses, qim_node_id_t filter, qim_node_id_t* next) {
  char name[65];
  uint32_t len;
  qim_node_t node;
  qim_criterion_t* list;
  const qim_criterion_t* criterion;
  uint32_t status = qim_node_read(ses, filter, QIM_NODE_FILTER, &node);
  if (status != 0) return status;
  *next = node.body.filter.ln_081;
  status = qim_entry_name_get(ses, filter, sizeof name, name, &len);
  printf("  %s:", status == 0 ? name : "an entry");
  if (node.body.filter.crit_cnt != 0) {
    list = malloc(node.body.filter.crit_bytes);
    if (list == NULL) return QIM_ERR_NO_MEM;
    status = qim_filter_criteria_get(ses, filter, node.body.filter.crit_bytes, list);
    for (criterion = status == 0 ? list : NULL; criterion != NULL; criterion = criterion->next)
      if (criterion->type != QIM_CRIT_NAME) print_criterion(criterion);
    free(list);
  }
  printf("\n");
  return status == QIM_POLICY_NO_NAME ? 0 : status;
}

/* What a policy instance applies, and where: its destinations are numbered from 0. */
static uint32_t print_instance(uint32_t ses, const qim_node_t* pinst) {
  char name[65];
  uint32_t len, n, status;
  qim_node_t node;
  qim_node_id_t filter, next;
  status = qim_node_read(ses, pinst->body.pinst.ln_2c1.node, 0, &node);
  if (status != 0 || node.type != QIM_NODE_GROUP) return status;
  if (qim_list_name_get(ses, node.id, sizeof name, name, &len) != 0) name[0] = '\0';
  printf("list %s, node 0x%08" PRIx32 "\n", name, node.id);
  for (filter = node.body.group.ln_281.node; filter != 0; filter = next) {
    status = print_entry(ses, filter, &next);
    if (status != 0) return status;
  }
  for (n = 0; qim_pinst_edest_get(ses, pinst->id, n, &node) == 0; n++) {
    if (qim_interface_name_get(ses, node.id, sizeof name, name, &len) != 0) name[0] = '\0';
    printf("  applied at %s, %s\n", name,
           node.body.pinst.fields.dir == QIM_DIR_IN ? "inbound" : "outbound");
  }
  return 0;
}

/* The data sets of a session are numbered from 0, too. */
static uint32_t print_instances(uint32_t db) {
  qim_node_t node;
  uint32_t ses, n;
  uint32_t status = qim_ses_open_ro(db, &ses);
  if (status != 0) return status;
  for (n = 0; (status = qim_ses_pinst_get(ses, n, &node)) == 0; n++) {
    if (node.type == QIM_NODE_PINST) status = print_instance(ses, &node);
    if (status != 0) break;
  }
  qim_ses_close(ses);
  return status == ROV_ERR_NO_ITEM ? 0 : status;
}

/* Prints changes as they are committed, by whichever process. */
static uint32_t print_changes(const rov_ntf_t* ntf, uint32_t db, long count) {
  struct pollfd ready = {ntf->fd, POLLIN, 0};
  rov_change_t change;
  uint32_t len, status;
  while (count > 0) {
    status = qim_process_msg(db, &change, sizeof change, &len);
    if (status == ROV_ERR_NO_VALUE) {
      fflush(stdout);
      poll(&ready, 1, -1);
    } else if (status != 0) {
      return status;
    } else {
      printf("node 0x%08" PRIx32 ": change %" PRIu32 "\n", qim_from_rov_node_id(&change.node),
             change.kind);
      count--;
    }
  }
  return 0;
}

int main(int argc, char** argv) {
  rov_parms_t parms;
  rov_ntf_t ntf = {0};
  uint32_t db;
  uint32_t status = qim_db_init_parms_init(&parms, ROV_VERSION);
  if (argc < 2) {
    fprintf(stderr, "usage: client DATABASE [CHANGES]\n");
    return 2;
  }
  if (status != 0) return failed("parameters", status);
  parms.p.db_path = argv[1];
  status = qim_lib_init(0, 0, CLIENT_ID, 0, &parms, 0, ROV_DB_RDONLY, 0, &db);
  if (status != 0) return failed("start", status);
  /* Registered before anything is read, so that no change goes by unseen. */
  ntf.kinds = 1u << ROV_CHANGE_NODE_PUT | 1u << ROV_CHANGE_NODE_DEL;
  status = qim_db_ntf(db, &ntf);
  if (status == 0) status = print_instances(db);
  if (status == 0 && argc > 2) status = print_changes(&ntf, db, strtol(argv[2], NULL, 10));
  qim_lib_close(db, 0);
  return status == 0 ? 0 : failed("reading", status);
}
