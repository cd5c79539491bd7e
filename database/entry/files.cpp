// C entries: the file of a database as a whole, and snapshots that are kept.
#include <cstring>
#include <ctime>
#include <new>

#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/graph/nodes.h"
#include "database/handle/handle.h"
#include "database/session/database.h"
#include "database/session/session.h"
#include "database/session/transact.h"
#include "rov_edit.h"

using rov::bad_argument;

namespace {

void tell(const rov::VerifyReport& found, rov_verify_t* report) {
  *report = {};
  report->revision = found.revision;
  report->bytes = found.bytes;
  report->pages = found.pages;
  report->free_pages = found.free_pages;
  report->page_size = found.page_size;
  report->nodes = found.records[static_cast<uint32_t>(rov::Table::kNodes)];
  for (const uint64_t records : found.records) report->records += records;
  report->sum = found.sums[static_cast<uint32_t>(rov::Table::kNodes)] +
                found.sums[static_cast<uint32_t>(rov::Table::kPrivate)];
}

}  // namespace

uint32_t rov_edit_verify(uint32_t db, rov_verify_t* report) {
  if (report == nullptr) return bad_argument(2);
  const rov::DatabasePin pin(db, rov::DatabasePin::Of::kAny);
  if (pin.status() != ROV_OK) return pin.status();
  rov::VerifyReport found;
  const uint32_t status = rov::database_verify(*pin.get(), &found);
  if (status == ROV_OK) tell(found, report);
  return status;
}

uint32_t rov_ses_verify(uint32_t ses, rov_verify_t* report) {
  if (report == nullptr) return bad_argument(2);
  rov::VerifyReport found;
  const uint32_t status = rov::session_verify(ses, &found);
  if (status == ROV_OK) tell(found, report);
  return status;
}

uint32_t rov_edit_node_sum(uint32_t ses, rov_node_id_t id, uint64_t* sum) {
  if (sum == nullptr) return bad_argument(3);
  return rov::with_view(
      ses, [=](rov::View& view) { return rov::node_sum(view, rov::number_of(id), sum); });
}

namespace {

struct Holders {
  static constexpr uint32_t kMost = 1024;  // more than there are slots for readers
  rov_holder_t of[kMost];
  uint32_t count = 0;
};

void keep_holder(const rov_holder_t* holder, void* all) {
  auto* holders = static_cast<Holders*>(all);
  if (holders->count < Holders::kMost) holders->of[holders->count++] = *holder;
}

// How long ago the first commit was made after the one that is read, as far as the log has it.
void add_age(rov::View& view, rov_holder_t* holder) {
  rov::Change next;
  if (holder->what != ROV_HOLDER_READER) return;
  if (rov::change_after(view, holder->revision, UINT32_MAX, &next) != ROV_OK) return;
  const auto now = static_cast<uint32_t>(time(nullptr));
  holder->seconds = now > next.time ? now - next.time : 0;
}

}  // namespace

uint32_t rov_edit_holders(uint32_t db, rov_holder_fn visit, void* arg) {
  if (visit == nullptr) return bad_argument(2);
  auto* all = new (std::nothrow) Holders;
  if (all == nullptr) return rov::fail(ROV_ERR_NO_MEM, rov::Note::kNoMemory, sizeof(Holders));
  uint32_t status = rov::with_database(
      db, [=](rov::Database& of) { return rov::store_holders(of.env, keep_holder, all); });
  if (status == ROV_OK) {
    // Without a session for it no age is known.
    static_cast<void>(rov::with_newest(db, [=](rov::View& view) {
      for (uint32_t i = 0; i < all->count; ++i) add_age(view, &all->of[i]);
      return uint32_t{ROV_OK};
    }));
  }
  for (uint32_t i = 0; i < all->count && status == ROV_OK; ++i) visit(&all->of[i], arg);
  delete all;
  return status;
}

uint32_t rov_edit_backup(uint32_t db, const char* path, uint32_t flags, rov_verify_t* report) {
  if (path == nullptr || *path == '\0') return bad_argument(2);
  if ((flags & ~uint32_t{ROV_BACKUP_REPLACE}) != 0) return bad_argument(3);
  if (report == nullptr) return bad_argument(4);
  const rov::DatabasePin pin(db, rov::DatabasePin::Of::kAny);
  if (pin.status() != ROV_OK) return pin.status();
  rov::VerifyReport found;
  const uint32_t status =
      rov::store_backup(pin->env, path, (flags & ROV_BACKUP_REPLACE) != 0, &found);
  if (status == ROV_OK) tell(found, report);
  return status;
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

// ---- Snapshots ----------------------------------------------------------------------------------

namespace {

using rov::CopyName;
using rov::Database;
using rov::fail;
using rov::Note;

uint32_t open_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot) {
  CopyName copy;
  const uint32_t status = rov::copy_name(uri, name, &copy);
  if (status != ROV_OK) return status;
  return rov::with_database(
      db, [&](Database& of) { return rov::database_open_snapshot(of, copy, snapshot); });
}

}  // namespace

uint32_t rov_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot) {
  if (name == nullptr) return bad_argument(2);
  if (snapshot == nullptr) return bad_argument(3);
  return open_snapshot(db, nullptr, name, snapshot);
}

uint32_t rov_db_uri_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot) {
  if (uri == nullptr) return bad_argument(2);
  if (name == nullptr) return bad_argument(3);
  if (snapshot == nullptr) return bad_argument(4);
  return open_snapshot(db, uri, name, snapshot);
}

uint32_t rov_db_uri_rm(uint32_t db, const char* uri) {
  if (uri == nullptr) return bad_argument(2);
  CopyName copy;
  const uint32_t status = rov::copy_name(uri, nullptr, &copy);
  if (status != ROV_OK) return status;
  return rov::with_database(db, [&](Database& of) { return rov::copies_remove(of.env, copy); });
}

uint32_t rov_snapshot_next(uint32_t db, const char* after, uint32_t room, char* path) {
  if (path == nullptr) return bad_argument(4);
  char found[rov::kCopyNameRoom];
  const uint32_t status = rov::with_database(db, [&](Database& of) {
    return rov::copies_next(of.env, after == nullptr ? "" : after, found);
  });
  if (status != ROV_OK) return status;
  const auto needed = static_cast<uint32_t>(strlen(found) + 1);
  if (room < needed) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, needed);
  memcpy(path, found, needed);
  return ROV_OK;
}

uint32_t rov_snapshot_close(uint32_t snapshot) {
  return rov::database_close_snapshot(snapshot);
}
