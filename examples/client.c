/* A whole client: lists the policy instances of a database and where they are enforced.
 *
 *   ./client [DATABASE]
 */
#include <inttypes.h>
#include <qim.h>
#include <rov.h>
#include <stdio.h>

/* Tells clients apart: private data on nodes belong to one of them. */
#define CLIENT_ID 0x636c6e74u

static int failed(const char* what, uint32_t status) {
  fprintf(stderr, "client: %s: 0x%08" PRIx32 "\n", what, status);
  return 1;
}

/* The destinations are numbered from 0; past the last one there is QIM_ERR_INVALID. */
static void print_destinations(uint32_t ses, qim_node_id_t pinst) {
  qim_node_t edest;
  uint32_t n;
  for (n = 0; qim_pinst_edest_get(ses, pinst, n, &edest) == 0; n++) {
    uint16_t vdc, vlan;
    uint32_t vrf, ifix;
    if (qim_if_policy_dest_get2(&edest.body.pinst.fields.dest, &vdc, &vrf, &vlan, &ifix) == 0) {
      printf("  interface 0x%" PRIx32 ", VLAN %" PRIu16 "\n", ifix, vlan);
    } else {
      printf("  node 0x%08" PRIx32 "\n", edest.id);
    }
  }
}

/* The data sets of a session are numbered from 0, too. */
static uint32_t print_instances(uint32_t ses) {
  qim_node_t node;
  uint32_t status;
  uint32_t n;
  for (n = 0; (status = qim_ses_pinst_get(ses, n, &node)) == 0; n++) {
    if (node.type == QIM_NODE_PINST) {
      printf("policy instance 0x%08" PRIx32 ", type %" PRIu32 "\n", node.id,
             node.body.pinst.fields.type);
      print_destinations(ses, node.id);
    }
  }
  return status == ROV_ERR_NO_ITEM ? 0 : status;
}

int main(int argc, char** argv) {
  rov_parms_t parms;
  uint32_t db;
  uint32_t ses;
  uint32_t status = qim_db_init_parms_init(&parms, ROV_VERSION);
  if (status != 0) {
    return failed("parameters", status);
  }
  if (argc > 1) {
    parms.p.db_path = argv[1];
  }
  status = qim_lib_init(0, 0, CLIENT_ID, 0, &parms, 0, ROV_DB_RDONLY, 0, &db);
  if (status != 0) {
    return failed("start", status);
  }
  status = qim_ses_open_ro(db, &ses);
  if (status == 0) {
    status = print_instances(ses);
    rov_ses_close(ses);
  }
  qim_lib_close(db, 0);
  return status == 0 ? 0 : failed("reading", status);
}
