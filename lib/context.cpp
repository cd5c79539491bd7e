// Which context a call works with: the process's, or the calling thread's own.
//
// The library takes no lock, so threads that must not disturb one another get a context each. The
// first thread to ask for one switches the whole process over for good: a thread that went on with
// the process's context by mistake would disturb the others unseen, and so it is aborted.
#include "lib/context.h"

#include <pthread.h>
#include <stdlib.h>

#include "lib/export.h"
#include "rov.h"

namespace qim {

qim_lib_ctx_t process_ctx;

namespace {

// Set once the key exists and never reset: the process has gone over to per-thread contexts for
// good.
uint32_t tls_enabled;
pthread_key_t tls_key;
pthread_once_t tls_once = PTHREAD_ONCE_INIT;

// Threads look at the switch while another one throws it. Who sees it on must see the key, too: an
// older value of it could be another library's key.
bool per_thread() {
  return __atomic_load_n(&tls_enabled, __ATOMIC_ACQUIRE) != 0;
}

// The key has no destructor: contexts are never freed, for a client may hand one to calls in other
// threads, which outlive its own. A key that could not be created is not tried again: pthread_once
// has run.
void create_key() {
  // GCOVR_EXCL_BR_START: as it runs once, nobody went over to per-thread contexts before
  if (!per_thread() && pthread_key_create(&tls_key, nullptr) == 0) {
    // GCOVR_EXCL_BR_STOP
    __atomic_store_n(&tls_enabled, 1, __ATOMIC_RELEASE);
  }
}

}  // namespace
}  // namespace qim

QIM_API qim_lib_ctx_t* qim_lib_get(void) {
  if (!qim::per_thread()) return &qim::process_ctx;
  auto* ctx = static_cast<qim_lib_ctx_t*>(pthread_getspecific(qim::tls_key));
  if (ctx == nullptr) {
    abort();  // a thread without a context of its own is a programming error once any thread has
              // one
  }
  return ctx;
}

QIM_API uint32_t qim_lib_tls_init_int(void) {
  if (pthread_once(&qim::tls_once, qim::create_key) != 0 || !qim::per_thread()) {
    return QIM_ERR_THREAD;
  }
  auto* copy = static_cast<qim_lib_ctx_t*>(malloc(sizeof(qim_lib_ctx_t)));
  if (copy == nullptr) return QIM_ERR_NO_MEM;
  // All of it is copied, the count of starts too: a thread can work with what the process started.
  *copy = qim::process_ctx;
  if (pthread_setspecific(qim::tls_key, copy) != 0) {
    return QIM_ERR_THREAD;  // the block stays allocated, as every per-thread context does
  }
  return ROV_OK;
}

QIM_API uint32_t qim_lib_tls_init(uint32_t) {
  return qim_lib_tls_init_int();
}
