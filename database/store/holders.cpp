// Who reads and who writes a database.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

struct Visitor {
  rov_holder_fn visit;
  void* arg;
};

// A line of the engine's table: process, thread, commit. The commit of a slot that nobody reads
// through is "-", and the heading has no numbers.
void tell_of_reader(const char* line, void* visitor) {
  rov_holder_t holder = {ROV_HOLDER_READER, 0, 0, 0, 0};
  if (sscanf(line, "%" SCNu32 " %*x %" SCNu64, &holder.pid, &holder.revision) != 2) return;
  holder.pid = process_of_number(holder.pid);
  const auto* to = static_cast<const Visitor*>(visitor);
  to->visit(&holder, to->arg);
}

// The process that has the right to write, 0 when nobody has. A process's own lock does not show.
uint32_t writing_process(Env* env) {
  const uint32_t other = record_lock_holder(env->lock_file, F_WRLCK, 0);
  if (other != 0) return other;
  pthread_mutex_lock(&env->use.lock);
  const bool own = env->use.writer;
  pthread_mutex_unlock(&env->use.lock);
  return own ? static_cast<uint32_t>(getpid()) : 0;
}

}  // namespace

uint32_t store_holders(Env* env, rov_holder_fn visit, void* arg) {
  Visitor visitor = {visit, arg};
  const uint32_t status = store_readers(env, tell_of_reader, &visitor);
  if (status != ROV_OK) return status;
  const uint32_t writer = writing_process(env);
  if (writer == 0) return ROV_OK;
  const rov_holder_t holder = {ROV_HOLDER_WRITER, writer, 0, 0, 0};
  visit(&holder, arg);
  return ROV_OK;
}

}  // namespace rov
