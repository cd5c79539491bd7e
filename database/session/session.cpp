// Sessions: opening, entering, committing and closing them, and moving one to a newer commit.
#include "database/session/session.h"

#include <sched.h>

#include <new>

#include "database/base/error.h"
#include "database/graph/changes.h"

namespace rov {
namespace {

// What stands in the way of reading a session's base.
enum class Obstacle : uint8_t { kNone, kNoSnapshot, kMapResized };

uint32_t bad_handle(uint32_t handle) {
  return fail(ROV_ERR_HANDLE, Note::kHandle, handle);
}

// The view of the newest commit. Where the session itself is on it and has no edits, that is the
// session's own view, with what it remembers. *status counts where nothing is in the way.
Obstacle newest_view(Session& session, View** view, uint32_t* status) {
  View& own = session.view;
  *status = ROV_OK;
  if (own.edits == nullptr && own.snapshot->revision == store_revision(session.db->env)) {
    *view = &own;
    return Obstacle::kNone;
  }
  if (session.base.snapshot == nullptr) return Obstacle::kNoSnapshot;
  *view = &session.base;
  const Attempt renewed = snapshot_renew(session.base.snapshot);
  *status = renewed.status;
  return renewed.ending == Ending::kMapResized ? Obstacle::kMapResized : Obstacle::kNone;
}

// Gives the session of that slot a base. The caller is outside its gate.
uint32_t add_base(Slot& slot, uint32_t live, Env* env) {
  Snapshot* snapshot = nullptr;
  const uint32_t status = snapshot_open(env, &slot.gate, Reading::kAlone, &snapshot);
  if (status != ROV_OK) return status;
  bool used = false;
  if (gate_enter(slot.gate, live)) {
    auto* session = static_cast<Session*>(slot.object);
    used = session->base.snapshot == nullptr;
    if (used) view_reset(session->base, snapshot, nullptr, session->view.client);
    gate_leave(slot.gate);
  }
  if (!used) snapshot_close(snapshot);
  return ROV_OK;
}

// Takes a session apart that nobody can enter any more.
void dispose(Session* session) {
  idle_end(session);
  // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
  give_back(session->db, take_holdings(*session));
  // The slot last: while it is taken, the database waits.
  handle_release(session->handle);
  delete session;
}

// Counts one writer more, within the limit of the library.
bool count_writer(Library* library) {
  const uint32_t holders = library->holders.load();
  const uint32_t before = library->writers.fetch_add(1);
  if (holders == 0 || before < holders) return true;
  library->writers.fetch_sub(1);
  return false;
}

uint32_t begin_writing(Database* db) {
  Library* library = db->library;
  if (!count_writer(library)) {
    return fail_text(
        ROV_ERR_BUSY,
        "the limit of %u write sessions of this library handle is reached: end one first",
        library->holders.load());
  }
  // Whom this one waits for may be a session that nobody uses any more.
  const WriterWait wait = {library->wait_ms.load(), library->retry_ms.load(),
                           idle_any() ? idle_expire : nullptr, user_number(db->client)};
  const uint32_t status = writer_lock(db->env, wait);
  if (status != ROV_OK) library->writers.fetch_sub(1);
  return status;
}

uint32_t fill_session(Session* session, Database* db) {
  uint32_t status = handle_reserve(Kind::kSession, db->handle, session, &session->handle);
  if (status != ROV_OK) return status;
  Edits* edits = nullptr;
  if (session->write) {
    edits = new (std::nothrow) Edits;
    if (edits == nullptr) status = fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Edits));
  }
  Snapshot* snapshot = nullptr;
  if (status == ROV_OK) {
    const Reading reading = session->write ? Reading::kToWrite : Reading::kAlone;
    status = snapshot_open(db->env, &slot_of(session->handle).gate, reading, &snapshot);
  }
  if (status != ROV_OK) {
    delete edits;
    handle_release(session->handle);
    return status;
  }
  view_reset(session->view, snapshot, edits, db->client);
  return ROV_OK;
}

uint32_t begin_session(Session* session, Database* db) {
  session->db = db;
  // Nobody commits beside a writer, so nothing grows for it.
  idle_set(session->idle, db->library->idle.load(), session->write ? 0 : db->hold);
  uint32_t status = session->write ? begin_writing(db) : uint32_t{ROV_OK};
  if (status != ROV_OK) return status;
  session->turn = session->write;
  status = fill_session(session, db);
  if (status != ROV_OK) give_back(db, take_holdings(*session));
  return status;
}

// Ends the gate's use and gives the session to the caller alone.
uint32_t take_session(uint32_t handle, Session** session) {
  if (kind_of(handle) != Kind::kSession || !handle_retire(handle)) return bad_handle(handle);
  *session = static_cast<Session*>(slot_of(handle).object);
  return ROV_OK;
}

uint32_t take_writer(uint32_t handle, Session** session) {
  if (kind_of(handle) == Kind::kSession) {
    Access access(handle, Expired::kAllowed);
    if (access.failed()) return access.status();
    if (!access.session().write) return fail(ROV_ERR_READ_ONLY, Note::kReadOnly, handle);
  }
  return take_session(handle, session);
}

// Pointer values on nodes that are gone go, too.
void drop_pointers(Env* env, const Overlay& edits) {
  if (!edits.erased(Table::kNodes)) return;
  for (const Overlay::Edit* edit = edits.first(Table::kNodes); edit != nullptr;
       edit = edit->next[0]) {
    if (edit->value == nullptr) env->pointers.drop_node(load_be32(edit->key().data));
  }
}

}  // namespace

bool Access::enter_base(uint32_t handle, uint32_t* status) {
  const Obstacle obstacle = newest_view(*session_, &view_, status);
  if (obstacle == Obstacle::kNone && *status == ROV_OK) return true;
  Env* env = session_->db->env;
  gate_leave(slot_->gate);
  if (obstacle == Obstacle::kNone) return true;
  *status = obstacle == Obstacle::kMapResized
                ? store_adopt_map(env)
                : add_base(*slot_, as_kind(handle, Kind::kSession), env);
  return *status != ROV_OK;
}

uint32_t Access::renew(uint32_t handle) {
  const uint32_t status = idle_renew(*session_);
  if (status == ROV_OK || expired_ == Expired::kAllowed) return ROV_OK;
  gate_leave(slot_->gate);
  idle_expire();
  const Note note = status == ROV_ERR_SES_HELD ? Note::kHeld : Note::kExpired;
  return fail(status, note, as_kind(handle, Kind::kSession));
}

uint32_t Access::enter_slowly(uint32_t handle) {
  const bool base = kind_of(handle) == Kind::kBase;
  if (!base && kind_of(handle) != Kind::kSession) return bad_handle(handle);
  const uint32_t live = as_kind(handle, Kind::kSession);
  for (;;) {
    if (gate_enter(slot_->gate, live)) {
      session_ = static_cast<Session*>(slot_->object);
      view_ = &session_->view;
      uint32_t status = session_->idle.watched ? renew(handle) : uint32_t{ROV_OK};
      if (status != ROV_OK || !base || enter_base(handle, &status)) return status;
      continue;
    }
    const uint32_t found = slot_->gate.live.load(std::memory_order_acquire);
    if (found == live) continue;  // stopped a moment ago, and let in again by now
    if (found != kGateHeld) return bad_handle(handle);
    if (slot_->gate.stuck.load(std::memory_order_acquire) != 0) {
      return fail_text(
          ROV_ERR_IO,
          "the memory map behind session 0x%08x was lost: close the database in this process "
          "and open it again",
          handle);
    }
    sched_yield();
  }
}

Holdings take_holdings(Session& session) {
  const Holdings holdings = {session.view.snapshot, session.base.snapshot, session.view.edits,
                             session.turn};
  session.view.snapshot = nullptr;
  session.base.snapshot = nullptr;
  session.view.edits = nullptr;
  session.turn = false;
  return holdings;
}

void give_back(Database* db, const Holdings& holdings) {
  if (holdings.own != nullptr) snapshot_close(holdings.own);
  if (holdings.base != nullptr) snapshot_close(holdings.base);
  delete holdings.edits;
  if (!holdings.turn) return;
  writer_unlock(db->env);
  db->library->writers.fetch_sub(1);
}

uint32_t session_open(uint32_t db_handle, bool write, uint32_t* handle) {
  DatabasePin db(db_handle, DatabasePin::Of::kAny);
  if (db.status() != ROV_OK) return db.status();
  if (write && kind_of(db_handle) == Kind::kSnapshot) {
    return fail_text(ROV_ERR_READ_ONLY,
                     "0x%08x is a snapshot, which never changes: write to the database itself",
                     db_handle);
  }
  idle_expire();
  auto* session = new (std::nothrow) Session;
  if (session == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Session));
  session->write = write;
  const uint32_t status = begin_session(session, db.get());
  if (status != ROV_OK) {
    delete session;
    return status;
  }
  *handle = session->handle;
  idle_begin(session);
  handle_publish(session->handle);
  return ROV_OK;
}

uint32_t session_close(uint32_t handle) {
  Session* session = nullptr;
  const uint32_t status = take_session(handle, &session);
  if (status == ROV_OK) dispose(session);
  return status;
}

uint32_t session_abandon(uint32_t handle) {
  Session* session = nullptr;
  const uint32_t status = take_writer(handle, &session);
  if (status == ROV_OK) dispose(session);
  return status;
}

uint32_t session_commit(uint32_t handle, uint64_t* revision) {
  Session* session = nullptr;
  uint32_t status = take_writer(handle, &session);
  if (status != ROV_OK) return status;
  // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
  Env* env = session->db->env;
  if (session->view.snapshot == nullptr) {
    dispose(session);
    return fail(ROV_ERR_SES_EXPIRED, Note::kExpired, handle);
  }
  const uint64_t base = session->view.snapshot->revision;
  // The snapshot first: the pages that it keeps can be used again, and its gate is no concern of a
  // growing map.
  snapshot_close(session->view.snapshot);
  session->view.snapshot = nullptr;
  if (session->broken != 0) {
    status =
        fail_text(session->broken,
                  "the write session failed before, half-way through an edit (%s): begin it again; "
                  "nothing was changed",
                  rov_status_name(session->broken));
  } else {
    status = store_commit(env, *session->view.edits, base, revision);
  }
  if (status == ROV_OK) drop_pointers(env, *session->view.edits);
  dispose(session);
  idle_expire();
  return status;
}

uint32_t session_verify(uint32_t handle, VerifyReport* report) {
  uint32_t database = 0;
  uint64_t revision = 0;
  {
    Access access(handle);
    if (access.failed()) return access.status();
    database = access.session().db->handle;
    revision = access.view().snapshot->revision;
  }
  const DatabasePin pin(database, DatabasePin::Of::kAny);
  uint32_t status = pin.status();
  if (status == ROV_OK) status = database_verify(*pin.get(), report);
  if (status != ROV_OK || report->revision == revision) return status;
  return fail_text(
      ROV_ERR_BUSY, "the session reads commit %llu, and commit %llu was made since: open it anew",
      static_cast<unsigned long long>(revision), static_cast<unsigned long long>(report->revision));
}

uint32_t session_touch(uint32_t handle) {
  uint32_t status = ROV_OK;
  {
    const Access access(handle);
    status = access.status();
  }
  idle_expire();
  return status;
}

uint32_t session_base(uint32_t handle, uint32_t* base) {
  if (kind_of(handle) != Kind::kSession && kind_of(handle) != Kind::kBase) {
    return bad_handle(handle);
  }
  const Access access(as_kind(handle, Kind::kSession));
  if (access.failed()) return access.status();
  *base = as_kind(handle, Kind::kBase);
  return ROV_OK;
}

bool session_exists(uint32_t db, uint32_t handle) {
  const Kind kind = kind_of(handle);
  if (kind != Kind::kSession && kind != Kind::kBase) return false;
  const uint32_t live = as_kind(handle, Kind::kSession);
  const uint32_t owner = handle_owner(live);
  if (owner == 0) return false;
  if (owner != db && (kind_of(owner) != Kind::kSnapshot || handle_owner(owner) != db)) return false;
  return !idle_has_expired(live);
}

bool session_close_from_outside(uint32_t handle) {
  if (!handle_retire(handle)) return false;
  Slot& slot = slot_of(handle);
  if (kind_of(handle) != Kind::kSession) return false;
  gate_barrier();
  gate_drain(slot.gate);
  dispose(static_cast<Session*>(slot.object));
  return true;
}

bool session_follow(uint32_t handle, uint64_t revision) {
  if (kind_of(handle) != Kind::kSession) return false;
  Slot& slot = slot_of(handle);
  Env* env = nullptr;
  {
    Access access(handle);
    if (access.failed()) return false;
    View& view = access.view();
    if (view.edits != nullptr || view.snapshot->revision + 1 != revision) return false;
    env = access.session().db->env;
  }
  Snapshot* fresh = nullptr;
  if (snapshot_open(env, &slot.gate, Reading::kAlone, &fresh) != ROV_OK) return false;
  bool moved = false;
  if (fresh->revision == revision) {
    Access access(handle);
    if (!access.failed()) {
      View& view = access.view();
      Snapshot* old = view.snapshot;
      view_reset(view, fresh, nullptr, view.client);
      fresh = old;
      idle_restart(access.session().idle);
      moved = true;
    }
  }
  snapshot_close(fresh);
  return moved;
}

}  // namespace rov
