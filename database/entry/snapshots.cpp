// C entries: snapshots that are kept.
#include <cstring>

#include "database/base/error.h"
#include "database/handle/handle.h"
#include "database/session/database.h"
#include "rov_edit.h"

namespace {

using rov::CopyName;
using rov::DatabasePin;
using rov::fail;
using rov::Note;

// How often a snapshot may be removed between being found and being opened.
constexpr int kAttempts = 3;

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

uint32_t open_snapshot(uint32_t db, const CopyName& name, uint32_t* handle) {
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  rov::Database* snapshot = nullptr;
  uint32_t status = ROV_ERR_OPEN;
  for (int attempt = 0; attempt < kAttempts && status == ROV_ERR_OPEN; ++attempt) {
    rov::CopyPlace place;
    status = rov::copies_get(pin->env, name, &place);
    if (status != ROV_OK) return status;
    status = rov::database_open_snapshot(*pin.get(), place.path, &snapshot);
  }
  if (status != ROV_OK) return status;
  *handle = snapshot->handle;
  rov::handle_publish(snapshot->handle);
  return ROV_OK;
}

}  // namespace

uint32_t rov_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot) {
  if (name == nullptr) return bad_argument(2);
  if (snapshot == nullptr) return bad_argument(3);
  CopyName copy;
  const uint32_t status = rov::copy_name(nullptr, name, &copy);
  return status == ROV_OK ? open_snapshot(db, copy, snapshot) : status;
}

uint32_t rov_db_uri_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot) {
  if (uri == nullptr) return bad_argument(2);
  if (name == nullptr) return bad_argument(3);
  if (snapshot == nullptr) return bad_argument(4);
  CopyName copy;
  const uint32_t status = rov::copy_name(uri, name, &copy);
  return status == ROV_OK ? open_snapshot(db, copy, snapshot) : status;
}

uint32_t rov_db_uri_rm(uint32_t db, const char* uri) {
  if (uri == nullptr) return bad_argument(2);
  CopyName copy;
  const uint32_t status = rov::copy_name(uri, nullptr, &copy);
  if (status != ROV_OK) return status;
  const DatabasePin pin(db);
  return pin.status() == ROV_OK ? rov::copies_remove(pin->env, copy) : pin.status();
}

uint32_t rov_snapshot_next(uint32_t db, const char* after, uint32_t room, char* path) {
  if (path == nullptr) return bad_argument(4);
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  char found[rov::kCopyNameRoom];
  const uint32_t status = rov::copies_next(pin->env, after == nullptr ? "" : after, found);
  if (status != ROV_OK) return status;
  const auto needed = static_cast<uint32_t>(strlen(found) + 1);
  if (room < needed) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, needed);
  memcpy(path, found, needed);
  return ROV_OK;
}

uint32_t rov_snapshot_close(uint32_t snapshot) {
  return rov::database_close_snapshot(snapshot);
}
