// Following a database's changes: registrations, what comes next, and posts to who follows.
#include "database/session/database.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "database/base/error.h"
#include "database/graph/changes.h"
#include "database/session/client_data.h"
#include "database/session/transact.h"
#include "database/store/files.h"
#include "database/store/wake.h"

namespace rov {
namespace {

constexpr uint32_t kNoNumber = UINT32_MAX;  // behind every change of a commit

class Lock {
 public:
  explicit Lock(Watch& watch) : mutex_(watch.mutex) { pthread_mutex_lock(&mutex_); }
  ~Lock() { pthread_mutex_unlock(&mutex_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

void to_words(uint64_t value, uint32_t (&words)[2]) {
  words[0] = static_cast<uint32_t>(value >> 32);
  words[1] = static_cast<uint32_t>(value);
}

// ---- What comes next ----

// Posts are for the client's other processes; everybody sees the rest.
uint32_t is_wanted(View& view, const Watch& watch, const Change& change, uint32_t client,
                   bool* wanted) {
  *wanted =
      change.kind == ROV_CHANGE_GAP || (change.kind < 32 && (watch.kinds >> change.kind & 1) != 0);
  if (!*wanted || change.kind != ROV_CHANGE_PRIV_POST) return ROV_OK;
  bool own = false;
  const uint32_t status = is_own_user(view, change.user, &own);
  *wanted = change.user >> 32 == client && !own;
  return status;
}

void go_on_behind(Watch& watch, uint64_t revision, uint32_t number) {
  watch.revision = revision;
  watch.number = number;
}

// A client that fell behind what the log keeps learns that once, and goes on from the newest
// commit.
uint32_t next_change(View& view, Watch& watch, uint32_t client, Change* change) {
  uint64_t pruned = 0;
  uint32_t status = changes_pruned(view, &pruned);
  if (status != ROV_OK) return status;
  if (watch.revision < pruned) {
    *change = {};
    change->kind = ROV_CHANGE_GAP;
    change->revision = view.snapshot->revision;
    go_on_behind(watch, change->revision, kNoNumber);
    return ROV_OK;
  }
  bool wanted = false;
  while (!wanted) {
    status = change_after(view, watch.revision, watch.number, change);
    if (status == ROV_OK) status = is_wanted(view, watch, *change, client, &wanted);
    if (status != ROV_OK) return status;
    go_on_behind(watch, change->revision, change->number);
  }
  return ROV_OK;
}

void write_message(const Change& change, rov_change_t* message) {
  memset(message, 0, sizeof *message);
  message->magic = ROV_MSG_MAGIC;
  message->len = sizeof *message;
  to_words(change.revision, message->revision);
  message->kind = change.kind;
  message->field = change.field;
  message->node = id_of(change.node);
  message->dset_len = change.dset_len;
  memcpy(message->dset, change.dset, change.dset_len);
  to_words(change.user, message->user);
}

// The descriptor stays readable while there may be more. It is drained when there was none, and
// then the log looked at once more: a commit before the draining is seen now, and one after it
// makes the descriptor readable again.
uint32_t poll_change(const DatabasePin& db, Change* change) {
  Watch& watch = db->watch;
  const uint32_t client = db->client;
  const auto look = [&](View& view) { return next_change(view, watch, client, change); };
  uint32_t status = with_newest(db->handle, look);
  if (status != ROV_ERR_NO_ITEM) return status;
  wake_drain(watch.fd, db->env->directory);
  status = with_newest(db->handle, look);
  return status == ROV_ERR_NO_ITEM ? fail(ROV_ERR_NO_VALUE, Note::kNoChange) : status;
}

// ---- Registering ----

uint32_t start(const DatabasePin& db, Watch& watch, rov_ntf_t* ntf) {
  // Nobody tells of changes to a copy, for there are none.
  const bool is_copy = db->env->copy >= 0;
  const int fd = is_copy ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : wake_open(db->env->directory);
  if (fd < 0) {
    return fail_text(ROV_ERR_IO, "cannot follow the changes of %s: %s", db->env->path,
                     file_error_text(errno));
  }
  // The descriptor first: what is committed from here on makes it readable.
  const uint64_t newest = store_revision(db->env);
  const uint64_t from = uint64_t{ntf->revision[0]} << 32 | ntf->revision[1];
  if (from > newest) {
    close(fd);
    return bad_argument(2);
  }
  watch_end(watch);
  watch.fd = fd;
  watch.kinds = ntf->kinds;
  go_on_behind(watch, from == 0 ? newest : from, kNoNumber);
  ntf->fd = is_copy ? -1 : fd;
  to_words(watch.revision, ntf->revision);
  return ROV_OK;
}

uint32_t post(View& view, const DataOwner& owner, uint32_t group, uint32_t key, Bytes data) {
  uint32_t status = client_data_put(view, owner, key, data);
  Change change;
  change.kind = ROV_CHANGE_PRIV_POST;
  change.field = key;
  if (status == ROV_OK) status = change_log(view, change);
  return status == ROV_OK ? changes_seal(view, {owner.client, group}) : status;
}

}  // namespace

void watch_end(Watch& watch) {
  if (watch.fd >= 0) close(watch.fd);
  watch.fd = -1;
  watch.kinds = 0;
}

uint32_t watch_register(const DatabasePin& db, rov_ntf_t* ntf) {
  const Lock lock(db->watch);
  if (ntf->kinds != 0) return start(db, db->watch, ntf);
  watch_end(db->watch);
  ntf->fd = -1;
  return ROV_OK;
}

uint32_t watch_next(const DatabasePin& db, rov_change_t* message) {
  const Lock lock(db->watch);
  if (db->watch.fd < 0) {
    return fail_text(ROV_ERR_INVALID, "database 0x%08x has no registration: call rov_db_ntf first",
                     db->handle);
  }
  Change change;
  const uint32_t status = poll_change(db, &change);
  if (status == ROV_OK) write_message(change, message);
  return status;
}

uint32_t watch_post(const DatabasePin& db, uint32_t key, Bytes data) {
  const DataOwner owner = {db->client, 0, 0};
  return with_writer(db->handle,
                     [&](View& view) { return post(view, owner, db->group.load(), key, data); });
}

}  // namespace rov
