// Data-set names: building them, reading them, and turning them between host and network order.
//
// The 21 bytes of a name are compared as they are, by the database and by other processes. So every
// name of one place must have the same bytes: what a format does not use is zero, and all integers
// are in network order wherever a name leaves this library.
#include <arpa/inet.h>
#include <string.h>

#include "lib/export.h"
#include "qim.h"

namespace {

// Swapping to and from network order is one operation on every byte order, so both directions share
// the walk over the destination's fields; htonl and htons are their own inverses. An unknown format
// counts as an interface: names that a client made up come back as they went.
void convert_dest(qim_policy_dest_t& dest) {
  switch (dest.fmt) {
    case QIM_DEST_SRV:
      dest.srv.srv_id = htonl(dest.srv.srv_id);
      dest.srv.srv_def = htonl(dest.srv.srv_def);
      dest.srv.srv_vdc = htons(dest.srv.srv_vdc);
      return;
    case QIM_DEST_GEN:
      dest.gen.vdc = htons(dest.gen.vdc);
      dest.gen.v16a = htons(dest.gen.v16a);
      dest.gen.v16b = htons(dest.gen.v16b);
      dest.gen.v32a = htonl(dest.gen.v32a);
      dest.gen.v32b = htonl(dest.gen.v32b);
      return;
    default:
      dest.intf.ifix = htonl(dest.intf.ifix);
      dest.intf.vrf = htonl(dest.intf.vrf);
      dest.intf.vlan = htons(dest.intf.vlan);
      dest.intf.vdc = htons(dest.intf.vdc);
      return;
  }
}

// Copies the fields that the format uses, so that no stray byte of a destination becomes part of a
// name.
void copy_used_fields(const qim_policy_dest_t& from, qim_policy_dest_t& to) {
  to.fmt = from.fmt;
  switch (from.fmt) {
    case QIM_DEST_IF:
      to.intf = from.intf;
      memset(to.intf.reserved, 0, sizeof(to.intf.reserved));
      return;
    case QIM_DEST_SRV:
      to.srv = from.srv;
      memset(to.srv.reserved, 0, sizeof(to.srv.reserved));
      return;
    case QIM_DEST_GEN:
      to.gen = from.gen;
      return;
    default:
      return;
  }
}

}  // namespace

// The format is one byte and needs no conversion, so it can be asked for in either order.
QIM_API void qim_dsetname_hton(qim_dsetname_t* name) {
  convert_dest(name->dest);
  name->type = htonl(name->type);
}

QIM_API void qim_dsetname_ntoh(qim_dsetname_t* name) {
  name->type = ntohl(name->type);
  convert_dest(name->dest);
}

QIM_API void qim_dsetname_for_if_policy(uint32_t type, uint8_t dir, uint16_t vdc, uint32_t vrf,
                                        uint16_t vlan, uint32_t ifix, qim_dsetname_t* out) {
  memset(out, 0, sizeof(*out));
  out->type = type;
  out->dir = dir;
  qim_if_policy_dest_set(vdc, vrf, vlan, ifix, &out->dest);
  qim_dsetname_hton(out);
}

QIM_API void qim_pinst_to_dsetname(const qim_pinst_fields_t* pinst, qim_dsetname_t* out) {
  memset(out, 0, sizeof(*out));
  copy_used_fields(pinst->dest, out->dest);
  out->type = pinst->type;
  out->dir = pinst->dir;
  qim_dsetname_hton(out);
}

// The name itself is converted, not a copy of it: clients rely on finding it in host order after.
QIM_API void qim_pinst_from_dsetname(qim_pinst_fields_t* out, qim_dsetname_t* name) {
  qim_dsetname_ntoh(name);
  out->dest = name->dest;
  out->dir = name->dir;
  out->type = name->type;
}

// The database lends its record for the call only and reads on in it, so the name is put back as it
// was.
QIM_API uint32_t qim_extract_pinst_from_sub(const rov_sub_t* sub) {
  auto* name = static_cast<qim_dsetname_t*>(sub->dset_name);
  qim_dsetname_ntoh(name);
  const uint32_t type = name->type;
  qim_dsetname_hton(name);
  return type;
}
