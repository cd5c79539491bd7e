/* A program that writes: an access list "guard" of one entry, which drops what goes to the TCP ports
 * FIRST to LAST, applied at an interface, in one commit.
 *
 *   ./writer DATABASE INTERFACE FIRST LAST
 *
 * Nodes are numbered from LIST on; what is there by these numbers is replaced.
 */
#include <qim_acl.h>
#include <rov_edit.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define WRITER_ID 0x77726974u
#define LIST 0x00300100u

enum { GROUP = LIST, OTHERS, LIST_NAME, ENTRY, DROP, INSTANCE, PLACE, PLACE_NAME };

/* Stores a node as the library encodes it, with a data-set name where it has one. */
static uint32_t put(uint32_t ses, qim_node_id_t id, uint32_t type, const qim_node_body_t* body,
                    const qim_dsetname_t* dset) {
  uint8_t tlv[1024];
  rov_edit_node_t stored;
  qim_node_t node;
  uint32_t status;
  memset(&node, 0, sizeof node);
  memset(&stored, 0, sizeof stored);
  node.type = type;
  node.group = GROUP; /* which list it is of */
  node.body = *body;
  status = qim_node_to_tlv(&node, tlv, sizeof tlv, &stored.tlv_len, NULL, 0);
  if (status != 0) return status;
  qim_to_rov_node_id(id, &stored.id);
  stored.tlv = tlv;
  stored.dset = dset;
  stored.dset_len = dset == NULL ? 0 : (uint32_t)sizeof *dset;
  return rov_edit_node_put(ses, &stored);
}

static uint32_t link_to(uint32_t ses, qim_node_id_t from, uint16_t field, qim_node_id_t to) {
  rov_link_t link;
  memset(&link, 0, sizeof link);
  link.field = field;
  qim_to_rov_node_id(from, &link.owner);
  qim_to_rov_node_id(to, &link.node);
  return rov_edit_link_put(ses, &link);
}

static uint32_t put_name(uint32_t ses, qim_node_id_t id, char* name) {
  qim_node_body_t body;
  memset(&body, 0, sizeof body);
  body.action.type = QIM_ACTION_NAME;
  body.action.args = (uint8_t*)name;
  body.action.args_len = (uint32_t)strlen(name);
  return put(ses, id, QIM_NODE_ACTION, &body, NULL);
}

/* An entry is a Filter: its name and what it matches are criteria. */
static uint32_t put_entry(uint32_t ses, unsigned first, unsigned last) {
  static char name[] = "ports";
  uint8_t args[8];
  qim_crit_value_t ports;
  qim_criterion_t criteria[2];
  qim_node_body_t body;
  uint32_t status;
  memset(&body, 0, sizeof body);
  memset(&ports, 0, sizeof ports);
  memset(criteria, 0, sizeof criteria);
  ports.type = QIM_CRIT_TCP_DESTINATION;
  ports.as.ports.comparison = QIM_PORT_RANGE;
  ports.as.ports.first = (uint16_t)first;
  ports.as.ports.last = (uint16_t)last;
  status = qim_crit_build(&ports, sizeof args, args, &criteria[1].args_len);
  if (status != 0) return status;
  criteria[0].next = &criteria[1];
  criteria[0].type = QIM_CRIT_NAME;
  criteria[0].args = (uint8_t*)name;
  criteria[0].args_len = (uint32_t)strlen(name);
  criteria[1].type = ports.type;
  criteria[1].args = args;
  body.filter.match = QIM_LINK_TRUE;
  body.filter.nomatch = QIM_LINK_NOMATCH;
  body.filter.crit = criteria;
  status = put(ses, ENTRY, QIM_NODE_FILTER, &body, NULL);
  memset(&body, 0, sizeof body);
  body.action.type = QIM_ACTION_DROP;
  if (status == 0) status = put(ses, DROP, QIM_NODE_ACTION, &body, NULL);
  return status == 0 ? link_to(ses, ENTRY, QIM_LN_FILTER_TRUE, DROP) : status;
}

static uint32_t put_list(uint32_t ses) {
  static char name[] = "guard";
  qim_node_body_t body;
  uint32_t status;
  memset(&body, 0, sizeof body);
  body.group.type = QIM_GROUP_ACCESS_LIST;
  status = put(ses, GROUP, QIM_NODE_GROUP, &body, NULL);
  memset(&body, 0, sizeof body);
  body.def.type = QIM_ACTION_ACCEPT;
  if (status == 0) status = put(ses, OTHERS, QIM_NODE_DEF, &body, NULL);
  if (status == 0) status = put_name(ses, LIST_NAME, name);
  if (status == 0) status = link_to(ses, GROUP, QIM_LN_GROUP_FIRST, ENTRY);
  if (status == 0) status = link_to(ses, GROUP, QIM_LN_GROUP_DEF, OTHERS);
  return status == 0 ? link_to(ses, GROUP, QIM_LN_GROUP_NAME, LIST_NAME) : status;
}

/* An instance and its destination: inbound, in the first stage. Both have data-set names; that of the
 * instance is of the generic format, so that it is no interface's. */
static uint32_t put_place(uint32_t ses, char* interface) {
  const uint32_t index = qim_interface_index(interface, (uint32_t)strlen(interface));
  qim_pinst_fields_t fields;
  qim_dsetname_t dset;
  qim_node_body_t body;
  uint32_t status;
  memset(&body, 0, sizeof body);
  memset(&fields, 0, sizeof fields);
  fields.dest.gen.fmt = QIM_DEST_GEN;
  fields.dest.gen.v32a = GROUP;
  fields.dir = QIM_DIR_IN;
  fields.type = QIM_POLICY_ACCESS_LIST | 1;
  qim_pinst_to_dsetname(&fields, &dset);
  status = put(ses, INSTANCE, QIM_NODE_PINST, &body, &dset);
  qim_dsetname_for_if_policy(fields.type, fields.dir, 0, 0, 0, index, &dset);
  if (status == 0) status = put(ses, PLACE, QIM_NODE_EDEST, &body, &dset);
  if (status == 0) status = put_name(ses, PLACE_NAME, interface);
  if (status == 0) status = link_to(ses, INSTANCE, QIM_LN_PINST, GROUP);
  if (status == 0) status = link_to(ses, PLACE, QIM_LN_PINST, INSTANCE);
  return status == 0 ? link_to(ses, PLACE, QIM_LN_EDEST_NAME, PLACE_NAME) : status;
}

static uint32_t write_all(uint32_t db, char** argv) {
  uint32_t ses;
  uint32_t status = rov_edit_begin(db, &ses);
  if (status != 0) return status;
  status = put_list(ses);
  if (status == 0)
    status =
        put_entry(ses, (unsigned)strtoul(argv[3], NULL, 10), (unsigned)strtoul(argv[4], NULL, 10));
  if (status == 0) status = put_place(ses, argv[2]);
  if (status == 0) return rov_edit_commit(ses);
  rov_edit_abandon(ses);
  return status;
}

int main(int argc, char** argv) {
  rov_parms_t parms;
  uint32_t db;
  uint32_t status = qim_db_init_parms_init(&parms, ROV_VERSION);
  if (argc != 5) {
    fprintf(stderr, "usage: writer DATABASE INTERFACE FIRST LAST\n");
    return 2;
  }
  parms.p.db_path = argv[1];
  if (status == 0) status = qim_lib_init(0, 0, WRITER_ID, 0, &parms, 0, 0, 0, &db);
  if (status == 0) {
    status = write_all(db, argv);
    qim_lib_close(db, 0);
  }
  if (status == 0) return 0;
  fprintf(stderr, "writer: %s (%s)\n", qim_status_text(status), qim_status_name(status));
  return 1;
}
