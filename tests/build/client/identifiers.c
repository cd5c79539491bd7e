/* Identifiers, destinations and names: conversions that need no database. */
#include <string.h>

#include "client.h"

static const uint8_t interface_name[21] = {1, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 0, 100,
                                           0, 1,    0,    0,    0,    0, 0, 0, 5, 1};

void identifiers(client_t* client) {
  static const uint8_t in_database[16] = {0x04, 0x10, 0x00, 0x11};
  rov_node_id_t id;
  uint32_t space = 0;
  uint32_t index = 0;
  uint32_t word;
  (void)client;
  IS(qim_node_id_priv_create(0x123456), 0x00323456);
  IS(qim_node_id_fields(0x04100011, &space, &index), 1);
  IS(space, 1);
  IS(index, 0x11);
  IS(qim_to_rov_node_id(0x04100011, &id), 0);
  SAME(&id, in_database, sizeof id);
  IS(qim_from_rov_node_id(&id), 0x04100011);
  IS(qim_to_rov_node_id(0, &id), QIM_ERR_INVALID);
  qim_to_rov_node_id_nochk(0x04100011, &id);
  SAME(&id, in_database, sizeof id);
  word = id.word[0];
  rov_node_id_to_qim(&word);
  IS(word, 0x04100011);
  rov_node_id_from_qim(&word);
  IS(word, id.word[0]);
}

void destinations(client_t* client) {
  qim_policy_dest_t dest;
  qim_policy_dest_t other;
  uint16_t vdc = 0, vlan = 0, low_vrf = 0;
  uint32_t vrf = 0, ifix = 0;
  (void)client;
  qim_if_policy_dest_set(1, 0x01020304, 100, 0x11223344, &dest);
  IS(dest.fmt, QIM_DEST_IF);
  IS(qim_if_policy_dest_get2(&dest, &vdc, &vrf, &vlan, &ifix), 0);
  IS(vdc == 1 && vrf == 0x01020304 && vlan == 100 && ifix == 0x11223344, 1);
  IS(qim_if_policy_dest_get(&dest, &vdc, &low_vrf, &vlan, &ifix), 0);
  IS(low_vrf, 0x0304);
  qim_if_policy_dest_set(1, 0x01020304, 101, 0x11223344, &other);
  IS(qim_policy_dest_cmp(&dest, &dest), 0);
  IS(qim_policy_dest_cmp(&dest, &other) != 0, 1);
  qim_srv_policy_dest_set(9, 2, &other);
  IS(other.fmt == QIM_DEST_SRV && other.srv.srv_id == 9 && other.srv.srv_def == 2, 1);
  IS(qim_if_policy_dest_get2(&other, &vdc, &vrf, &vlan, &ifix), QIM_ERR_DEST_FMT);
  IS(ifix, 0);
  IS(qim_upstream_ifelse_get(1, 2, 3), QIM_ERR_NOT_SUPPORTED);
}

void names(client_t* client) {
  /* The most significant bit of each field that a format uses. */
  static const uint8_t interface_fields[21] = {0x80, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0,
                                               0x80, 0,    0, 0, 0, 0x80, 0, 0, 0, 0x80};
  static const uint8_t service_fields[21] = {0x80, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0,   0,
                                             0,    0,    0, 0, 0, 0x80, 0, 0, 0, 0x80};
  qim_dsetname_t name;
  qim_dsetname_t copy;
  qim_pinst_fields_t fields;
  rov_sub_t sub;
  (void)client;
  qim_dsetname_for_if_policy(5, QIM_DIR_IN, 1, 0x01020304, 100, 0x11223344, &name);
  SAME(&name, interface_name, sizeof name);
  copy = name;
  qim_dsetname_ntoh(&copy);
  IS(copy.type, 5);
  IS(copy.dest.intf.ifix, 0x11223344);
  qim_dsetname_hton(&copy);
  SAME(&copy, interface_name, sizeof copy);

  memset(&sub, 0, sizeof sub);
  sub.dset_name = &name;
  IS(qim_extract_pinst_from_sub(&sub), 5);
  SAME(&name, interface_name, sizeof name);

  memset(&fields, 0, sizeof fields);
  qim_pinst_from_dsetname(&fields, &copy);
  IS(fields.type == 5 && fields.dir == QIM_DIR_IN && fields.dest.intf.vlan == 100, 1);
  qim_pinst_to_dsetname(&fields, &copy);
  SAME(&copy, interface_name, sizeof copy);

  SAME(&qim_pinstflds_if, interface_fields, sizeof interface_fields);
  SAME(&qim_pinstflds_srv, service_fields, sizeof service_fields);
  IS(qim_pinstflds_gen.dest.fmt == 0x80 && qim_pinstflds_gen.dir == 0x80, 1);
}
