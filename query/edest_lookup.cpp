// Where a policy instance is enforced: the enforcement destination at a given place.
//
// A destination bears a name that can be told from the place and the policy instance, so that one
// question finds it in most sessions, however many referrers there are. Names may be shared or
// missing; then the referrers are walked, as they are at once in sessions of very many data sets.
#include <stdlib.h>
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace qim::query {
namespace {

constexpr const char* kLookup = "qim_pinst_edest_lookup";

// With more data sets than this in a session the name query is not made.
constexpr uint32_t kMaxDsetsForNameQuery = 1023;

// One lookup: what it looks for and what it holds on the way.
struct Lookup {
  uint32_t ses;
  const qim_node_t* pinst;
  const qim_policy_dest_t* dest;
  qim_node_t* out;  // NULL: only the status is wanted
  qim_lib_ctx_t* ctx;
  qim_node_t* open = nullptr;
  qim_node_id_t* refs = nullptr;
};

// How the direct attempt ended.
enum class Direct { missed, done, failed };

uint32_t report_lookup(const Lookup& lookup, uint32_t status, int32_t line) {
  report(status, kLookup, line, lookup.ctx);
  return status;
}

// A node that could not be closed is not closed again.
uint32_t close_open(Lookup& lookup) {
  qim_node_t* node = lookup.open;
  lookup.open = nullptr;
  return qim_int_node_close(node, lookup.ctx);
}

// Leaves with `status`, which was reported where it arose and is reported once more here.
uint32_t leave(Lookup& lookup, uint32_t status) {
  if (lookup.open != nullptr) {
    const uint32_t closed = close_open(lookup);
    // A node is still open only after a failure, so that `status` is not 0
    status = status != ROV_OK ? status : closed;  // GCOVR_EXCL_BR_LINE: see above
  }
  if (lookup.refs != nullptr) {
    free(lookup.refs);
    lookup.refs = nullptr;
  }
  return status == ROV_OK ? uint32_t{ROV_OK} : report_lookup(lookup, status, 1782);
}

bool is_edest_at(const qim_node_t& node, const qim_policy_dest_t* dest) {
  return node.type == QIM_NODE_EDEST &&
         qim_policy_dest_cmp(&node.body.pinst.fields.dest, dest) == 0;
}

// A failed copy does not make the lookup fail: the destination was found.
void give(const Lookup& lookup) {
  if (lookup.out != nullptr) qim_node_cp(lookup.ses, lookup.open, lookup.out);
}

// The name that an enforcement destination of this policy instance at this place would bear.
void make_name(const Lookup& lookup, qim_dsetname_t* name) {
  qim_pinst_fields_t key;
  memset(&key, 0, sizeof(key));
  key.dest = *lookup.dest;
  key.dir = lookup.pinst->body.pinst.fields.dir;
  key.type = lookup.pinst->body.pinst.fields.type;
  qim_pinst_to_dsetname(&key, name);
}

// Tries the node that bears the name. On a miss a node may be left open.
Direct try_name(Lookup& lookup, uint32_t base, const qim_dsetname_t& name, uint32_t* status) {
  rov_node_parms_t parms;
  memset(&parms, 0, sizeof(parms));
  *status = rov_ses_dset_name_get(base, sizeof(name), &name, &parms);
  if (*status == ROV_ERR_NO_ITEM) return Direct::missed;
  if (*status != ROV_OK) {
    report_lookup(lookup, *status, 1729);
    return Direct::done;
  }
  *status = qim_int_node_open(lookup.ses, qim_from_rov_node_id(&parms.id), nullptr, 0, &lookup.open,
                              lookup.ctx);
  if (*status == ROV_ERR_NO_ITEM || *status == QIM_ERR_NO_EDEST) return Direct::missed;
  if (*status != ROV_OK) {
    report_lookup(lookup, *status, 1711);
    return Direct::failed;
  }
  // Another policy instance may be enforced at the same place under the same name.
  if (!is_edest_at(*lookup.open, lookup.dest) ||
      lookup.open->body.pinst.ln_2c1.node != lookup.pinst->id) {
    return Direct::missed;
  }
  give(lookup);
  *status = close_open(lookup);
  if (*status != ROV_OK) report_lookup(lookup, *status, 1726);
  return Direct::done;
}

// Looks at one referrer. They all refer to the policy instance, so the link back is not looked at.
uint32_t try_referrer(Lookup& lookup, qim_node_id_t ref, bool* found) {
  uint32_t status = qim_int_node_open(lookup.ses, ref, nullptr, 0, &lookup.open, lookup.ctx);
  if (status != ROV_OK) return report_lookup(lookup, status, 1750);
  if (is_edest_at(*lookup.open, lookup.dest)) {
    give(lookup);
    *found = true;
  }
  status = close_open(lookup);
  return status == ROV_OK ? uint32_t{ROV_OK} : report_lookup(lookup, status, 1763);
}

// The first referrer that is enforced at the place, in the database's order.
uint32_t walk(Lookup& lookup) {
  uint32_t count = 0;
  const uint32_t status = qim_ref_get_all(lookup.ses, lookup.pinst, &lookup.refs, &count);
  if (status != ROV_OK) return report_lookup(lookup, status, 1741);
  if (count == 0) return QIM_ERR_NO_EDEST;
  bool found = false;
  for (int32_t i = 0; !found && i < static_cast<int32_t>(count); i++) {
    const uint32_t tried = try_referrer(lookup, lookup.refs[i], &found);
    if (tried != 0) return leave(lookup, tried);
  }
  if (!found) return leave(lookup, report_lookup(lookup, QIM_ERR_NO_EDEST, 1767));
  return leave(lookup, 0);
}

uint32_t run(Lookup& lookup) {
  qim_dsetname_t name;
  make_name(lookup, &name);
  uint32_t base = 0;
  uint32_t status = rov_ses_orig_handle(lookup.ses, &base);
  if (status != ROV_OK) return report_lookup(lookup, status, 1688);
  uint32_t dsets = 0;
  if (rov_ses_get_num_dsets(lookup.ses, &dsets) == 0 && dsets <= kMaxDsetsForNameQuery) {
    switch (try_name(lookup, base, name, &status)) {  // GCOVR_EXCL_BR_LINE: no fourth case
      case Direct::done:
        return status;
      case Direct::failed:
        return leave(lookup, status);
      case Direct::missed:
        break;
    }
  }
  if (lookup.open != nullptr) {
    status = close_open(lookup);
    if (status != ROV_OK) return leave(lookup, report_lookup(lookup, status, 1735));
  }
  return walk(lookup);
}

}  // namespace
}  // namespace qim::query

QIM_API uint32_t qim_pinst_edest_lookup(uint32_t ses, const qim_node_t* pinst,
                                        const qim_policy_dest_t* dest, qim_node_t* out) {
  qim::query::Lookup lookup = {
      .ses = ses, .pinst = pinst, .dest = dest, .out = out, .ctx = qim_lib_get()};
  return qim::query::run(lookup);
}

// The policy instance is open for the whole lookup: its own record says what to look for.
QIM_API uint32_t qim_pinst_edest_name_get(uint32_t ses, qim_node_id_t pinst_id,
                                          const qim_policy_dest_t* dest, qim_node_t* out) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim_node_t* pinst = nullptr;
  uint32_t status = qim_int_node_open(ses, pinst_id, nullptr, QIM_NODE_PINST, &pinst, ctx);
  if (status != ROV_OK) {
    qim::report(status, "qim_pinst_edest_name_get", 720, ctx);
    return status;
  }
  status = qim_pinst_edest_lookup(ses, pinst, dest, out);
  const uint32_t closed = qim_int_node_close(pinst, ctx);
  status = status != ROV_OK ? status : closed;
  if (status != ROV_OK) qim::report(status, "qim_pinst_edest_name_get", 727, ctx);
  return status;
}
