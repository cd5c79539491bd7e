// C entries: notifications of changes, posted private data, users.
#include "database/session/database.h"

#include <cstring>

#include "database/base/error.h"
#include "database/entry/check.h"
#include "database/graph/changes.h"
#include "database/session/transact.h"

using rov::bad_argument;
using rov::DatabasePin;
using rov::fail;
using rov::Note;

uint32_t rov_db_ntf(uint32_t db, rov_ntf_t* ntf) {
  if (ntf == nullptr) return bad_argument(2);
  const DatabasePin pin(db);
  return pin.status() == ROV_OK ? rov::watch_register(pin, ntf) : pin.status();
}

uint32_t rov_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len) {
  if (msg == nullptr) return bad_argument(2);
  if (len == nullptr) return bad_argument(4);
  *len = 0;
  rov_change_t change;
  if (room < sizeof change) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, sizeof change);
  const DatabasePin pin(db);
  const uint32_t status = pin.status() == ROV_OK ? rov::watch_next(pin, &change) : pin.status();
  if (status != ROV_OK) return status;
  memcpy(msg, &change, sizeof change);
  *len = sizeof change;
  return ROV_OK;
}

uint32_t rov_msg_is_rov(const void* msg) {
  if (msg == nullptr) return 0;
  uint32_t head[2];
  memcpy(head, msg, sizeof head);
  return head[0] == ROV_MSG_MAGIC && head[1] == sizeof(rov_change_t) ? 1 : 0;
}

uint32_t rov_db_usr_group(uint32_t db, uint32_t group) {
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  pin->group.store(group);
  return ROV_OK;
}

uint32_t rov_usr_id_info(uint32_t db, uint64_t user, rov_usr_t* info) {
  if (info == nullptr) return bad_argument(3);
  const uint32_t status =
      rov::with_newest(db, [=](rov::View& view) { return rov::user_get(view, user, info); });
  if (status != ROV_ERR_NO_ITEM) return status;
  return rov::fail_text(status, "user 0x%016llx has committed nothing here",
                        static_cast<unsigned long long>(user));
}

uint32_t rov_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data) {
  if (key == 0) return bad_argument(2);
  if (data == nullptr && len != 0) return bad_argument(4);
  const uint32_t status = rov::check_private_length(len);
  if (status != ROV_OK) return status;
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  return rov::watch_post(pin, key, {static_cast<const uint8_t*>(data), len});
}
