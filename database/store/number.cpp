// The number by which the engine knows this process.
//
// The engine knows processes by their numbers alone: each holds a lock on the byte of its number in
// lock.mdb, and owns the slots of the table of readers that have the number. Two processes of one
// number, in two namespaces, can't both do that: the second one could not read, and would take away the
// slots of the first when it closes the database. So the second one is given a number that no process has.
// The engine has no call for that. What it keeps of an environment begins with words that are known,
// and are looked at before one of them is changed; with an engine that has others there, the second process
// is refused as ever.
#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <cstring>

#include "database/store/engine.h"

namespace rov {
namespace {

// How the engine's environment begins (0.9).
struct EnvironmentHead {
  int data_file;
  int lock_file;
  int meta_file;
  uint32_t flags;
  uint32_t page_size;
  uint32_t system_page_size;
  uint32_t most_readers;
  int slots_to_close;  // the slots of the table that closing looks at
  uint32_t tables;
  uint32_t most_tables;
  pid_t process;
};

constexpr uint32_t kOwnTables = 2;  // of the engine

EnvironmentHead head_of(const MDB_env* engine) {
  EnvironmentHead head;
  memcpy(&head, engine, sizeof head);
  return head;
}

void set_head(MDB_env* engine, const EnvironmentHead& head) {
  memcpy(static_cast<void*>(engine), &head, sizeof head);
}

bool is_known(const EnvironmentHead& head) {
  return head.data_file == -1 && head.lock_file == -1 && head.meta_file == -1 &&
         head.most_readers == kMaxReaders && head.most_tables == kTables + kOwnTables &&
         head.process == getpid();
}

bool is_taken(int lock_file, off_t number) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = number;
  lock.l_len = 1;
  return fcntl(lock_file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

void number_engine(Env* env) {
  const off_t own = getpid();
  off_t number = own;
  for (off_t round = 1; round < kRounds && is_taken(env->presence, number); ++round) {
    number = own + round * kNumbers;
  }
  EnvironmentHead head = head_of(env->engine);
  if (number == own || !is_known(head)) return;
  head.process = static_cast<pid_t>(number);
  set_head(env->engine, head);
  env->renumbered = true;
}

void close_engine(Env* env) {
  if (env->renumbered) {
    // It would give back the slots of the system's number, which are another process's. The own ones
    // went with their transactions.
    EnvironmentHead head = head_of(env->engine);
    head.slots_to_close = 0;
    set_head(env->engine, head);
  }
  mdb_env_close(env->engine);
}

uint32_t process_of_number(uint32_t number) {
  return number % static_cast<uint32_t>(kNumbers);
}

}  // namespace rov
