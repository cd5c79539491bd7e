// The size of the memory map.
//
// The map begins small and grows by steps, for a 32-bit process has little room. While it changes,
// no snapshot of this process may be read; their gates are stopped for that moment.
#include <lmdb.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>

#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr bool kWide = sizeof(size_t) > 4;
// A 32-bit process has about 3 GiB for everything; of the map about 2.5 GiB open at all.
constexpr size_t kDefaultLimit = kWide ? static_cast<size_t>(uint64_t{1} << 40) : size_t{1} << 30;
constexpr size_t kLargestStep = kWide ? size_t{1} << 30 : size_t{128} << 20;

// Bytes as "1048576", "512K", "64M" or "2G"; 0 when the text is none of these.
size_t parse_size(const char* text) {
  if (*text < '0' || *text > '9') return 0;
  char* end = nullptr;
  errno = 0;
  const uint64_t number = strtoull(text, &end, 10);
  unsigned shift = 0;
  if (*end == 'K') shift = 10;
  if (*end == 'M') shift = 20;
  if (*end == 'G') shift = 30;
  if (shift != 0) ++end;
  const uint64_t bytes = number << shift;
  if (errno != 0 || *end != '\0' || (bytes >> shift) != number) return 0;
  return bytes > SIZE_MAX ? SIZE_MAX : static_cast<size_t>(bytes);
}

// Whether the process has room for a map of that size. The engine gives the old map up before it
// asks for the new one, and would be left with none.
bool has_room(size_t size) {
  void* probe = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (probe == MAP_FAILED) return false;
  munmap(probe, size);
  return true;
}

}  // namespace

size_t map_limit_setting() {
  const char* text = getenv("ROV_MAP_MAX");
  const size_t size = text == nullptr ? 0 : parse_size(text);
  return size == 0 ? kDefaultLimit : size;
}

size_t map_size_for(size_t current, size_t needed) {
  size_t size = current < kMapStart ? kMapStart : current;
  while (size < needed && size < kLargestStep) size *= 2;
  if (size >= needed) return size;
  const size_t steps = (needed - size - 1) / kLargestStep + 1;
  return steps > (SIZE_MAX - size) / kLargestStep ? SIZE_MAX : size + steps * kLargestStep;
}

size_t map_size(const Env* env) {
  MDB_envinfo info;
  mdb_env_info(env->engine, &info);
  return info.me_mapsize;
}

size_t map_used(const Env* env) {
  MDB_envinfo info;
  MDB_stat stat;
  mdb_env_info(env->engine, &info);
  mdb_env_stat(env->engine, &stat);
  return (info.me_last_pgno + 1) * stat.ms_psize;
}

void hold_snapshots(Env* env) {
  for (Snapshot* s = env->use.open; s != nullptr; s = s->next) gate_hold(*s->gate);
  gate_barrier();
  for (Snapshot* s = env->use.open; s != nullptr; s = s->next) gate_drain(*s->gate);
}

void resume_snapshots(Env* env) {
  for (Snapshot* s = env->use.open; s != nullptr; s = s->next) snapshot_moved(s);
  for (Snapshot* s = env->use.open; s != nullptr; s = s->next) gate_resume(*s->gate);
}

uint32_t map_resize(Env* env, size_t size) {
  const uint32_t status = check_file(env);
  if (status != ROV_OK) return status;
  if (!has_room(size)) {
    return fail_text(
        ROV_ERR_FULL,
        "database %s needs a map of %zu MiB, for which this process has no room: close what "
        "takes its address space, or use a 64-bit build",
        env->path, size >> 20);
  }
  pthread_mutex_lock(&env->use.lock);
  hold_snapshots(env);
  const int error = mdb_env_set_mapsize(env->engine, size);
  if (error == 0) {
    resume_snapshots(env);
  } else {
    // The old map is gone and there is no new one.
    env->life.store(Life::kNoMap);
    for (Snapshot* s = env->use.open; s != nullptr; s = s->next) s->gate->stuck.store(1);
  }
  pthread_mutex_unlock(&env->use.lock);
  return engine_fail(error, env, "change the memory map");
}

uint32_t grows_too_fast(const Env* env) {
  return fail_text(ROV_ERR_BUSY, "database %s grows faster than this process can follow: try again",
                   env->path);
}

uint32_t store_adopt_map(Env* env) {
  pthread_mutex_lock(&env->committing.lock);
  const size_t current = map_size(env);
  const size_t used = map_used(env);
  uint32_t status = is_dead(env) ? dead_env(env) : check_file(env);
  if (status == ROV_OK && used > current) status = map_resize(env, map_size_for(current, used));
  pthread_mutex_unlock(&env->committing.lock);
  return status;
}

}  // namespace rov
