// C entry: the internal show. It reads like any other client, through sessions.
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "database/base/error.h"
#include "database/codec/show.h"
#include "database/record/keys.h"
#include "database/session/database.h"
#include "rov_edit.h"

namespace {

using rov::DatabasePin;
using rov::fail;
using rov::Note;
using rov::number_of;
using rov::ShowText;

// What clients registered, copied so that no database is pinned while a callback runs.
struct Registered {
  const rov_show_t* tlva = nullptr;
  const rov_show_t* dset_name = nullptr;
  rov_dsetname_print_fn print = nullptr;
};

struct Free {
  void operator()(uint8_t* block) const { free(block); }
};
using Buffer = std::unique_ptr<uint8_t, Free>;

Buffer allocate(uint32_t len) {
  return Buffer(static_cast<uint8_t*>(malloc(len == 0 ? 1 : len)));
}

Registered registered_with(const DatabasePin& db) {
  Registered registered;
  registered.print = db->print_dsetname;
  for (uint32_t i = 0; i < db->show_count; ++i) {
    const rov_show_t* show = db->shows[i];
    if (show->selector == ROV_SHOW_SEL_TLVA) registered.tlva = show;
    if (show->selector == ROV_SHOW_SEL_DSETNAME) registered.dset_name = show;
  }
  return registered;
}

void show_name(ShowText& out, const Registered& registered, const uint8_t* name, uint32_t len) {
  if (registered.dset_name == nullptr || registered.dset_name->kind != ROV_SHOW_PRINT) {
    out.bytes(1, "data-set name", name, len);
    return;
  }
  out.text(out.prefix());
  out.text("  data-set name");
  out.text(registered.dset_name->aux.print(0, 1, 0, len, name, out.prefix(), out.ses(), out.arg()));
}

uint32_t show_links(ShowText& out, const rov_node_parms_t& parms) {
  for (uint32_t n = 0; n < parms.links; ++n) {
    rov_link_t link;
    const uint32_t status = rov_node_link_nth(out.ses(), parms.id, n, &link);
    if (status != ROV_OK) return status;
    out.line(1, "link 0x%03x node 0x%08" PRIx32 " node2 0x%08" PRIx32 " val 0x%" PRIx32 " tag 0x%x",
             link.field, number_of(link.node), number_of(link.node2), link.val, link.tag);
  }
  return ROV_OK;
}

uint32_t show_node(ShowText& out, const Registered& registered, rov_node_id_t id) {
  rov_node_parms_t parms;
  uint32_t status = rov_node_parms_get(out.ses(), id, &parms);
  if (status != ROV_OK) return status;
  const Buffer tlv = allocate(parms.tlv_len);
  uint8_t name[rov::kNameBytes];
  if (tlv == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, parms.tlv_len);
  status =
      rov_node_data_get(out.ses(), id, parms.tlv_len, tlv.get(), parms.dset_len, name, 0, nullptr);
  if (status != ROV_OK) return status;
  out.line(0,
           "node 0x%08" PRIx32 ": flags 0x%" PRIx32 ", %" PRIu32 " links, %" PRIu32
           " referrers, %" PRIu32 " bytes of TLV data, %" PRIu32 " bytes of private data",
           number_of(id), parms.flags, parms.links, parms.refs, parms.tlv_len, parms.priv_len);
  if (parms.dset_len != 0) show_name(out, registered, name, parms.dset_len);
  const rov_show_t* table = registered.tlva != nullptr ? registered.tlva->aux.table : nullptr;
  const uint32_t shown = rov::show_tlv(out, table, 1, tlv.get(), parms.tlv_len);
  status = show_links(out, parms);
  if (status != ROV_OK || shown == ROV_OK) return status;
  return rov::fail_text(shown,
                        "the TLV data of node 0x%08" PRIx32
                        " is damaged: what can be read of it was shown, store the node anew",
                        number_of(id));
}

// One line a data set: its number and type, direction, referrers, places, node.
void show_dset(ShowText& out, const Registered& registered, uint32_t selector,
               const rov_node_parms_t& parms) {
  uint8_t first[24] = {};
  uint8_t second[24] = {};
  char tail[40];
  snprintf(tail, sizeof tail, " node 0x%08" PRIx32 "\n", number_of(parms.id));
  const bool named = parms.dset_len == rov::kNameBytes;
  if (named) {
    rov_node_data_get(out.ses(), parms.id, 0, nullptr, parms.dset_len, first, 0, nullptr);
    memcpy(second, first, sizeof second);
  }
  if (named && registered.print != nullptr) {
    // The printer converts its names in place, so each has a copy of its own.
    out.text(registered.print(first, second, static_cast<int>(selector),
                              static_cast<int>(parms.refs), tail, out.prefix()));
    return;
  }
  out.line(0, "%3" PRIu32 " (%s) node 0x%08" PRIx32, selector, named ? "no printer" : "no name",
           number_of(parms.id));
}

uint32_t show_dsets(ShowText& out, const Registered& registered) {
  for (uint32_t selector = 0;; ++selector) {
    rov_node_parms_t parms;
    const uint32_t status = rov_ses_dset_get(out.ses(), selector, &parms);
    if (status == ROV_ERR_NO_ITEM) return ROV_OK;
    if (status != ROV_OK) return status;
    show_dset(out, registered, selector, parms);
  }
}

uint32_t count_nodes(uint32_t ses, uint32_t* nodes, uint32_t* links) {
  rov_node_parms_t parms = {};
  for (;;) {
    const uint32_t status = rov_node_next(ses, parms.id, &parms);
    if (status == ROV_ERR_NO_ITEM) return ROV_OK;
    if (status != ROV_OK) return status;
    ++*nodes;
    *links += parms.links;
  }
}

uint32_t show_database(ShowText& out, const DatabasePin& db, const Registered& registered) {
  uint32_t nodes = 0;
  uint32_t links = 0;
  uint32_t dsets = 0;
  uint32_t status = count_nodes(out.ses(), &nodes, &links);
  if (status == ROV_OK) status = rov_ses_get_num_dsets(out.ses(), &dsets);
  if (status != ROV_OK) return status;
  out.line(0, "database %s", db->env->path);
  out.line(1, "revision %" PRIu64 ", %" PRIu32 " nodes, %" PRIu32 " links, %" PRIu32 " data sets",
           rov::store_revision(db->env), nodes, links, dsets);
  out.line(1,
           "client 0x%" PRIx32 ", flags 0x%" PRIx32 ", show records %s and %s, names printed by %s",
           db->client, db->flags, registered.tlva != nullptr ? "for TLV data" : "without TLV data",
           registered.dset_name != nullptr ? "for names" : "without names",
           registered.print != nullptr ? "the client" : "nobody");
  return rov::store_readers(
      db->env, [](const char* text, void* to) { static_cast<ShowText*>(to)->text(text); }, &out);
}

uint32_t show(const DatabasePin& db, const rov_show_req_t& req) {
  ShowText out(req);
  const Registered registered = registered_with(db);
  switch (req.what) {
    case ROV_SHOW_NODE:
      return show_node(out, registered, req.node);
    case ROV_SHOW_DSETS:
      return show_dsets(out, registered);
    case ROV_SHOW_DATABASE:
      return show_database(out, db, registered);
    default:
      return fail(ROV_ERR_INVALID, Note::kArgument, 2);
  }
}

}  // namespace

uint32_t rov_db_show_internal(uint32_t db, const rov_show_req_t* req) {
  if (req == nullptr || req->out == nullptr) return fail(ROV_ERR_INVALID, Note::kArgument, 2);
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  if (req->ses != 0) return show(pin, *req);
  rov_show_req_t own = *req;
  uint32_t status = rov_ses_open_ro(db, &own.ses);
  if (status != ROV_OK) return status;
  status = show(pin, own);
  rov_ses_close(own.ses);
  return status;
}
