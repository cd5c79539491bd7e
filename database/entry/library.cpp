// C entries: library, database, sessions, callbacks; logger, debug flags, what may be retried.
#include <cstdlib>
#include <cstring>

#include "database/base/error.h"
#include "database/base/logger.h"
#include "database/graph/changes.h"
#include "database/session/database.h"
#include "database/session/session.h"
#include "database/session/transact.h"

namespace {

using rov::bad_argument;
using rov::Database;
using rov::DatabasePin;
using rov::fail_text;
using rov::Library;

uint32_t check_block(const rov_parms_t* parms) {
  if (parms == nullptr) return ROV_OK;
  if (parms->version == ROV_VERSION && parms->size == sizeof(rov_parms_t)) return ROV_OK;
  return fail_text(
      ROV_ERR_INVALID,
      "the parameter block says version %u and %u bytes, this library has version %u and %zu "
      "bytes: fill it with rov_db_init_parms_init first",
      parms->version, parms->size, unsigned{ROV_VERSION}, sizeof(rov_parms_t));
}

}  // namespace

uint32_t rov_lib_init(uint32_t id, uint32_t* lib_out) {
  if (lib_out == nullptr) return bad_argument(2);
  Library* library = nullptr;
  const uint32_t status = rov::library_for(id, &library);
  if (status == ROV_OK) *lib_out = library->handle;
  return status;
}

uint32_t rov_lib_defaults(uint32_t lib, uint32_t arg) {
  Library* library = nullptr;
  const uint32_t status = rov::library_of(lib, &library);
  if (status == ROV_OK) rov::library_reset(library, arg);
  return status;
}

uint32_t rov_lib_init_locks(uint32_t lib, uint32_t wait_ms, uint32_t retry_ms, uint32_t holders,
                            uint32_t flags) {
  if (flags != 0) return bad_argument(5);
  Library* library = nullptr;
  const uint32_t status = rov::library_of(lib, &library);
  if (status != ROV_OK) return status;
  library->wait_ms.store(wait_ms);
  library->retry_ms.store(retry_ms == 0 ? 1 : retry_ms);
  library->holders.store(holders);
  return ROV_OK;
}

uint32_t rov_db_init_parms_init(rov_parms_t* parms, uint32_t version) {
  if (parms == nullptr) return bad_argument(1);
  if (version != ROV_VERSION) return bad_argument(2);
  memset(parms, 0, sizeof *parms);
  parms->version = ROV_VERSION;
  parms->size = sizeof *parms;
  return ROV_OK;
}

uint32_t rov_db_init_parms_get(uint32_t db, uint32_t version, rov_parms_t* parms) {
  if (version != ROV_VERSION) return bad_argument(2);
  if (parms == nullptr) return bad_argument(3);
  DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  *parms = pin->parms;
  parms->version = ROV_VERSION;
  parms->size = sizeof *parms;
  return ROV_OK;
}

uint32_t rov_db_init(uint32_t lib, uint32_t version, uint32_t a1, uint32_t a2, uint32_t proto,
                     uint32_t a6, const rov_parms_t* parms, uint32_t flags, uint32_t* db_out) {
  if (version != ROV_VERSION) return bad_argument(2);
  if (proto != ROV_PROTO) return bad_argument(5);
  if (db_out == nullptr) return bad_argument(9);
  Library* library = nullptr;
  uint32_t status = rov::library_of(lib, &library);
  if (status == ROV_OK) status = check_block(parms);
  if (status != ROV_OK) return status;
  rov::Database* db = nullptr;
  status = rov::database_open(library, parms, flags, &db);
  if (status != ROV_OK) return status;
  db->a1 = a1;
  db->a2 = a2;
  db->a6 = a6;
  rov::handle_publish(db->handle);
  *db_out = db->handle;
  return ROV_OK;
}

uint32_t rov_db_close(uint32_t db, uint32_t arg) {
  static_cast<void>(arg);
  return rov::database_close(db);
}

uint32_t rov_db_set_ps_sizes(uint32_t db, uint32_t max_nodes, uint32_t max_bytes) {
  DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  pin->ps_max_nodes = max_nodes;
  pin->ps_max_bytes = max_bytes;
  return ROV_OK;
}

uint32_t rov_db_reg_node_id_cnv(uint32_t db, rov_node_id_cnv_fn to, rov_node_id_cnv_fn from) {
  if (to == nullptr) return bad_argument(2);
  if (from == nullptr) return bad_argument(3);
  DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  pin->id_to_client = to;
  pin->id_from_client = from;
  return ROV_OK;
}

uint32_t rov_reg_show_output(uint32_t db, const rov_show_t* show) {
  if (show == nullptr) return bad_argument(2);
  return rov::with_database(db, [=](Database& of) { return rov::database_add_show(of, show); });
}

uint32_t rov_reg_extract_pinst(uint32_t db, rov_extract_pinst_fn extract) {
  if (extract == nullptr) return bad_argument(2);
  DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  pin->extract_pinst = extract;
  return ROV_OK;
}

uint32_t rov_reg_dbg_dsetname_print(uint32_t db, rov_dsetname_print_fn print) {
  if (print == nullptr) return bad_argument(2);
  DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  pin->print_dsetname = print;
  return ROV_OK;
}

uint32_t rov_ses_open_ro(uint32_t db, uint32_t* ses_out) {
  if (ses_out == nullptr) return bad_argument(2);
  return rov::session_open(db, false, ses_out);
}

uint32_t rov_ses_timeout(uint32_t ses) {
  return rov::session_touch(ses);
}

uint32_t rov_db_ses_exists(uint32_t db, uint32_t ses, uint32_t* exists) {
  if (exists == nullptr) return bad_argument(3);
  const DatabasePin pin(db, DatabasePin::Of::kAny);
  if (pin.status() != ROV_OK) return pin.status();
  *exists = rov::session_exists(db, ses) ? 1 : 0;
  return ROV_OK;
}

uint32_t rov_db_ses_lock_grant(uint32_t db, uint64_t user) {
  if (rov::is_stand_in(user)) {
    rov_usr_t info;
    const uint32_t status =
        rov::with_newest(db, [&](rov::View& view) { return rov::user_get(view, user, &info); });
    // Of one that is not known there is no process either.
    if (status == ROV_OK) user = uint64_t{info.client} << 32 | info.pid;
    if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
  }
  return rov::with_database(
      db, [=](Database& of) { return rov::writer_reserve(of.env, user, ROV_GRANT_SECONDS); });
}

uint32_t rov_ses_close(uint32_t ses) {
  return rov::session_close(ses);
}

uint32_t rov_ses_orig_handle(uint32_t ses, uint32_t* base_out) {
  if (base_out == nullptr) return bad_argument(2);
  return rov::session_base(ses, base_out);
}

// ---- Diagnosis ----------------------------------------------------------------------------------

namespace {

// Whether a failed call is worth another try.
enum class Retry : uint8_t {
  kNever,   // it fails again until somebody mends something
  kSame,    // the same call may succeed: what stood in its way passes
  kReopen,  // it may succeed after the client opened its session or database anew
};

struct Row {
  uint32_t status;
  Retry retry;
};

// Every status that is not here fails again however often it is tried.
constexpr Row kRows[] = {
    {ROV_ERR_BUSY, Retry::kSame},          {ROV_ERR_NO_MEM, Retry::kSame},
    {ROV_ERR_IO, Retry::kReopen},          {ROV_ERR_HANDLE, Retry::kReopen},
    {ROV_ERR_SES_EXPIRED, Retry::kReopen}, {ROV_ERR_FULL, Retry::kSame},
    {ROV_ERR_NO_ITEM, Retry::kReopen},     {ROV_ERR_SES_HELD, Retry::kReopen},
};

// After that many tries nobody should expect the next one to succeed.
constexpr uint32_t kMaxTries = 10;

Retry retry_of(uint32_t status) {
  for (const Row& row : kRows) {
    if (row.status == status) return row.retry;
  }
  return Retry::kNever;
}

}  // namespace

uint32_t rov_db_reg_logger(uint32_t db, rov_logger_fn logger, void* arg) {
  rov::DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  const uint32_t status = rov::logger_set(db, logger, arg);
  if (status != ROV_OK) return status;
  pin->parms.p.logger = logger;
  pin->parms.p.logger_arg = arg;
  return ROV_OK;
}

uint32_t rov_db_debug(uint32_t db, uint32_t flags) {
  rov::DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  const uint32_t status = rov::debug_set(db, flags);
  if (status == ROV_OK) pin->parms.p.dbg_flags = flags;
  return status;
}

uint32_t rov_err_retry_ok(uint32_t status, uint32_t tries) {
  return tries < kMaxTries && retry_of(status) == Retry::kSame ? 1 : 0;
}

uint32_t rov_cl_err_retry_ok(uint32_t status, uint32_t tries) {
  return tries < kMaxTries && retry_of(status) != Retry::kNever ? 1 : 0;
}

void rov_dbg_abort_chk(void) {
  const char* setting = getenv("ROV_DBG_ABORT");
  if ((setting != nullptr && strcmp(setting, "1") == 0) || rov::abort_wanted()) abort();
}
