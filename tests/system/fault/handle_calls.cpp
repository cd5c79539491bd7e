#include "tests/system/fault/handle_calls.h"

#include <cstdlib>

#include "qim.h"
#include "rov.h"
#include "rov_edit.h"

namespace fault {
namespace {

constexpr uint32_t kNode = 3;
constexpr uint32_t kRoom = 4096;

// Outputs. Their contents are of no interest here.
struct Scratch {
  uint8_t bytes[kRoom];
  uint32_t word;
  void* pointer;
  rov_node_parms_t parms;
  rov_link_t link;
  qim_link_t policy_link;
  rov_node_id_t id;
  qim_node_t node;
  qim_node_t* open;
  qim_node_id_t* refs;
};
Scratch g;

rov_node_id_t node_id() {
  rov_node_id_t id;
  qim_to_rov_node_id_nochk(kNode, &id);
  return id;
}

rov_priv_t priv() {
  rov_priv_t made = {};
  made.key = 1;
  made.len = 8;
  made.data = g.bytes;
  return made;
}

uint32_t open_database(uint32_t lib) {
  return rov_db_init(lib, ROV_VERSION, 0, 0, ROV_PROTO, 0, nullptr, ROV_DB_NO_CREATE, &g.word);
}

uint32_t notify(uint32_t db, uint32_t (*call)(uint32_t, rov_ntf_t*)) {
  rov_ntf_t registration = {};
  registration.kinds = 1U << ROV_CHANGE_NODE_PUT;
  return call(db, &registration);
}

void swallow(const char*, void*) {}
void swallow_log(uint32_t, const char*, void*) {}
void keep_word(uint32_t*) {}
char* print_names(void*, void*, int, int, const char*, const char*) {
  static char text[] = "names";
  return text;
}

// The handle as the database, or as the session to show through.
uint32_t show(uint32_t db, uint32_t (*call)(uint32_t, const rov_show_req_t*)) {
  rov_show_req_t request = {};
  request.what = ROV_SHOW_DATABASE;
  request.out = swallow;
  return call(db, &request);
}

uint32_t put(uint32_t ses) {
  rov_edit_node_t node = {};
  node.id = node_id();
  return rov_edit_node_put(ses, &node);
}

uint32_t put_link(uint32_t ses) {
  rov_link_t link = {};
  link.owner = link.node = node_id();
  link.field = 0x81;
  return rov_edit_link_put(ses, &link);
}

uint32_t open_node(uint32_t ses) {
  const uint32_t status = qim_int_node_open(ses, kNode, nullptr, 0, &g.open, qim_lib_get());
  return status == 0 ? qim_int_node_close(g.open, qim_lib_get()) : status;
}

uint32_t all_refs(uint32_t ses) {
  qim_node_t node = {};
  node.id = kNode;
  node.refs = 1;
  const uint32_t status = qim_ref_get_all(ses, &node, &g.refs, &g.word);
  if (status == 0) free(g.refs);
  return status;
}

// A filter: the type must have the link that is asked for, and bit 15 asks the database for it.
uint32_t link_value(uint32_t ses) {
  qim_node_t node = {};
  node.id = kNode;
  node.type = QIM_NODE_FILTER;
  return qim_link_val(ses, &node, 0x8081, &g.policy_link);
}

qim_node_t policy_instance() {
  qim_node_t node = {};
  node.id = kNode;
  node.refs = 1;
  node.type = QIM_NODE_PINST;
  return node;
}

uint32_t find_destination(uint32_t ses) {
  const qim_node_t node = policy_instance();
  qim_policy_dest_t dest = {};
  dest.fmt = QIM_DEST_IF;
  return qim_pinst_edest_lookup(ses, &node, &dest, &g.node);
}

uint32_t name_destination(uint32_t ses) {
  qim_policy_dest_t dest = {};
  dest.fmt = QIM_DEST_IF;
  return qim_pinst_edest_name_get(ses, kNode, &dest, &g.node);
}

uint32_t find_instance(uint32_t ses) {
  const qim_node_t node = policy_instance();
  return qim_ses_pinst_name_get(ses, &node.body.pinst, &g.node);
}

constexpr auto kLibrary = Takes::kLibrary;
constexpr auto kDatabase = Takes::kDatabase;
constexpr auto kSession = Takes::kSession;
constexpr auto kSnapshot = Takes::kSnapshot;
constexpr auto kNothing = Takes::kNothing;

// One row: CALL(who takes it, effect, function, its other arguments).
#define CALL(takes, effect, function, ...)                                                      \
  {                                                                                             \
#function, takes, effect,                                                                   \
        [](uint32_t handle) -> uint32_t { return function(handle __VA_OPT__(, ) __VA_ARGS__); } \
  }
// The same where a row needs more than arguments: DO(who, effect, function, expression of
// `handle`).
#define DO(takes, effect, function, expression)                                      \
  {                                                                                  \
#function, takes, effect, [](uint32_t handle) -> uint32_t { return expression; } \
  }
#define WITH_PRIV(takes, effect, function, ...)                                 \
  {                                                                             \
#function, takes, effect, [](uint32_t handle) -> uint32_t {                   \
      rov_priv_t piece = priv();                                                  \
      return function(handle, __VA_ARGS__);                                       \
    } \
  }

std::vector<HandleCall> database_calls() {
  return {
      CALL(kLibrary, kPlain, rov_lib_defaults, 0),
      CALL(kLibrary, kPlain, rov_lib_init_locks, 0, 1, 0, 0),
      DO(kLibrary, kGives, rov_db_init, open_database(handle)),
      DO(kDatabase, kPlain, rov_db_init_parms_get,
         rov_db_init_parms_get(handle, ROV_VERSION, reinterpret_cast<rov_parms_t*>(g.bytes))),
      CALL(kDatabase, kEnds, rov_db_close, 0),
      CALL(kDatabase, kPlain, rov_db_set_ps_sizes, 0, 0),
      CALL(kDatabase, kPlain, rov_db_reg_node_id_cnv, keep_word, keep_word),
      DO(kDatabase, kPlain, rov_reg_show_output,
         [&] {
           static const rov_show_t record = {};
           return rov_reg_show_output(handle, &record);
         }()),
      CALL(kDatabase, kPlain, rov_reg_extract_pinst, qim_extract_pinst_from_sub),
      CALL(kDatabase, kPlain, rov_reg_dbg_dsetname_print, print_names),
      CALL(kDatabase, kGives, rov_ses_open_ro, &g.word),
      CALL(kDatabase, kPlain, rov_db_ses_exists, handle, &g.word),
      CALL(kDatabase, kPlain, rov_db_ses_lock_grant, 0),
      CALL(kDatabase, kGives, rov_db_snapshot, "kept", &g.word),
      CALL(kDatabase, kGives, rov_db_uri_snapshot, "a/b", "kept", &g.word),
      CALL(kDatabase, kPlain, rov_db_uri_rm, "a/b"),
      WITH_PRIV(kDatabase, kPlain, rov_db_priv_write, &piece),
      WITH_PRIV(kDatabase, kPlain, rov_db_priv_read, &piece),
      CALL(kDatabase, kPlain, rov_db_priv_delete, 1),
      WITH_PRIV(kDatabase, kPlain, rov_db_priv_recover2, 0, 0, &piece),
      CALL(kDatabase, kPlain, rov_db_priv_post, 1, 8, g.bytes),
      DO(kDatabase, kPlain, rov_db_ntf, notify(handle, rov_db_ntf)),
      CALL(kDatabase, kPlain, rov_process_msg, g.bytes, kRoom, &g.word),
      CALL(kDatabase, kPlain, rov_db_usr_group, 4),
      DO(kDatabase, kPlain, rov_usr_id_info,
         rov_usr_id_info(handle, 1, reinterpret_cast<rov_usr_t*>(g.bytes))),
      CALL(kDatabase, kPlain, rov_db_reg_logger, swallow_log, nullptr),
      CALL(kDatabase, kPlain, rov_db_debug, 0),
      DO(kDatabase, kPlain, rov_db_show_internal, show(handle, rov_db_show_internal)),
      CALL(kDatabase, kWaits, rov_edit_begin, &g.word),
      DO(kDatabase, kPlain, rov_snapshot_next,
         rov_snapshot_next(handle, nullptr, kRoom, reinterpret_cast<char*>(g.bytes))),
      DO(kDatabase, kPlain, rov_edit_verify,
         rov_edit_verify(handle, reinterpret_cast<rov_verify_t*>(g.bytes))),
      DO(kDatabase, kPlain, rov_edit_backup,
         rov_edit_backup(handle, "/", 0, reinterpret_cast<rov_verify_t*>(g.bytes))),
      CALL(
          kDatabase, kPlain, rov_edit_holders, [](const rov_holder_t*, void*) {}, nullptr),
      CALL(kSnapshot, kEnds, rov_snapshot_close),
  };
}

std::vector<HandleCall> session_calls() {
  return {
      CALL(kSession, kPlain, rov_node_parms_get, node_id(), &g.parms),
      CALL(kSession, kPlain, rov_node_data_get, node_id(), kRoom, g.bytes, 0, nullptr, 0, nullptr),
      CALL(kSession, kPlain, rov_node_ln_field_get, node_id(), 0x81, &g.link),
      CALL(kSession, kPlain, rov_node_link_get, node_id(), 0x81, &g.link),
      CALL(kSession, kPlain, rov_node_link_match, node_id(), 0x81, 0, 0, 16, &g.link),
      CALL(kSession, kPlain, rov_node_ref_get, node_id(), 0, nullptr, nullptr, &g.id),
      CALL(kSession, kPlain, rov_node_ref_get_all, node_id(), &g.id, 1),
      CALL(kSession, kPlain, rov_node_dset_get, node_id(), 0, &g.parms),
      DO(kSession, kPlain, rov_node_priv_set,
         [&] {
           const rov_node_id_t id = node_id();
           return rov_node_priv_set(handle, &id, g.bytes, 8);
         }()),
      DO(kSession, kPlain, rov_node_priv_ptr_set,
         [&] {
           const rov_node_id_t id = node_id();
           return rov_node_priv_ptr_set(handle, &id, &g);
         }()),
      DO(kSession, kPlain, rov_node_priv_ptr_get,
         [&] {
           const rov_node_id_t id = node_id();
           return rov_node_priv_ptr_get(handle, &id, &g.pointer);
         }()),
      CALL(kSession, kEnds, rov_ses_close),
      CALL(kSession, kPlain, rov_ses_orig_handle, &g.word),
      CALL(kSession, kPlain, rov_ses_timeout),
      DO(kSession, kPlain, rov_ses_verify,
         rov_ses_verify(handle, reinterpret_cast<rov_verify_t*>(g.bytes))),
      DO(kSession, kPlain, rov_edit_node_sum,
         rov_edit_node_sum(handle, node_id(), reinterpret_cast<uint64_t*>(g.bytes))),
      CALL(kSession, kPlain, rov_ses_get_num_dsets, &g.word),
      CALL(kSession, kPlain, rov_ses_dset_get, 0, &g.parms),
      CALL(kSession, kPlain, rov_ses_dset_name_get, 21, g.bytes, &g.parms),
      WITH_PRIV(kSession, kPlain, rov_ses_priv_write, &piece, 0),
      WITH_PRIV(kSession, kPlain, rov_ses_priv_read, &piece),
      CALL(kSession, kPlain, rov_ses_priv_delete, 1, 0),
      WITH_PRIV(kSession, kPlain, rov_ses_priv_recover, 0, &piece),
      WITH_PRIV(kSession, kPlain, rov_ses_priv_recover2, 0, 0, &piece),
      CALL(kSession, kPlain, rov_ps_datasize, g.bytes, &g.word),
      CALL(kSession, kPlain, rov_ps_data, g.bytes + 32, 8, g.bytes),
      CALL(kSession, kEnds, rov_edit_commit),
      CALL(kSession, kEnds, rov_edit_abandon),
      DO(kSession, kPlain, rov_edit_node_put, put(handle)),
      CALL(kSession, kPlain, rov_edit_node_del, node_id()),
      DO(kSession, kPlain, rov_edit_link_put, put_link(handle)),
      CALL(kSession, kPlain, rov_edit_link_del, node_id(), 0x81),
      CALL(kSession, kPlain, rov_node_next, rov_node_id_t{}, &g.parms),
      CALL(kSession, kPlain, rov_node_link_nth, node_id(), 0, &g.link),
      DO(kSession, kPlain, rov_edit_priv_nth,
         [&] {
           uint32_t len = 0;
           return rov_edit_priv_nth(handle, node_id(), 0, &g.word, kRoom, g.bytes, &len);
         }()),
      CALL(kSession, kPlain, rov_edit_priv_put, node_id(), 9, g.bytes, 8),
      CALL(kSession, kPlain, rov_edit_mark_put, "mark", g.bytes, 8),
      CALL(kSession, kPlain, rov_mark_get, "mark", kRoom, g.bytes, &g.word),
      CALL(kSession, kPlain, rov_mark_next, "", reinterpret_cast<char*>(g.bytes)),
  };
}

std::vector<HandleCall> policy_database_calls() {
  return {
      CALL(kNothing, kPlain, qim_lib_init_locks, 0, 1, 0, 0),
      CALL(kDatabase, kEnds, qim_lib_close, 0),
      CALL(kDatabase, kPlain, qim_db_set_ps_sizes, 0, 0),
      CALL(kDatabase, kGives, qim_ses_open_ro, &g.word),
      CALL(kDatabase, kPlain, qim_db_ses_exists, handle, &g.word),
      CALL(kDatabase, kPlain, qim_db_ses_lock_grant, 0),
      CALL(kDatabase, kGives, qim_db_snapshot, "kept", &g.word),
      CALL(kDatabase, kGives, qim_db_uri_snapshot, "a/b", "kept", &g.word),
      CALL(kDatabase, kPlain, qim_db_uri_rm, "a/b"),
      WITH_PRIV(kDatabase, kPlain, qim_db_priv_write, &piece),
      WITH_PRIV(kDatabase, kPlain, qim_db_priv_read, &piece),
      CALL(kDatabase, kPlain, qim_db_priv_delete, 1),
      WITH_PRIV(kDatabase, kPlain, qim_db_priv_recover, 0, &piece),
      WITH_PRIV(kDatabase, kPlain, qim_db_priv_recover2, 0, 0, &piece),
      CALL(kDatabase, kPlain, qim_db_priv_post, 1, 8, g.bytes),
      DO(kDatabase, kPlain, qim_db_ntf, notify(handle, qim_db_ntf)),
      CALL(kDatabase, kPlain, qim_process_msg, g.bytes, kRoom, &g.word),
      CALL(kDatabase, kPlain, qim_db_usr_group, 4),
      DO(kDatabase, kPlain, qim_usr_id_info,
         qim_usr_id_info(handle, 1, reinterpret_cast<rov_usr_t*>(g.bytes))),
      CALL(kDatabase, kPlain, qim_db_reg_logger, swallow_log, nullptr),
      CALL(kDatabase, kPlain, qim_db_debug, 0),
      DO(kDatabase, kPlain, qim_db_show_internal, show(handle, qim_db_show_internal)),
  };
}

std::vector<HandleCall> policy_session_calls() {
  return {
      CALL(kSession, kPlain, qim_link_field_get, kNode, 0x81, &g.policy_link),
      CALL(kSession, kPlain, qim_link_get, kNode, 0x81, &g.policy_link),
      CALL(kSession, kPlain, qim_link_opt_get, kNode, 0x81, &g.policy_link),
      DO(kSession, kPlain, qim_link_val, link_value(handle)),
      DO(kSession, kPlain, qim_int_node_open, open_node(handle)),
      CALL(kSession, kPlain, qim_node_read_int, kNode, nullptr, 0, &g.node),
      CALL(kSession, kPlain, qim_node_read, kNode, 0, &g.node),
      CALL(kSession, kPlain, qim_node_read_no_nedest, kNode, 0, &g.node),
      CALL(kSession, kPlain, qim_ref_get, kNode, 0, &g.word),
      CALL(kSession, kPlain, qim_node_ref_get, kNode, 0, &g.word),
      DO(kSession, kPlain, qim_ref_get_all, all_refs(handle)),
      DO(kSession, kPlain, qim_pinst_edest_lookup, find_destination(handle)),
      DO(kSession, kPlain, qim_pinst_edest_name_get, name_destination(handle)),
      CALL(kSession, kPlain, qim_pinst_edest_get_int, kNode, 0, &g.node, &g.word),
      CALL(kSession, kPlain, qim_pinst_edest_get, kNode, 0, &g.node),
      CALL(kSession, kPlain, qim_ses_pinst_get, 0, &g.node),
      DO(kSession, kPlain, qim_ses_pinst_name_get, find_instance(handle)),
      CALL(kSession, kPlain, qim_node_pinst_get, kNode, 0, &g.node),
      CALL(kSession, kPlain, qim_node_priv_set, kNode, g.bytes, 8),
      CALL(kSession, kPlain, qim_node_priv_get, kNode, 8, g.bytes),
      CALL(kSession, kPlain, qim_node_priv_ptr_set, kNode, &g),
      CALL(kSession, kPlain, qim_node_priv_ptr_get, kNode, &g.pointer),
      CALL(kSession, kPlain, qim_action_arg_get, kNode, kRoom, g.bytes),
      CALL(kSession, kPlain, qim_def_arg_get, kNode, kRoom, g.bytes),
      CALL(kSession, kPlain, qim_filter_criteria_get, kNode, kRoom, g.bytes),
      CALL(kSession, kPlain, qim_node_readall, kNode, 0, &g.node, static_cast<int32_t>(kRoom),
           g.bytes),
      CALL(kSession, kPlain, qim_ses_orig_handle, &g.word),
      CALL(kSession, kPlain, qim_ses_timeout),
      WITH_PRIV(kSession, kPlain, qim_ses_priv_write, &piece, 0),
      WITH_PRIV(kSession, kPlain, qim_ses_priv_read, &piece),
      CALL(kSession, kPlain, qim_ses_priv_delete, 1, 0),
      WITH_PRIV(kSession, kPlain, qim_ses_priv_recover, 0, &piece),
      WITH_PRIV(kSession, kPlain, qim_ses_priv_recover2, 0, 0, &piece),
      CALL(kSession, kPlain, qim_ps_datasize, g.bytes, &g.word),
      CALL(kSession, kPlain, qim_ps_data, g.bytes + 32, 8, g.bytes),
  };
}

// The cache keeps nothing, and copying a record asks the database for nothing.
std::vector<HandleCall> calls_without_database() {
  return {
      DO(kNothing, kPlain, qim_node_cache_get,
         [&] {
           qim_node_cache_entry_t* found = nullptr;
           return qim_node_cache_get(handle, kNode, &found);
         }()),
      DO(kNothing, kPlain, qim_node_cache_add,
         [&] {
           static qim_node_cache_entry_t entry = {};
           return qim_node_cache_add(handle, &entry, qim_lib_get());
         }()),
      CALL(kNothing, kPlain, qim_node_cache_unlink, kNode, nullptr),
      CALL(kNothing, kPlain, qim_node_cache_rm, kNode, qim_lib_get()),
      DO(kNothing, kPlain, qim_node_cache_replace,
         [&] {
           const qim_node_t node = policy_instance();
           return qim_node_cache_replace(handle, &node, qim_lib_get());
         }()),
      DO(kNothing, kPlain, qim_node_cp,
         [&] {
           const qim_node_t node = policy_instance();
           return qim_node_cp(handle, &node, &g.node);
         }()),
  };
}

#undef CALL
#undef DO
#undef WITH_PRIV

}  // namespace

const std::vector<HandleCall>& handle_calls() {
  static const std::vector<HandleCall> all = [] {
    std::vector<HandleCall> joined;
    for (const auto& part : {database_calls(), session_calls(), policy_database_calls(),
                             policy_session_calls(), calls_without_database()}) {
      joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
  }();
  return all;
}

}  // namespace fault
