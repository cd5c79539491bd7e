// Start-up and shut-down: the database is opened, told of the library's callbacks, and asked for
// its parameters, in this order; the failure of a step ends the start where it is.
//
// What a failed start has done is not undone. Its client holds the database's handle and knows
// better than the library whether to close it or to try again; qim.h says what stays.
#include <string.h>

#include "dbg/show.h"
#include "ids/field_sets.h"
#include "lib/context.h"
#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace qim {
namespace {

// The open flags in which two initialisations of one context must agree.
constexpr uint32_t kFlagsThatMustAgree = 0x40000063;
constexpr uint32_t kParmsVersion = 1;
constexpr uint32_t kDbInitVersion = 1;
constexpr uint32_t kDbInitProto = 4;
constexpr uint32_t kMaxVdc = 63;
constexpr const char* kInit = "qim_lib_init";

uint32_t refuse(uint32_t status, int32_t line, qim_lib_ctx_t* ctx) {
  report(status, kInit, line, ctx);
  return status;
}

// An initialised context takes a second initialisation only from the same client, in the same
// manner, and when either call allows it.
uint32_t check_again(uint32_t id, uint32_t flags, qim_lib_ctx_t* ctx) {
  if (ctx->init_id == 0) return ROV_OK;
  if (ctx->init_id != id) return refuse(QIM_ERR_INVALID, 189, ctx);
  if (((ctx->init_flags ^ flags) & kFlagsThatMustAgree) != 0) {
    return refuse(QIM_ERR_INVALID, 193, ctx);
  }
  if (((flags | ctx->init_flags) & QIM_INIT_AGAIN) == 0) return refuse(QIM_ERR_INVALID, 196, ctx);
  return ROV_OK;
}

// A context serves one database library. The client may name it, and once it is known only that one
// will do, for the handles that the context was given are its own.
uint32_t take_rov_lib(uint32_t rov_lib, uint32_t id, qim_lib_ctx_t* ctx) {
  if (rov_lib != 0) {
    if (ctx->rov_lib == 0) {
      ctx->rov_lib = rov_lib;
    } else if (ctx->rov_lib != rov_lib) {
      return refuse(QIM_ERR_INVALID, 210, ctx);
    }
    return ROV_OK;
  }
  if (ctx->rov_lib != 0) return ROV_OK;
  const uint32_t status = rov_lib_init(id, &ctx->rov_lib);
  return status == ROV_OK ? uint32_t{ROV_OK} : refuse(status, 203, ctx);
}

// A callback that the database refuses costs diagnostics, not the start-up. Returns the last
// registration's status.
uint32_t register_callbacks(uint32_t db, qim_lib_ctx_t* ctx) {
  const auto check = [ctx](uint32_t status, int32_t line) {
    if (status != ROV_OK) qim_dbg_errors(QIM_ERR_INTERNAL, kInit, line, ctx);
    return status;
  };
  check(rov_reg_show_output(db, &qim_dbg_tlva_handler), 233);
  check(rov_reg_show_output(db, &qim_dbg_dsetname), 236);
  check(rov_reg_extract_pinst(db, qim_extract_pinst_from_sub), 239);
  return check(rov_reg_dbg_dsetname_print(db, qim_dbg_dsetname_print), 242);
}

// A failure leaves the context as far as it got: a VDC out of range with the parameters that
// carried it.
uint32_t refresh(uint32_t db, uint32_t id, uint32_t arg, uint32_t flags, qim_lib_ctx_t* ctx) {
  rov_parms_t block;
  memset(&block, 0, sizeof(block));
  const uint32_t status = rov_db_init_parms_get(db, kParmsVersion, &block);
  if (status != ROV_OK) return refuse(status, 247, ctx);
  // This replaces the logger and the debug flags, too, by those of the handle that was opened last.
  ctx->db_parms = block.p;
  ctx->init_id = id;
  ctx->init_arg = arg;
  ctx->init_flags = flags;
  return ctx->db_parms.vdc > kMaxVdc ? static_cast<uint32_t>(QIM_ERR_VDC_RANGE) : 0;
}

// Opens the database and registers the identifier converters, without which nothing works.
uint32_t open_db(uint32_t a1, uint32_t a2, uint32_t id, rov_parms_t* parms, uint32_t a6,
                 uint32_t flags, uint32_t* db_out, qim_lib_ctx_t* ctx) {
  rov_parms_t block;
  if (parms == nullptr) {
    memset(&block, 0, sizeof(block));
    qim_db_init_parms_init(&block,
                           kParmsVersion);  // a block that could not be filled is all defaults
    parms = &block;
  }
  parms->p.init_id = id;
  uint32_t status =
      rov_db_init(ctx->rov_lib, kDbInitVersion, a1, a2, kDbInitProto, a6, parms, flags, db_out);
  if (status != ROV_OK) return refuse(status, 222, ctx);
  status = rov_db_reg_node_id_cnv(*db_out, rov_node_id_to_qim, rov_node_id_from_qim);
  return status == ROV_OK ? uint32_t{ROV_OK} : refuse(status, 230, ctx);
}

}  // namespace
}  // namespace qim

QIM_API uint32_t qim_lib_defaults(uint32_t id, uint32_t arg) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  if (ctx->rov_lib == 0) {
    const uint32_t status = rov_lib_init(id, &ctx->rov_lib);
    if (status != ROV_OK) {
      qim::report(status, "qim_lib_defaults", 135, ctx);
      return status;
    }
  }
  return rov_lib_defaults(ctx->rov_lib, arg);
}

QIM_API uint32_t qim_lib_init(uint32_t a1, uint32_t a2, uint32_t id, uint32_t arg,
                              rov_parms_t* parms, uint32_t a6, uint32_t flags, uint32_t rov_lib,
                              uint32_t* db_out) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *db_out = 0;
  uint32_t status = qim::check_again(id, flags, ctx);
  if (status != ROV_OK) return status;
  status = qim::take_rov_lib(rov_lib, id, ctx);
  if (status != ROV_OK) return status;
  status = qim::open_db(a1, a2, id, parms, a6, flags, db_out, ctx);
  if (status != ROV_OK) return status;
  status = qim::register_callbacks(*db_out, ctx);
  if (ctx->init_id == 0 || (ctx->init_flags & QIM_INIT_AGAIN) != 0) {
    status = qim::refresh(*db_out, id, arg, flags, ctx);
    if (status != ROV_OK) return status;
  }
  qim::convert_field_sets();
  ctx->use_count++;
  return status;  // without a refresh the last registration's: the caller learns of it although the
                  // use counts
}

QIM_API uint32_t qim_lib_close(uint32_t db, uint32_t arg) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  if (ctx->use_count < 1) return QIM_ERR_NOT_INIT;
  // The start is taken back first, so that a database that refuses to close leaves no context that
  // can never be emptied.
  if (--ctx->use_count == 0) {
    memset(ctx, 0, sizeof(*ctx));  // the database library is not told
  }
  return rov_db_close(db, arg);
}
