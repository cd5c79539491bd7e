// Calls of the engine that follow pages of its file.
//
// The engine trusts its file, and what it takes for granted it asserts. A file that is damaged while
// it is open breaks an assertion, which would end the process. Here it ends the call: the engine's
// functions are left by a jump, the result is kEngineDead, and the environment is dead from then on.
//
// What the call was about is left as it was at that moment. A reading transaction and its cursors
// can be ended as ever. A writing one must not be touched again: the engine may have entered cursors
// in it that lay on the part of the stack that is gone.
#pragma once

#include "database/store/engine.h"

namespace rov {

// Not an error of the engine: the environment is dead, dead_env says why.
constexpr int kEngineDead = -30700;

// Where a thread's call of the engine is left for.
struct Guard {
  void* place[5];  // as __builtin_setjmp wants it
};
extern constinit thread_local Guard* t_guard;

// Takes the engine's assertions over, from its creation on.
void guard_engine(Env* env);

// Runs `call`, which calls the engine and has nothing to be destroyed; the answer is its own, or
// kEngineDead.
template <class Call>
[[gnu::noinline]] int guarded(const Env* env, Call call) {
  if (env->life.load(std::memory_order_relaxed) != Life::kAlive) [[unlikely]]
    return kEngineDead;
  Guard guard;
  // The compiler's own function: it stores three words, and needs no call.
  if (__builtin_setjmp(guard.place) != 0) {
    t_guard = nullptr;
    return kEngineDead;
  }
  t_guard = &guard;
  const int error = call();
  t_guard = nullptr;
  return error;
}

// A thread's robust locks, as the system knows them: it gives them back when the thread ends. The
// engine's lock for writers is one. The lock taken last, NULL when there is none, or the system
// keeps no such list.
pthread_mutex_t* newest_robust_lock();

}  // namespace rov
