// Snapshots and reading from them.
#include <lmdb.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "database/base/error.h"
#include "database/file/layout.h"
#include "database/file/search.h"
#include "database/record/keys.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kMaxSpares = 16;

// ---- Records -----------------------------------------------------------------------------------

uint32_t corrupt(Table table, Bytes key) {
  const uint32_t node = key.len >= 4 ? load_be32(key.data) : 0;
  switch (table) {
    case Table::kNodes:
      return fail(ROV_ERR_CORRUPT, Note::kBadNode, node);
    case Table::kReferrers:
      return fail(ROV_ERR_CORRUPT, Note::kBadReferrers, node);
    case Table::kPrivate:
      return fail(ROV_ERR_CORRUPT, Note::kBadPrivate, node,
                  key.len >= 8 ? load_be32(key.data + 4) : 0);
    case Table::kClients:
      return fail(ROV_ERR_CORRUPT, Note::kBadClient, node,
                  key.len >= 16 ? load_be32(key.data + 12) : 0);
    case Table::kChanges:
    case Table::kUsers:
      return fail(ROV_ERR_CORRUPT, Note::kBadChange);
    case Table::kDataSets:
      break;
  }
  return fail(ROV_ERR_CORRUPT, Note::kBadDataSet,
              key.len >= 4 ? load_be32(key.data + key.len - 4) : 0);
}

// A damaged entry can say that its key or value goes on beyond its page, and beyond the file.
bool is_on_page(const Env* env, Bytes bytes) {
  const auto at = reinterpret_cast<uintptr_t>(bytes.data);
  return bytes.len <= env->page_size - (at & env->page_mask);
}

// A value that is longer has pages of its own, behind one head.
bool has_pages(const Env* env, Bytes value) {
  if ((reinterpret_cast<uintptr_t>(value.data) & env->page_mask) != kPageHead) return false;
  const uint8_t* page = value.data - kPageHead;
  return (page_flags(page) & kOverflowPage) != 0 &&
         pages_for(value.len, env->page_size) <= overflow_pages(page);
}

uint32_t check_record(const Env* env, Table table, const Record& record) {
  const Bytes value = record.value;
  if (!is_on_page(env, value) && !has_pages(env, value)) return corrupt(table, record.key);
  if (value.len >= 4 && load<uint32_t>(value.data) == record_crc(record.key, value)) return ROV_OK;
  return corrupt(table, record.key);
}

uint32_t fill_record(Snapshot* snapshot, Table table, const Entry& entry, Record* out) {
  *out = {entry.key, {entry.data, entry.size}};
  if (table == Table::kNodes) {
    write_be32(snapshot->node_key, load<uint32_t>(entry.key.data));
    out->key = {snapshot->node_key, 4};
  }
  return check_record(snapshot->env, table, *out);
}

// ---- Searching ----------------------------------------------------------------------------------

// Notes damage. What was found before is not to be answered any more, either.
uint32_t give_up(Snapshot* snapshot, const PageDamage& damage) {
  condemn(snapshot->env, damage);
  snapshot_moved(snapshot);
  return dead_env(snapshot->env);
}

bool is_known(Env* env, uint64_t revision, Table table, Tree* tree) {
  pthread_mutex_lock(&env->map_mutex);
  const bool known = env->known.revision == revision;
  if (known) *tree = env->known.of[static_cast<uint32_t>(table)];
  pthread_mutex_unlock(&env->map_mutex);
  return known;
}

uint32_t find_table(Snapshot* snapshot, Table table, TableReader* reader) {
  Env* env = snapshot->env;
  const uint32_t status = map_find(env, snapshot->txn, snapshot->meta);
  if (status != ROV_OK) return status;
  PageDamage damage;
  if (!is_good_meta(snapshot->commit, snapshot->meta, &damage)) return give_up(snapshot, damage);
  if (!is_known(env, snapshot->revision, table, &reader->tree)) {
    KnownTrees trees;
    if (!find_trees(env, snapshot->commit, snapshot->revision, snapshot->meta, &trees, &damage)) {
      return give_up(snapshot, damage);
    }
    reader->tree = trees.of[static_cast<uint32_t>(table)];
  }
  reader->leaf = nullptr;
  reader->epoch = snapshot->epoch;
  return ROV_OK;
}

// NULL with the status that says why.
TableReader* reader_of(Snapshot* snapshot, Table table, uint32_t* status) {
  if (is_dead(snapshot->env)) [[unlikely]] {
    snapshot_moved(snapshot);
    *status = dead_env(snapshot->env);
    return nullptr;
  }
  TableReader& reader = snapshot->readers[static_cast<uint32_t>(table)];
  if (reader.epoch == snapshot->epoch) return &reader;
  *status = find_table(snapshot, table, &reader);
  return *status == ROV_OK ? &reader : nullptr;
}

uint32_t search_fail(Snapshot* snapshot, Table table, Bytes key, Finding finding,
                     const Search& search) {
  if (finding == Finding::kNone) return ROV_ERR_NO_ITEM;
  return finding == Finding::kBadEntry ? corrupt(table, key) : give_up(snapshot, search.damage());
}

// Apart from snapshot_get, which needs no room on the stack without this.
[[gnu::noinline]] uint32_t get_stored(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  uint32_t status = ROV_OK;
  TableReader* reader = reader_of(snapshot, table, &status);
  if (reader == nullptr) return status;
  uint32_t native = 0;
  Search search(snapshot->commit, reader->tree, order_of(table));
  Entry entry;
  const Finding finding = search.get(stored_key(table, key, &native), &entry);
  if (finding != Finding::kFound) return search_fail(snapshot, table, key, finding, search);
  *out = {key, {entry.data, entry.size}};
  status = check_record(snapshot->env, table, *out);
  if (status == ROV_OK && table == Table::kNodes) {
    snapshot->hints[native % kHints] = {native, snapshot->epoch, out->value.data, out->value.len};
  }
  return status;
}

// ---- Slots --------------------------------------------------------------------------------------

// Slots of the table of readers that sessions leave free: for who writes, and for processes that have none
// yet, as a tool that was just started.
constexpr uint32_t kForWriters = 8;
constexpr uint32_t kForNewcomers = 8;

// A line of the engine's table: process, thread, commit. The heading has no numbers.
int count_line(const char* line, void* count) {
  uint32_t process = 0;
  if (sscanf(line, "%" SCNu32 " %*x", &process) == 1) ++*static_cast<uint32_t*>(count);
  return 0;
}

// Whether that many slots are taken. The engine knows quickly only how many ever were.
bool are_taken(Env* env, uint32_t limit) {
  MDB_envinfo info;
  mdb_env_info(env->engine, &info);
  if (info.me_numreaders < limit) return false;
  store_check_readers(env);
  uint32_t count = 0;
  return mdb_reader_list(env->engine, count_line, &count) >= 0 && count >= limit;
}

// Whether a session may take a slot. Under env->use.lock.
bool may_take_slot(Env* env, Reading reading) {
  if (reading == Reading::kToWrite || env->copy >= 0) return true;
  const bool has_one = env->use.open != nullptr;
  return !are_taken(env, kMaxReaders - kForWriters - (has_one ? kForNewcomers : 0));
}

// ---- Taking and giving back ---------------------------------------------------------------------

int begin_once(Snapshot* snapshot) {
  MDB_env* engine = snapshot->env->engine;
  const auto attempt = [&] {
    return snapshot->txn != nullptr ? mdb_txn_renew(snapshot->txn)
                                    : mdb_txn_begin(engine, nullptr, MDB_RDONLY, &snapshot->txn);
  };
  int error = attempt();
  if (error == MDB_READERS_FULL) {
    int dead = 0;
    mdb_reader_check(engine, &dead);
    if (dead > 0) error = attempt();
  }
  if (error == 0) snapshot->revision = mdb_txn_id(snapshot->txn);
  return error;
}

// The meta page of a commit is overwritten by the commit after the next, so it is read while there is no
// newer one. Whoever was killed in a commit can have left one that nobody was told of.
int begin(Snapshot* snapshot) {
  constexpr int kAttempts = 100;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt != 0) mdb_txn_reset(snapshot->txn);
    int error = begin_once(snapshot);
    if (error != 0) return error;
    error = read_meta_of(snapshot->env, snapshot->revision, &snapshot->meta);
    if (error != 0) {
      mdb_txn_reset(snapshot->txn);
      return error;
    }
    if (store_revision(snapshot->env) == snapshot->revision) break;
  }
  snapshot->commit = {&snapshot->env->map, static_cast<uint32_t>(snapshot->revision),
                      snapshot->meta.last_page};
  snapshot_moved(snapshot);
  return 0;
}

Snapshot* snapshot_new(Env* env) {
  auto* hints = static_cast<Hint*>(calloc(kHints, sizeof(Hint)));
  auto* snapshot = hints == nullptr ? nullptr : new (std::nothrow) Snapshot;
  if (snapshot == nullptr) {
    free(hints);
    return nullptr;
  }
  snapshot->env = env;
  snapshot->hints = hints;
  return snapshot;
}

Snapshot* take_spare(Env* env) {
  Snapshot* snapshot = env->use.spare;
  if (snapshot == nullptr) return snapshot_new(env);
  env->use.spare = snapshot->next;
  --env->use.spares;
  return snapshot;
}

void give_spare(Env* env, Snapshot* snapshot) {
  if (env->use.spares >= kMaxSpares) {
    snapshot_delete(snapshot);
    return;
  }
  snapshot->gate = nullptr;
  snapshot->next = env->use.spare;
  env->use.spare = snapshot;
  ++env->use.spares;
}

void link_open(Env* env, Snapshot* snapshot) {
  snapshot->previous = nullptr;
  snapshot->next = env->use.open;
  if (env->use.open != nullptr) env->use.open->previous = snapshot;
  env->use.open = snapshot;
}

void unlink_open(Env* env, Snapshot* snapshot) {
  (snapshot->previous == nullptr ? env->use.open : snapshot->previous->next) = snapshot->next;
  if (snapshot->next != nullptr) snapshot->next->previous = snapshot->previous;
}

Attempt open_attempt(Env* env, Gate* gate, Reading reading, Snapshot** out) {
  Snapshot* snapshot = take_spare(env);
  if (snapshot == nullptr) return {fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Snapshot))};
  const bool may_begin = snapshot->txn != nullptr || may_take_slot(env, reading);
  const int error = may_begin ? begin(snapshot) : MDB_READERS_FULL;
  if (error != 0) {
    give_spare(env, snapshot);
    return engine_attempt(error, env, "begin a read session");
  }
  snapshot->gate = gate;
  link_open(env, snapshot);
  *out = snapshot;
  return {};
}

}  // namespace

void snapshot_delete(Snapshot* snapshot) {
  if (snapshot->txn != nullptr) mdb_txn_abort(snapshot->txn);
  free(snapshot->hints);
  delete snapshot;
}

uint32_t snapshot_open(Env* env, Gate* gate, Reading reading, Snapshot** out) {
  return follow_growth(env, [&] {
    if (is_dead(env)) return Attempt{dead_env(env)};
    pthread_mutex_lock(&env->use.lock);
    const Attempt attempt = open_attempt(env, gate, reading, out);
    pthread_mutex_unlock(&env->use.lock);
    return attempt;
  });
}

void snapshot_close(Snapshot* snapshot) {
  Env* env = snapshot->env;
  pthread_mutex_lock(&env->use.lock);
  unlink_open(env, snapshot);
  mdb_txn_reset(snapshot->txn);
  give_spare(env, snapshot);
  pthread_mutex_unlock(&env->use.lock);
}

Attempt snapshot_renew(Snapshot* snapshot) {
  if (snapshot->revision != 0) {
    if (snapshot->revision == store_revision(snapshot->env)) return {};
    mdb_txn_reset(snapshot->txn);
    snapshot->revision = 0;
  }
  const int error = is_dead(snapshot->env) ? kEngineDead : begin(snapshot);
  return engine_attempt(error, snapshot->env, "move to the newest commit");
}

bool snapshot_makes_grow(const Snapshot* snapshot) {
  MDB_envinfo info;
  mdb_env_info(snapshot->env->engine, &info);
  return info.me_last_txnid > snapshot->revision + 1 &&
         info.me_last_pgno > snapshot->meta.last_page;
}

uint64_t store_revision(const Env* env) {
  MDB_envinfo info;
  mdb_env_info(env->engine, &info);
  return info.me_last_txnid;
}

uint32_t snapshot_get(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  if (table == Table::kNodes) {
    const uint32_t native = load_be32(key.data);
    const Hint& hint = snapshot->hints[native % kHints];
    if (hint.node == native && hint.epoch == snapshot->epoch) {
      *out = {key, {hint.value, hint.len}};
      return ROV_OK;
    }
  }
  return get_stored(snapshot, table, key, out);
}

uint32_t snapshot_ge(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  uint32_t status = ROV_OK;
  TableReader* reader = reader_of(snapshot, table, &status);
  if (reader == nullptr) return status;
  uint32_t native = 0;
  Search search(snapshot->commit, reader->tree, order_of(table));
  Entry entry;
  const Finding finding = search.first_from(stored_key(table, key, &native), &reader->leaf, &entry);
  if (finding != Finding::kFound) return search_fail(snapshot, table, {}, finding, search);
  return fill_record(snapshot, table, entry, out);
}

uint32_t snapshot_le(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  uint32_t status = ROV_OK;
  TableReader* reader = reader_of(snapshot, table, &status);
  if (reader == nullptr) return status;
  uint32_t native = 0;
  Search search(snapshot->commit, reader->tree, order_of(table));
  Entry entry;
  const Finding finding = search.last_to(stored_key(table, key, &native), &entry);
  if (finding != Finding::kFound) return search_fail(snapshot, table, {}, finding, search);
  return fill_record(snapshot, table, entry, out);
}

uint32_t snapshot_count(Snapshot* snapshot, Table table, uint32_t* count) {
  uint32_t status = ROV_OK;
  const TableReader* reader = reader_of(snapshot, table, &status);
  if (reader != nullptr) *count = static_cast<uint32_t>(reader->tree.entries);
  return status;
}

}  // namespace rov
