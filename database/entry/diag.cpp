// C entries: logger, debug flags, what may be retried, the abort check.
#include <cstdlib>
#include <cstring>

#include "database/base/error.h"
#include "database/base/logger.h"
#include "database/session/database.h"

namespace {

// Whether a failed call is worth another try.
enum class Retry : uint8_t {
  never,   // it fails again until somebody mends something
  same,    // the same call may succeed: what stood in its way passes
  reopen,  // it may succeed after the client opened its session or database anew
};

struct Row {
  uint32_t status;
  Retry retry;
};

// Every status that is not here fails again however often it is tried.
constexpr Row kRows[] = {
    {ROV_ERR_BUSY, Retry::same},          {ROV_ERR_NO_MEM, Retry::same},
    {ROV_ERR_IO, Retry::reopen},          {ROV_ERR_HANDLE, Retry::reopen},
    {ROV_ERR_SES_EXPIRED, Retry::reopen}, {ROV_ERR_FULL, Retry::same},
    {ROV_ERR_NO_ITEM, Retry::reopen},
};

// After that many tries nobody should expect the next one to succeed.
constexpr uint32_t kMaxTries = 10;

Retry retry_of(uint32_t status) {
  for (const Row& row : kRows) {
    if (row.status == status) return row.retry;
  }
  return Retry::never;
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
  return tries < kMaxTries && retry_of(status) == Retry::same ? 1 : 0;
}

uint32_t rov_cl_err_retry_ok(uint32_t status, uint32_t tries) {
  return tries < kMaxTries && retry_of(status) != Retry::never ? 1 : 0;
}

void rov_dbg_abort_chk(void) {
  const char* setting = getenv("ROV_DBG_ABORT");
  if ((setting != nullptr && strcmp(setting, "1") == 0) || rov::abort_wanted()) abort();
}
