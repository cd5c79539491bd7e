// Sessions that expire when nobody uses them for as long as their library's limit says.
//
// A session that has expired keeps its handle, and nothing else: its snapshots go, so that the
// pages that they held can be used again, and a write session's edits and right to write go. That
// happens when one of the process's threads next opens a session, renews one, commits or waits for
// another writer; no thread and no timer waits for it.
//
// Sessions without a limit pay one comparison a call for this.
#ifndef DATABASE_SESSION_IDLE_H
#define DATABASE_SESSION_IDLE_H

#include <atomic>
#include <cstdint>

namespace rov {

struct Session;

// A session's part in it. Times are ticks of 1/16 second, which go round in eight years.
struct Idle {
  uint32_t limit = 0;  // 0: it never expires
  std::atomic<uint32_t> used{0};
  std::atomic<bool> expired{false};
  // Under the list's lock:
  bool stripped = false;
  Session* next = nullptr;
  Session* previous = nullptr;
};

// The limit that stands for that many seconds; 0 also where it is too long to matter.
uint32_t idle_limit(uint32_t seconds);

// Begins and ends the watch over a session. Nothing happens where it has no limit.
void idle_begin(Session* session);
void idle_end(Session* session);

// A use of the session, by who is inside its gate. False: it has expired.
bool idle_renew(Idle& idle);

// Whether sessions with a limit are open in this process.
bool idle_any();
// Takes from the sessions that have expired what they hold. The caller is outside every gate.
void idle_expire();
// Whether that session has expired. For any thread.
bool idle_has_expired(uint32_t handle);

// In a forked child: no session of the parent is there.
void idle_forget_all();

}  // namespace rov

#endif
