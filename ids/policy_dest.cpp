// Policy destinations: the places where policies are enforced, made, read and compared by format.
#include <string.h>

#include "lib/export.h"
#include "qim.h"
#include "rov.h"

namespace {

// Differences of 8- and 16-bit fields carry an order in their sign, those of 32-bit fields wrap
// around and do not: callers only ask whether the result is 0.
int32_t diff(uint32_t a, uint32_t b) {
  return static_cast<int32_t>(a - b);
}

// Fields are compared one by one and not as bytes: what a format does not use may hold anything.
int32_t cmp_if(const qim_dest_if_t& a, const qim_dest_if_t& b) {
  if (a.vdc != b.vdc) return diff(a.vdc, b.vdc);
  if (a.vrf != b.vrf) return diff(a.vrf, b.vrf);
  if (a.vlan != b.vlan) return diff(a.vlan, b.vlan);
  return diff(a.ifix, b.ifix);
}

int32_t cmp_srv(const qim_dest_srv_t& a, const qim_dest_srv_t& b) {
  if (a.srv_id != b.srv_id) return diff(a.srv_id, b.srv_id);
  if (a.srv_def != b.srv_def) return diff(a.srv_def, b.srv_def);
  return diff(a.srv_vdc, b.srv_vdc);
}

int32_t cmp_gen(const qim_dest_gen_t& a, const qim_dest_gen_t& b) {
  if (a.vdc != b.vdc) return diff(a.vdc, b.vdc);
  if (a.v8 != b.v8) return diff(a.v8, b.v8);
  if (a.v16a != b.v16a) return diff(a.v16a, b.v16a);
  if (a.v16b != b.v16b) return diff(a.v16b, b.v16b);
  if (a.v32a != b.v32a) return diff(a.v32a, b.v32a);
  return diff(a.v32b, b.v32b);
}

}  // namespace

QIM_API void qim_if_policy_dest_set(uint16_t vdc, uint32_t vrf, uint16_t vlan, uint32_t ifix,
                                    qim_policy_dest_t* dest) {
  // A client of one VDC may leave it out of its calls.
  const qim_lib_ctx_t* ctx = qim_lib_get();
  if (ctx->db_parms.vdc_dflt != 0 && vdc == 0) vdc = static_cast<uint16_t>(ctx->db_parms.vdc);
  memset(dest, 0, sizeof(*dest));
  dest->intf.fmt = QIM_DEST_IF;
  dest->intf.vdc = vdc;
  dest->intf.vrf = vrf;
  dest->intf.vlan = vlan;
  dest->intf.ifix = ifix;
}

QIM_API uint32_t qim_if_policy_dest_get2(const qim_policy_dest_t* dest, uint16_t* vdc,
                                         uint32_t* vrf, uint16_t* vlan, uint32_t* ifix) {
  if (dest->fmt != QIM_DEST_IF) {
    *vdc = 0;
    *vrf = 0;
    *vlan = 0;
    *ifix = 0;
    return QIM_ERR_DEST_FMT;
  }
  *vdc = dest->intf.vdc;
  *vrf = dest->intf.vrf;
  *vlan = dest->intf.vlan;
  *ifix = dest->intf.ifix;
  return ROV_OK;
}

QIM_API uint32_t qim_if_policy_dest_get(const qim_policy_dest_t* dest, uint16_t* vdc, uint16_t* vrf,
                                        uint16_t* vlan, uint32_t* ifix) {
  uint32_t wide = 0;
  const uint32_t status = qim_if_policy_dest_get2(dest, vdc, &wide, vlan, ifix);
  *vrf = static_cast<uint16_t>(wide);  // clients of the older form know VRFs of 16 bits
  return status;
}

QIM_API void qim_srv_policy_dest_set(uint32_t srv_id, uint32_t srv_def, qim_policy_dest_t* dest) {
  memset(dest, 0, sizeof(*dest));
  dest->srv.fmt = QIM_DEST_SRV;
  dest->srv.srv_id = srv_id;
  dest->srv.srv_def = srv_def;
}

QIM_API int32_t qim_policy_dest_cmp(const qim_policy_dest_t* a, const qim_policy_dest_t* b) {
  if (a->fmt != b->fmt) return diff(a->fmt, b->fmt);
  switch (a->fmt) {
    case QIM_DEST_IF:
      return cmp_if(a->intf, b->intf);
    case QIM_DEST_SRV:
      return cmp_srv(a->srv, b->srv);
    case QIM_DEST_GEN:
      return cmp_gen(a->gen, b->gen);
    default:
      return -1;  // what an unknown format says cannot be compared, not even with itself
  }
}

QIM_API uint32_t qim_upstream_ifelse_get(uint32_t, uint32_t, uint32_t) {
  return QIM_ERR_NOT_SUPPORTED;
}
