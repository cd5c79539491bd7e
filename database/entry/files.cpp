// C entries: the file of a database as a whole.
#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/session/database.h"
#include "rov_edit.h"

namespace {

uint32_t bad_argument(uint32_t number) {
  return rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, number);
}

}  // namespace

uint32_t rov_edit_verify(uint32_t db, rov_verify_t* report) {
  if (report == nullptr) return bad_argument(2);
  const rov::DatabasePin pin(db, rov::DatabasePin::Of::kAny);
  if (pin.status() != ROV_OK) return pin.status();
  const rov::WriterWait wait = {pin->library->wait_ms.load(), pin->library->retry_ms.load(),
                                nullptr, rov::user_number(pin->client)};
  rov::VerifyReport found;
  const uint32_t status = rov::store_verify(pin->env, wait, &found);
  if (status != ROV_OK) return status;
  *report = {};
  report->revision = found.revision;
  report->bytes = found.bytes;
  report->pages = found.pages;
  report->free_pages = found.free_pages;
  report->page_size = found.page_size;
  report->nodes = found.records[static_cast<uint32_t>(rov::Table::kNodes)];
  for (const uint64_t records : found.records) report->records += records;
  return ROV_OK;
}

uint32_t rov_edit_compact(const char* path, uint64_t* before, uint64_t* after) {
  if (path == nullptr) return bad_argument(1);
  uint64_t sizes[2] = {};
  const uint32_t status = rov::store_compact(path, &sizes[0], &sizes[1]);
  if (status != ROV_OK) return status;
  if (before != nullptr) *before = sizes[0];
  if (after != nullptr) *after = sizes[1];
  return ROV_OK;
}

uint32_t rov_crc32c(uint32_t crc, const void* data, uint32_t len) {
  return len == 0 ? crc : crc32c(crc, data, len);
}
