// Snapshots and reading from them.
#include <lmdb.h>

#include <cstdlib>
#include <new>

#include "database/base/error.h"
#include "database/file/layout.h"
#include "database/record/checksum.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kMaxSpares = 16;

// ---- Keys and records ---------------------------------------------------------------------------

// The engine keeps node keys as native integers, everybody else sees them in network order.
MDB_val engine_key(Table table, Bytes key, uint32_t* native) {
  if (table != Table::kNodes) return {key.len, const_cast<uint8_t*>(key.data)};
  *native = load_be32(key.data);
  return {sizeof *native, native};
}

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

uint32_t fill_record(Snapshot* snapshot, Table table, MDB_val key, MDB_val value, Record* out) {
  out->value = {static_cast<const uint8_t*>(value.mv_data), static_cast<uint32_t>(value.mv_size)};
  out->key = {static_cast<const uint8_t*>(key.mv_data), static_cast<uint32_t>(key.mv_size)};
  if (!is_on_page(snapshot->env, out->key)) return corrupt(table, {});
  if (table == Table::kNodes) {
    if (key.mv_size != 4) return corrupt(table, {});
    store_be32(snapshot->node_key, load<uint32_t>(key.mv_data));
    out->key = {snapshot->node_key, 4};
  }
  return check_record(snapshot->env, table, *out);
}

int cursor_of(Snapshot* snapshot, Table table, MDB_cursor** out) {
  const auto index = static_cast<uint32_t>(table);
  MDB_cursor*& cursor = snapshot->cursors[index];
  int error = 0;
  if (cursor == nullptr) {
    error = mdb_cursor_open(snapshot->txn, snapshot->env->tables[index], &cursor);
  } else if (snapshot->cursor_epoch[index] != snapshot->epoch) {
    error = mdb_cursor_renew(snapshot->txn, cursor);
  }
  if (error == 0) snapshot->cursor_epoch[index] = snapshot->epoch;
  *out = cursor;
  return error;
}

// The last record whose key is not above `wanted`.
int find_le(Snapshot* snapshot, Table table, const MDB_val& wanted, MDB_val* found,
            MDB_val* value) {
  MDB_cursor* cursor = nullptr;
  int error = cursor_of(snapshot, table, &cursor);
  if (error != 0) return error;
  *found = wanted;
  error = mdb_cursor_get(cursor, found, value, MDB_SET_RANGE);
  if (error == MDB_NOTFOUND) return mdb_cursor_get(cursor, found, value, MDB_LAST);
  if (error != 0) return error;
  const unsigned number = snapshot->env->tables[static_cast<uint32_t>(table)];
  if (mdb_cmp(snapshot->txn, number, found, &wanted) == 0) return 0;
  return mdb_cursor_get(cursor, found, value, MDB_PREV);
}

// A call of the engine that reads.
template <class Call>
int read_guarded(Snapshot* snapshot, Call call) {
  const int error = guarded(snapshot->env, call);
  // What was found before is not to be answered any more, either.
  if (error == kEngineDead) [[unlikely]]
    snapshot_moved(snapshot);
  return error;
}

uint32_t read_fail(int error, const Snapshot* snapshot) {
  return error == MDB_NOTFOUND ? uint32_t{ROV_ERR_NO_ITEM}
                               : engine_fail(error, snapshot->env, "read a record");
}

// Apart from snapshot_get, which needs no room on the stack without this.
[[gnu::noinline]] uint32_t get_stored(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  uint32_t native = 0;
  MDB_val wanted = engine_key(table, key, &native);
  MDB_val value;
  const unsigned number = snapshot->env->tables[static_cast<uint32_t>(table)];
  const int error =
      read_guarded(snapshot, [&] { return mdb_get(snapshot->txn, number, &wanted, &value); });
  if (error != 0) return read_fail(error, snapshot);
  out->key = key;
  out->value = {static_cast<const uint8_t*>(value.mv_data), static_cast<uint32_t>(value.mv_size)};
  const uint32_t status = check_record(snapshot->env, table, *out);
  if (status == ROV_OK && table == Table::kNodes) {
    snapshot->hints[native % kHints] = {native, snapshot->epoch, out->value.data, out->value.len};
  }
  return status;
}

// ---- Taking and giving back ---------------------------------------------------------------------

int begin(Snapshot* snapshot) {
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
  if (error != 0) return error;
  snapshot->revision = mdb_txn_id(snapshot->txn);
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
  Snapshot* snapshot = env->spare;
  if (snapshot == nullptr) return snapshot_new(env);
  env->spare = snapshot->next;
  --env->spares;
  return snapshot;
}

void give_spare(Env* env, Snapshot* snapshot) {
  if (env->spares >= kMaxSpares) {
    snapshot_delete(snapshot);
    return;
  }
  snapshot->gate = nullptr;
  snapshot->next = env->spare;
  env->spare = snapshot;
  ++env->spares;
}

void link_open(Env* env, Snapshot* snapshot) {
  snapshot->previous = nullptr;
  snapshot->next = env->open;
  if (env->open != nullptr) env->open->previous = snapshot;
  env->open = snapshot;
}

void unlink_open(Env* env, Snapshot* snapshot) {
  (snapshot->previous == nullptr ? env->open : snapshot->previous->next) = snapshot->next;
  if (snapshot->next != nullptr) snapshot->next->previous = snapshot->previous;
}

uint32_t open_attempt(Env* env, Gate* gate, Snapshot** out) {
  Snapshot* snapshot = take_spare(env);
  if (snapshot == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Snapshot));
  const int error = begin(snapshot);
  if (error != 0) {
    give_spare(env, snapshot);
    return engine_fail(error, env, "begin a read session");
  }
  snapshot->gate = gate;
  link_open(env, snapshot);
  *out = snapshot;
  return ROV_OK;
}

}  // namespace

void snapshot_delete(Snapshot* snapshot) {
  for (MDB_cursor* cursor : snapshot->cursors) {
    if (cursor != nullptr) mdb_cursor_close(cursor);
  }
  if (snapshot->txn != nullptr) mdb_txn_abort(snapshot->txn);
  free(snapshot->hints);
  delete snapshot;
}

uint32_t snapshot_open(Env* env, Gate* gate, Snapshot** out) {
  return follow_growth(env, [&] {
    if (is_dead(env)) return dead_env(env);
    pthread_mutex_lock(&env->mutex);
    const uint32_t status = open_attempt(env, gate, out);
    pthread_mutex_unlock(&env->mutex);
    return status;
  });
}

void snapshot_close(Snapshot* snapshot) {
  Env* env = snapshot->env;
  pthread_mutex_lock(&env->mutex);
  unlink_open(env, snapshot);
  mdb_txn_reset(snapshot->txn);
  give_spare(env, snapshot);
  pthread_mutex_unlock(&env->mutex);
}

uint32_t snapshot_renew(Snapshot* snapshot) {
  if (snapshot->revision != 0) {
    if (snapshot->revision == store_revision(snapshot->env)) return ROV_OK;
    mdb_txn_reset(snapshot->txn);
    snapshot->revision = 0;
  }
  const int error = is_dead(snapshot->env) ? kEngineDead : begin(snapshot);
  return engine_fail(error, snapshot->env, "move to the newest commit");
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
  uint32_t native = 0;
  MDB_val found = engine_key(table, key, &native);
  MDB_val value;
  const int error = read_guarded(snapshot, [&] {
    MDB_cursor* cursor = nullptr;
    const int opened = cursor_of(snapshot, table, &cursor);
    return opened != 0 ? opened : mdb_cursor_get(cursor, &found, &value, MDB_SET_RANGE);
  });
  if (error != 0) return read_fail(error, snapshot);
  return fill_record(snapshot, table, found, value, out);
}

uint32_t snapshot_le(Snapshot* snapshot, Table table, Bytes key, Record* out) {
  uint32_t native = 0;
  const MDB_val wanted = engine_key(table, key, &native);
  MDB_val found;
  MDB_val value;
  const int error =
      read_guarded(snapshot, [&] { return find_le(snapshot, table, wanted, &found, &value); });
  if (error != 0) return read_fail(error, snapshot);
  return fill_record(snapshot, table, found, value, out);
}

uint32_t snapshot_count(Snapshot* snapshot, Table table, uint32_t* count) {
  MDB_stat stat;
  const unsigned number = snapshot->env->tables[static_cast<uint32_t>(table)];
  const int error = read_guarded(snapshot, [&] { return mdb_stat(snapshot->txn, number, &stat); });
  if (error != 0) return engine_fail(error, snapshot->env, "count records");
  *count = static_cast<uint32_t>(stat.ms_entries);
  return ROV_OK;
}

}  // namespace rov
