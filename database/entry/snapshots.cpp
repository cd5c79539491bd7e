// C entries: snapshots that are kept.
#include <cstring>

#include "database/base/error.h"
#include "database/handle/handle.h"
#include "database/session/database.h"
#include "rov_edit.h"

namespace {

using rov::bad_argument;
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
