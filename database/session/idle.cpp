// Sessions that expire: the list of those with a limit, and what is taken from them.
#include "database/session/idle.h"

#include <pthread.h>

#include <cstdlib>

#include "database/base/process.h"
#include "database/session/session.h"
#include "database/store/store.h"
#include "rov.h"

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

bool is_older(const std::atomic<uint32_t>& since, uint32_t limit) {
  return limit != 0 && now() - since.load(std::memory_order_relaxed) > limit;
}

// Why it is over, so far as any thread can tell. ROV_ERR_SES_HELD: only if the file has grown, too.
uint32_t may_be_over(const Idle& idle) {
  const uint32_t expired = idle.expired.load(std::memory_order_relaxed);
  if (expired != 0) return expired;
  if (is_older(idle.used, idle.limit)) return ROV_ERR_SES_EXPIRED;
  return is_older(idle.began, idle.hold) ? uint32_t{ROV_ERR_SES_HELD} : uint32_t{ROV_OK};
}

bool makes_grow(const Snapshot* snapshot) {
  return snapshot != nullptr && snapshot->revision != 0 && snapshot_makes_grow(snapshot);
}

// The same for sure. Inside the gate, or while it is stopped.
uint32_t is_over(const Session& session) {
  const uint32_t status = may_be_over(session.idle);
  if (status != ROV_ERR_SES_HELD || session.idle.expired.load(std::memory_order_relaxed) != 0) {
    return status;
  }
  const bool grows = makes_grow(session.view.snapshot) || makes_grow(session.base.snapshot);
  return grows ? status : uint32_t{ROV_OK};
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
    const bool busy = gate.busy.load(std::memory_order_seq_cst) != 0;
    const uint32_t status = busy ? uint32_t{ROV_OK} : is_over(session);
    taken = status != ROV_OK;
    if (taken) {
      session.idle.expired.store(status, std::memory_order_relaxed);
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

uint32_t hold_limit() {
  const char* text = getenv("ROV_READ_LIMIT");
  if (text == nullptr || *text < '0' || *text > '9') return 0;
  const unsigned long long seconds = strtoull(text, nullptr, 10);
  return seconds > UINT32_MAX ? 0 : idle_limit(static_cast<uint32_t>(seconds));
}

void idle_set(Idle& idle, uint32_t limit, uint32_t hold) {
  idle.limit = limit;
  idle.hold = hold;
  idle.watched = limit != 0 || hold != 0;
}

void idle_begin(Session* session) {
  if (!session->idle.watched) return;
  session->idle.used.store(now(), std::memory_order_relaxed);
  idle_restart(session->idle);
  pthread_mutex_lock(&g_idle_mutex);
  session->idle.next = g_first;
  if (g_first != nullptr) g_first->idle.previous = session;
  g_first = session;
  g_count.fetch_add(1, std::memory_order_relaxed);
  pthread_mutex_unlock(&g_idle_mutex);
}

void idle_end(Session* session) {
  Idle& idle = session->idle;
  if (!idle.watched) return;
  pthread_mutex_lock(&g_idle_mutex);
  (idle.previous == nullptr ? g_first : idle.previous->idle.next) = idle.next;
  if (idle.next != nullptr) idle.next->idle.previous = idle.previous;
  g_count.fetch_sub(1, std::memory_order_relaxed);
  pthread_mutex_unlock(&g_idle_mutex);
}

uint32_t idle_renew(Session& session) {
  const uint32_t status = is_over(session);
  if (status != ROV_OK) {
    session.idle.expired.store(status, std::memory_order_relaxed);
    return status;
  }
  session.idle.used.store(now(), std::memory_order_relaxed);
  return ROV_OK;
}

void idle_restart(Idle& idle) {
  idle.began.store(now(), std::memory_order_relaxed);
}

bool idle_any() {
  return g_count.load(std::memory_order_relaxed) != 0;
}

void idle_expire() {
  if (!idle_any()) return;
  pthread_mutex_lock(&g_idle_mutex);
  for (Session* session = g_first; session != nullptr; session = session->idle.next) {
    if (session->idle.stripped || may_be_over(session->idle) == ROV_OK) continue;
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
    if (session->handle != handle) continue;
    const Idle& idle = session->idle;
    expired = idle.expired.load(std::memory_order_relaxed) != 0 || is_older(idle.used, idle.limit);
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
