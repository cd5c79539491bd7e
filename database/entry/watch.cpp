// C entries: notifications of changes, posted private data, users.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/session/client_data.h"
#include "database/session/transact.h"
#include "database/session/watch.h"
#include "database/store/wake.h"

namespace {

using rov::Change;
using rov::DatabasePin;
using rov::fail;
using rov::Note;
using rov::View;
using rov::Watch;

constexpr uint32_t kNoNumber = UINT32_MAX;  // behind every change of a commit

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

class Lock {
 public:
  explicit Lock(Watch& watch) : mutex_(watch.mutex) { pthread_mutex_lock(&mutex_); }
  ~Lock() { pthread_mutex_unlock(&mutex_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

uint64_t from_words(const uint32_t (&words)[2]) {
  return uint64_t{words[0]} << 32 | words[1];
}

void to_words(uint64_t value, uint32_t (&words)[2]) {
  words[0] = static_cast<uint32_t>(value >> 32);
  words[1] = static_cast<uint32_t>(value);
}

// ---- What comes next ----

// Posts are for the client's other processes; everybody sees the rest.
bool is_wanted(const Watch& watch, const Change& change, uint32_t client) {
  if (change.kind == ROV_CHANGE_GAP) return true;
  if (change.kind >= 32 || (watch.kinds >> change.kind & 1) == 0) return false;
  if (change.kind != ROV_CHANGE_PRIV_POST) return true;
  return change.user >> 32 == client && change.user != rov::user_number(client);
}

void go_on_behind(Watch& watch, uint64_t revision, uint32_t number) {
  watch.revision = revision;
  watch.number = number;
}

// A client that fell behind what the log keeps learns that once, and goes on from the newest
// commit.
uint32_t next_change(View& view, Watch& watch, uint32_t client, Change* change) {
  uint64_t pruned = 0;
  uint32_t status = rov::changes_pruned(view, &pruned);
  if (status != ROV_OK) return status;
  if (watch.revision < pruned) {
    *change = {};
    change->kind = ROV_CHANGE_GAP;
    change->revision = view.snapshot->revision;
    go_on_behind(watch, change->revision, kNoNumber);
    return ROV_OK;
  }
  do {
    status = rov::change_after(view, watch.revision, watch.number, change);
    if (status != ROV_OK) return status;
    go_on_behind(watch, change->revision, change->number);
  } while (!is_wanted(watch, *change, client));
  return ROV_OK;
}

void write_message(const Change& change, rov_change_t* message) {
  memset(message, 0, sizeof *message);
  message->magic = ROV_MSG_MAGIC;
  message->len = sizeof *message;
  to_words(change.revision, message->revision);
  message->kind = change.kind;
  message->field = change.field;
  message->node = rov::id_of(change.node);
  message->dset_len = change.dset_len;
  memcpy(message->dset, change.dset, change.dset_len);
  to_words(change.user, message->user);
}

// The descriptor stays readable while there may be more. It is drained when there was none, and
// then the log looked at once more: a commit before the draining is seen now, and one after it
// makes the descriptor readable again.
uint32_t poll_change(uint32_t db, Watch& watch, uint32_t client, Change* change) {
  const auto look = [&](View& view) { return next_change(view, watch, client, change); };
  uint32_t status = rov::with_newest(db, look);
  if (status != ROV_ERR_NO_ITEM) return status;
  rov::wake_drain(watch.fd);
  status = rov::with_newest(db, look);
  return status == ROV_ERR_NO_ITEM ? fail(ROV_ERR_NO_VALUE, Note::kNoChange) : status;
}

// ---- Registering ----

uint32_t start(const DatabasePin& db, Watch& watch, rov_ntf_t* ntf) {
  const int fd = rov::wake_open(db->env->path);
  if (fd < 0) {
    return rov::fail_text(ROV_ERR_IO, "cannot follow the changes of %s: %s", db->env->path,
                          strerror(errno));
  }
  // The descriptor first: what is committed from here on makes it readable.
  const uint64_t newest = rov::store_revision(db->env);
  const uint64_t from = from_words(ntf->revision);
  if (from > newest) {
    close(fd);
    return bad_argument(2);
  }
  rov::watch_end(watch);
  watch.fd = fd;
  watch.kinds = ntf->kinds;
  go_on_behind(watch, from == 0 ? newest : from, kNoNumber);
  ntf->fd = fd;
  to_words(watch.revision, ntf->revision);
  return ROV_OK;
}

uint32_t post(View& view, const rov::DataOwner& owner, uint32_t group, uint32_t key,
              rov::Bytes data) {
  uint32_t status = rov::client_data_put(view, owner, key, data);
  Change change;
  change.kind = ROV_CHANGE_PRIV_POST;
  change.field = key;
  if (status == ROV_OK) status = rov::change_log(view, change);
  return status == ROV_OK ? rov::changes_seal(view, {owner.client, group}) : status;
}

}  // namespace

void rov::watch_end(Watch& watch) {
  if (watch.fd >= 0) close(watch.fd);
  watch.fd = -1;
  watch.kinds = 0;
}

uint32_t rov_db_ntf(uint32_t db, rov_ntf_t* ntf) {
  if (ntf == nullptr) return bad_argument(2);
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  const Lock lock(pin->watch);
  if (ntf->kinds != 0) return start(pin, pin->watch, ntf);
  rov::watch_end(pin->watch);
  ntf->fd = -1;
  return ROV_OK;
}

uint32_t rov_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len) {
  if (msg == nullptr) return bad_argument(2);
  if (len == nullptr) return bad_argument(4);
  *len = 0;
  if (room < sizeof(rov_change_t)) {
    return fail(ROV_ERR_LENGTH, Note::kBuffer, room, sizeof(rov_change_t));
  }
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  const Lock lock(pin->watch);
  if (pin->watch.fd < 0) {
    return rov::fail_text(ROV_ERR_INVALID,
                          "database 0x%08x has no registration: call rov_db_ntf first", db);
  }
  Change change;
  const uint32_t status = poll_change(db, pin->watch, pin->client, &change);
  if (status != ROV_OK) return status;
  rov_change_t message;
  write_message(change, &message);
  memcpy(msg, &message, sizeof message);
  *len = sizeof message;
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
      rov::with_newest(db, [&](View& view) { return rov::user_get(view, user, info); });
  if (status != ROV_ERR_NO_ITEM) return status;
  return rov::fail_text(status, "user 0x%016llx has committed nothing here",
                        static_cast<unsigned long long>(user));
}

uint32_t rov_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data) {
  if (key == 0) return bad_argument(2);
  if (data == nullptr && len != 0) return bad_argument(4);
  if (len > rov::kMaxPrivate) {
    return rov::fail_text(ROV_ERR_LENGTH, "private data have at most %u bytes, not %u",
                          rov::kMaxPrivate, len);
  }
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  const rov::DataOwner owner = {pin->client, 0, 0};
  const rov::Waking waking(pin->env->path);
  const uint32_t status = rov::with_writer(db, [&](View& view) {
    return post(view, owner, pin->group.load(), key, {static_cast<const uint8_t*>(data), len});
  });
  if (status == ROV_OK) waking.tell(rov::store_revision(pin->env));
  return status;
}
