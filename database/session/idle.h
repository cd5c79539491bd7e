// Sessions that expire: when nobody uses them for as long as their library's limit says, or when the file
// grows for the commit that they read, for longer than ROV_READ_LIMIT says.
//
// A session that has expired keeps its handle, and nothing else: its snapshots go, so that the
// pages that they held can be used again, and a write session's edits and right to write go. That
// happens when one of the process's threads next opens a session, renews one, commits or waits for
// another writer; no thread and no timer waits for it. Of a session that makes the file grow it happens at
// its own next call, too.
//
// Sessions without a limit pay one comparison a call for this.
#pragma once

#include <atomic>
#include <cstdint>

namespace rov {

struct Session;

// A session's part in it. Times are ticks of 1/16 second, which go round in eight years.
struct Idle {
  bool watched = false;  // there is one of these limits:
  uint32_t limit = 0;    // of not being used; 0: none
  uint32_t hold = 0;     // of making the file grow; 0: none
  std::atomic<uint32_t> used{0};
  std::atomic<uint32_t> began{0};    // to read the commit that it reads
  std::atomic<uint32_t> expired{0};  // with that status
  // Under the list's lock:
  bool stripped = false;
  Session* next = nullptr;
  Session* previous = nullptr;
};

// The limit that stands for that many seconds; 0 also where it is too long to matter.
[[nodiscard]] uint32_t idle_limit(uint32_t seconds);

// What ROV_READ_LIMIT says, 0 where it is absent or no number.
[[nodiscard]] uint32_t hold_limit();

// The limits of a session that is being opened.
void idle_set(Idle& idle, uint32_t limit, uint32_t hold);
// Begins and ends the watch over a session. Nothing happens where it has no limit.
void idle_begin(Session* session);
void idle_end(Session* session);

// A use of the session, by who is inside its gate: ROV_OK, or the status with which it has expired.
[[nodiscard]] uint32_t idle_renew(Session& session);
// The session reads another commit than before.
void idle_restart(Idle& idle);

// Whether sessions with a limit are open in this process.
bool idle_any();
// Takes from the sessions that have expired what they hold. The caller is outside every gate.
void idle_expire();
// Whether that session has expired. For any thread.
bool idle_has_expired(uint32_t handle);

// In a forked child: no session of the parent is there.
void idle_forget_all();

}  // namespace rov
