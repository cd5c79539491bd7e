// The size of the memory map.
//
// The map begins small and grows by steps, for a 32-bit process has little room. While it changes,
// no snapshot of this process may be read; their gates are stopped for that moment.
#include <lmdb.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "database/base/error.h"
#include "database/file/commit.h"
#include "database/store/guard.h"
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
  env->map.base.store(nullptr);  // to be found again
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

// ---- Where it is --------------------------------------------------------------------------------

namespace {

constexpr int kFileEnds = -30500;

// 0, errno, or kFileEnds.
int read_at(const Env* env, uint64_t offset, uint8_t* to, size_t len) {
  int file = -1;
  mdb_env_get_fd(env->engine, &file);
  ssize_t got = -1;
  do {
    got = pread(file, to, len, static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  if (got < 0) return errno;
  return static_cast<size_t>(got) == len ? 0 : kFileEnds;
}

// The address of the first key of the list of tables. 0 or an error of the engine.
int first_key(Env* env, MDB_txn* txn, const void** address) {
  MDB_cursor* cursor = nullptr;
  MDB_val key = {};
  MDB_val value;
  const int error = guarded(env, [&] {
    const int opened = mdb_cursor_open(txn, env->main_table, &cursor);
    return opened != 0 ? opened : mdb_cursor_get(cursor, &key, &value, MDB_FIRST);
  });
  if (cursor != nullptr && !is_dead(env)) mdb_cursor_close(cursor);
  *address = key.mv_data;
  return error;
}

// The page that the tables are on is looked at in the file before the engine is asked where it is.
uint32_t find_base(Env* env, MDB_txn* txn, const Meta& meta, uint8_t* page) {
  const Word root = meta.tables.root;
  int error = read_at(env, uint64_t{root} * env->page_size, page, env->page_size);
  if (error != 0 && error != kFileEnds) return engine_fail(error, env, "read the data file");
  const char* fault = "the file ends before it";
  if (error == 0) fault = page_fault(page, root, env->page_size, true, KeyOrder::kBytes);
  Bytes key;
  if (fault == nullptr && !key_at(page, env->page_size, 0, KeyOrder::kBytes, &key)) {
    fault = "its first entry is none";
  }
  if (fault != nullptr) {
    condemn(env, {root, fault});
    return dead_env(env);
  }
  const void* address = nullptr;
  error = first_key(env, txn, &address);
  if (error != 0) return engine_fail(error, env, "find the memory map");
  const auto* in_map = static_cast<const uint8_t*>(address) - (key.data - page);
  env->map.base.store(in_map - size_t{root} * env->page_size, std::memory_order_release);
  return ROV_OK;
}

size_t notes_size(const MappedFile& map) {
  return static_cast<size_t>(map.pages) * sizeof *map.good_in;
}

// Most of the words are never used, and cost nothing before they are.
uint32_t new_notes(Env* env) {
  MappedFile& map = env->map;
  map.pages = static_cast<Word>(map_size(env) / env->page_size);
  void* notes = mmap(nullptr, notes_size(map), PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (notes == MAP_FAILED) return system_fail(errno, env->path, "keep notes of pages");
  map.good_in = static_cast<std::atomic<uint32_t>*>(notes);
  return ROV_OK;
}

// Finds the map in memory, and looks at what every search begins at. With the map's lock.
uint32_t find_map(Env* env, MDB_txn* txn, const Meta& meta) {
  MappedFile& map = env->map;
  mdb_env_get_fd(env->engine, &map.file);
  map.page_size = env->page_size;
  map_forget(map);
  uint32_t status = new_notes(env);
  if (status != ROV_OK) return status;
  PageDamage damage;
  if (!is_good_meta({&map, static_cast<uint32_t>(meta.revision), meta.last_page}, meta, &damage)) {
    condemn(env, damage);
    return dead_env(env);
  }
  auto* page = static_cast<uint8_t*>(malloc(env->page_size));
  if (page == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, env->page_size);
  status = find_base(env, txn, meta, page);
  free(page);
  return status;
}

}  // namespace

int read_meta_of(const Env* env, uint64_t revision, Meta* meta) {
  const uint64_t offset = revision % kMetaPages * env->page_size + kPageHead;
  const uint8_t* base = env->map.base.load(std::memory_order_acquire);
  if (base != nullptr) {
    *meta = read_meta(base + offset);
    return 0;
  }
  uint8_t bytes[kMetaBytes];
  const int error = read_at(env, offset, bytes, sizeof bytes);
  *meta = error == 0 ? read_meta(bytes) : Meta();  // whoever searches is told that it is none
  return error == kFileEnds ? 0 : error;
}

bool find_trees(Env* env, const Commit& commit, uint64_t revision, const Meta& meta,
                KnownTrees* trees, PageDamage* damage) {
  trees->revision = revision;
  trees->tables = meta.tables.root;
  for (uint32_t i = 0; i < kTables; ++i) {
    if (!find_tree(commit, meta, static_cast<Table>(i), &trees->of[i], damage)) return false;
  }
  pthread_mutex_lock(&env->map_mutex);
  const KnownTrees& known = env->known;
  const bool same =
      known.revision != revision ||
      (known.tables == trees->tables && std::equal(known.of, known.of + kTables, trees->of));
  if (same && known.revision < revision) env->known = *trees;
  pthread_mutex_unlock(&env->map_mutex);
  *damage = {meta.tables.root, "it describes other trees than before"};
  return same;
}

void map_forget(MappedFile& map) {
  if (map.good_in != nullptr) munmap(map.good_in, notes_size(map));
  map.good_in = nullptr;
}

uint32_t map_find(Env* env, MDB_txn* txn, const Meta& meta) {
  if (env->map.base.load(std::memory_order_acquire) != nullptr) return ROV_OK;
  pthread_mutex_lock(&env->map_mutex);
  uint32_t status = ROV_OK;
  if (env->map.base.load(std::memory_order_relaxed) == nullptr) status = find_map(env, txn, meta);
  pthread_mutex_unlock(&env->map_mutex);
  return status;
}

// ---- Growing ------------------------------------------------------------------------------------

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
