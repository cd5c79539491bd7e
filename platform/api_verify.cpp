// C entry: verifying a database's file.
#include "platform/changes.h"
#include "platform/database.h"
#include "platform/error.h"
#include "rov_edit.h"

uint32_t rov_edit_verify(uint32_t db, rov_verify_t* report) {
  if (report == nullptr) return rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 2);
  const rov::DatabasePin pin(db, rov::DatabasePin::Of::kAny);
  if (pin.status() != ROV_OK) return pin.status();
  rov::VerifyReport found;
  const rov::WriterWait wait = {pin->library->wait_ms.load(), pin->library->retry_ms.load(),
                                nullptr, rov::user_number(pin->client)};
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
