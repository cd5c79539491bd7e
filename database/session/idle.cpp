// Sessions that expire: the list of those with a limit, and what is taken from them.
#include "database/session/idle.h"

#include <pthread.h>

#include "database/base/process.h"
#include "database/session/session.h"

namespace rov {
namespace {

constexpr uint32_t kTicksPerSecond = 16;
constexpr uint32_t kMaxLimit = UINT32_MAX / 2;

// While it is held, the sessions of the list are there, and so are their databases: a session
// leaves the list before its handle is given back, for which its database waits.
pthread_mutex_t g_idle_mutex = PTHREAD_MUTEX_INITIALIZER;
Session* g_first = nullptr;
std::atomic<uint32_t> g_count{0};

uint32_t now() {
  const int64_t nanos = monotonic_now(CLOCK_MONOTONIC_COARSE);
  return static_cast<uint32_t>(nanos / (kNanosPerSecond / kTicksPerSecond));
}

bool is_over(const Idle& idle) {
  if (idle.expired.load(std::memory_order_relaxed)) return true;
  return now() - idle.used.load(std::memory_order_relaxed) > idle.limit;
}

// Stops the gate of a session that has expired and takes out what is behind it. False when there is
// nothing to take: it is being closed, somebody is inside, or it was used after all.
bool strip(Session& session, Holdings* holdings) {
  Env* env = session.db->env;
  Gate& gate = slot_of(session.handle).gate;
  bool taken = false;
  pthread_mutex_lock(&env->use.lock);  // whoever stops gates holds it
  const bool stopped = env->life.load() != Life::kNoMap && gate.live.load() == session.handle;
  if (stopped) gate_hold(gate);
  if (stopped && gate.live.load() == kGateHeld) {
    gate_barrier();
    taken = gate.busy.load(std::memory_order_seq_cst) == 0 && is_over(session.idle);
    if (taken) {
      session.idle.expired.store(true, std::memory_order_relaxed);
      *holdings = take_holdings(session);
    }
    gate_resume(gate);
  }
  pthread_mutex_unlock(&env->use.lock);
  return taken;
}

}  // namespace

uint32_t idle_limit(uint32_t seconds) {
  return seconds > kMaxLimit / kTicksPerSecond ? 0 : seconds * kTicksPerSecond;
}

void idle_begin(Session* session) {
  if (session->idle.limit == 0) return;
  session->idle.used.store(now(), std::memory_order_relaxed);
  pthread_mutex_lock(&g_idle_mutex);
  session->idle.next = g_first;
  if (g_first != nullptr) g_first->idle.previous = session;
  g_first = session;
  g_count.fetch_add(1, std::memory_order_relaxed);
  pthread_mutex_unlock(&g_idle_mutex);
}

void idle_end(Session* session) {
  Idle& idle = session->idle;
  if (idle.limit == 0) return;
  pthread_mutex_lock(&g_idle_mutex);
  (idle.previous == nullptr ? g_first : idle.previous->idle.next) = idle.next;
  if (idle.next != nullptr) idle.next->idle.previous = idle.previous;
  g_count.fetch_sub(1, std::memory_order_relaxed);
  pthread_mutex_unlock(&g_idle_mutex);
}

bool idle_renew(Idle& idle) {
  if (is_over(idle)) {
    idle.expired.store(true, std::memory_order_relaxed);
    return false;
  }
  idle.used.store(now(), std::memory_order_relaxed);
  return true;
}

bool idle_any() {
  return g_count.load(std::memory_order_relaxed) != 0;
}

void idle_expire() {
  if (!idle_any()) return;
  pthread_mutex_lock(&g_idle_mutex);
  for (Session* session = g_first; session != nullptr; session = session->idle.next) {
    if (session->idle.stripped || !is_over(session->idle)) continue;
    Holdings holdings;
    if (!strip(*session, &holdings)) continue;
    session->idle.stripped = true;
    give_back(session->db, holdings);
  }
  pthread_mutex_unlock(&g_idle_mutex);
}

bool idle_has_expired(uint32_t handle) {
  bool expired = false;
  pthread_mutex_lock(&g_idle_mutex);
  for (Session* session = g_first; session != nullptr; session = session->idle.next) {
    if (session->handle == handle) expired = is_over(session->idle);
  }
  pthread_mutex_unlock(&g_idle_mutex);
  return expired;
}

void idle_forget_all() {
  pthread_mutex_init(&g_idle_mutex, nullptr);
  g_first = nullptr;
  g_count.store(0, std::memory_order_relaxed);
}

}  // namespace rov
