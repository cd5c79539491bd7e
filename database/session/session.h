// Sessions: what their handles stand for, and how a call gets at one.
#pragma once

#include "database/graph/view.h"
#include "database/handle/handle.h"
#include "database/session/database.h"
#include "database/session/idle.h"

namespace rov {

struct Session {
  uint32_t handle = 0;
  Database* db = nullptr;
  bool write = false;  // it is a write session,
  bool turn = false;   // and has the right to write
  Idle idle;
  uint32_t broken =
      0;      // the status with which an edit failed half-way; such a session can't commit
  View view;  // the session's own snapshot, and its edits
  View base;  // the newest commit; its snapshot is NULL until it is needed
};

// What a session holds of its database.
struct Holdings {
  Snapshot* own = nullptr;
  Snapshot* base = nullptr;
  Edits* edits = nullptr;
  bool turn = false;
};

// Leaves the session without them. Nobody is inside its gate.
Holdings take_holdings(Session& session);
void give_back(Database* db, const Holdings& holdings);

enum class Expired : bool { kRefused, kAllowed };

// A session in use by a call. While one is there, the thread is inside the session's gate: it must
// not open or close sessions, commit, or wait for anybody.
class Access {
 public:
  // `handle` is a session's or its base's.
  explicit Access(uint32_t handle) : slot_(&slot_of(handle)) {
    if (kind_of(handle) == Kind::kSession && gate_enter(slot_->gate, handle)) [[likely]] {
      session_ = static_cast<Session*>(slot_->object);
      view_ = &session_->view;
      status_ = session_->idle.watched ? renew(handle) : uint32_t{ROV_OK};
      return;
    }
    status_ = enter_slowly(handle);
  }
  // kAllowed: lets into a session too that has expired and holds nothing any more.
  Access(uint32_t handle, Expired expired) : slot_(&slot_of(handle)), expired_(expired) {
    status_ = enter_slowly(handle);
  }
  ~Access() {
    if (status_ == ROV_OK) gate_leave(slot_->gate);
  }
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

  // ROV_OK, or why there is no access, noted.
  uint32_t status() const { return status_; }
  bool failed() const { return status_ != ROV_OK; }
  Session& session() { return *session_; }
  // NOLINTNEXTLINE(clang-analyzer-core.*): asked for only where there is access
  View& view() { return *view_; }

 private:
  // These end inside the gate on success, outside otherwise. The last two begin inside; the last
  // one is false when what was in the way is gone, and entering is to be tried again.
  [[nodiscard]] uint32_t enter_slowly(uint32_t handle);
  [[nodiscard]] uint32_t renew(uint32_t handle);
  bool enter_base(uint32_t handle, uint32_t* status);

  Slot* slot_;
  Session* session_ = nullptr;
  View* view_ = nullptr;
  Expired expired_ = Expired::kRefused;
  uint32_t status_;
};

// Runs `work` on what a session sees; its status is the answer. For the calls of which reading is
// made: a session without a limit is let in without an Access, which would live in memory.
template <class Work>
[[nodiscard]] inline uint32_t with_view(uint32_t handle, Work work) {
  Slot& slot = slot_of(handle);
  if (kind_of(handle) == Kind::kSession && gate_enter(slot.gate, handle)) [[likely]] {
    auto* session = static_cast<Session*>(slot.object);
    if (!session->idle.watched) [[likely]] {
      const uint32_t status = work(session->view);
      gate_leave(slot.gate);
      return status;
    }
    gate_leave(slot.gate);
  }
  Access access(handle);
  return access.failed() ? access.status() : work(access.view());
}

// Opens a session on the newest commit, for reading or for writing.
[[nodiscard]] uint32_t session_open(uint32_t db, bool write, uint32_t* handle);
// Closes a session; a write session's edits are dropped.
[[nodiscard]] uint32_t session_close(uint32_t handle);
// Whether the session, or the one whose base it is, was opened through that database or one of its
// snapshots, and can be used. For any thread.
bool session_exists(uint32_t db, uint32_t handle);
// Commits a write session and closes it in any case. The new commit's number goes to *revision when
// it is not NULL.
[[nodiscard]] uint32_t session_commit(uint32_t handle, uint64_t* revision);
// Verifies the database's file while nobody writes. ROV_ERR_BUSY, noted, when the session does not
// read its newest commit.
[[nodiscard]] uint32_t session_verify(uint32_t handle, VerifyReport* report);
// A use of the session, for its idle limit.
[[nodiscard]] uint32_t session_touch(uint32_t handle);
// The handle of the session's base.
[[nodiscard]] uint32_t session_base(uint32_t handle, uint32_t* base);
// Ends a write session without writing.
[[nodiscard]] uint32_t session_abandon(uint32_t handle);

// Closes a session that another thread may be using. False when somebody else is closing it.
bool session_close_from_outside(uint32_t handle);

// Makes a read session see what its own call committed as `revision` on top of what it saw before:
// moves it there when nobody else committed in between. False when somebody did, and it stays where
// it is.
bool session_follow(uint32_t handle, uint64_t revision);

}  // namespace rov
