// Applying a write session's edits in one engine transaction.
//
// When the map turns out to be too small, the engine's transaction is lost; the edits are still
// there, so the map is made larger and they are applied again.
#include <lmdb.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>

#include "database/base/error.h"
#include "database/record/keys.h"
#include "database/store/guard.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kCommitsPerReaderCheck = 64;
constexpr uint32_t kMaxKey = 64;

// A key in the engine's form, with room for a native node key.
struct EngineKey {
  MDB_val val;
  uint32_t native;
};

void set_key(Table table, const Overlay::Edit* edit, EngineKey* key) {
  const Bytes bytes = edit->key();
  key->val = {bytes.len, const_cast<uint8_t*>(bytes.data)};
  if (table != Table::kNodes) return;
  key->native = load_be32(bytes.data);
  key->val = {sizeof key->native, &key->native};
}

// One table's edits, in key order. Whatever lies behind the table's last key is appended, which
// leaves full pages behind.
class TableWriter {
 public:
  TableWriter(const Env* env, MDB_txn* txn, Table table)
      : env_(env), txn_(txn), number_(env->tables[static_cast<uint32_t>(table)]), table_(table) {}
  ~TableWriter() {
    // A dead engine's transaction keeps its cursors.
    if (cursor_ != nullptr && !is_dead(env_)) mdb_cursor_close(cursor_);
  }
  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  int open() {
    MDB_val last = {};
    MDB_val value;
    const int error = guarded(env_, [&] {
      const int opened = mdb_cursor_open(txn_, number_, &cursor_);
      return opened != 0 ? opened : mdb_cursor_get(cursor_, &last, &value, MDB_LAST);
    });
    if (error == MDB_NOTFOUND) append_ = true;
    if (error == 0 && last.mv_size <= kMaxKey) {
      memcpy(last_, last.mv_data, last.mv_size);
      last_len_ = last.mv_size;
    }
    return error == MDB_NOTFOUND ? 0 : error;
  }

  // By how much the sum of the checksums of the table's records has changed.
  uint64_t change() const { return change_; }

  int write(const Overlay::Edit* edit) {
    EngineKey key;
    set_key(table_, edit, &key);
    if (edit->value != nullptr && !append_ && last_len_ > 0) {
      MDB_val last = {last_len_, last_};
      append_ = mdb_cmp(txn_, number_, &key.val, &last) > 0;
    }
    const int unknown = append_ ? 0 : forget(key);
    if (unknown != 0) return unknown;
    if (edit->value == nullptr) {
      const int error = guarded(env_, [&] { return mdb_del(txn_, number_, &key.val, nullptr); });
      return error == MDB_NOTFOUND ? 0 : error;
    }
    const uint32_t crc = record_crc(edit->key(), {edit->value, edit->len});
    write_value(edit->value, crc);
    change_ += crc;
    MDB_val value = {edit->len, edit->value};
    const unsigned flags = append_ ? MDB_APPEND : 0U;
    return guarded(env_, [&] { return mdb_cursor_put(cursor_, &key.val, &value, flags); });
  }

 private:
  // Takes the record that is there, if one is, from the sum.
  int forget(const EngineKey& key) {
    MDB_val found = key.val;
    MDB_val value = {};
    const int error =
        guarded(env_, [&] { return mdb_cursor_get(cursor_, &found, &value, MDB_SET); });
    if (error == 0 && value.mv_size >= sizeof(uint32_t)) change_ -= load<uint32_t>(value.mv_data);
    return error == MDB_NOTFOUND ? 0 : error;
  }

  const Env* env_;
  MDB_txn* txn_;
  unsigned number_;
  Table table_;
  uint64_t change_ = 0;
  MDB_cursor* cursor_ = nullptr;
  bool append_ = false;
  uint8_t last_[kMaxKey] = {};
  size_t last_len_ = 0;
};

int apply_table(const Env* env, MDB_txn* txn, Table table, const Overlay& edits,
                uint64_t* changes) {
  const Overlay::Edit* edit = edits.first(table);
  if (edit == nullptr) return 0;
  TableWriter writer(env, txn, table);
  int error = writer.open();
  for (; edit != nullptr && error == 0; edit = edit->next[0]) error = writer.write(edit);
  changes[static_cast<uint32_t>(table)] = writer.change();
  return error;
}

// What became of an attempt.
struct Outcome {
  uint32_t status = ROV_OK;  // of what was looked at first
  int error = 0;
  bool moved = false;  // somebody committed in between
  uint64_t revision = 0;
  uint64_t changes[kTables] = {};  // of the sums of checksums
};

// Leaves a transaction that must not be touched again (guard.h), with its pages and cursors.
// Its lock is the robust one that the thread took since `before`; given back, other processes can
// write.
void abandon(Env* env, const pthread_mutex_t* before) {
  pthread_mutex_t* lock = newest_robust_lock();
  env->keeps_lock = lock == nullptr || lock == before || pthread_mutex_unlock(lock) != 0;
}

Outcome attempt_commit(Env* env, const Overlay& edits, uint64_t base) {
  Outcome outcome;
  MDB_txn* txn = nullptr;
  const pthread_mutex_t* lock_before = newest_robust_lock();
  outcome.error = mdb_txn_begin(env->engine, nullptr, 0, &txn);
  if (outcome.error != 0) return outcome;
  outcome.revision = mdb_txn_id(txn);
  outcome.moved = outcome.revision != base + 1;
  if (!outcome.moved) outcome.status = look_before_writing(env, txn, edits, base);
  if (outcome.status != ROV_OK) {
    // The engine has changed nothing yet.
    mdb_txn_abort(txn);
    return outcome;
  }
  for (uint32_t i = 0; i < kTables && outcome.error == 0 && !outcome.moved; ++i) {
    outcome.error = apply_table(env, txn, static_cast<Table>(i), edits, outcome.changes);
  }
  if (outcome.error == 0 && !outcome.moved) {
    outcome.error = guarded(env, [&] { return mdb_txn_commit(txn); });
  } else if (outcome.error != kEngineDead) {
    mdb_txn_abort(txn);
  }
  if (outcome.error == kEngineDead) abandon(env, lock_before);
  return outcome;
}

// Makes room after "map full": first what dead readers hold, then a larger map.
uint32_t make_room(Env* env, bool* checked_readers) {
  if (!*checked_readers) {
    *checked_readers = true;
    int dead = 0;
    mdb_reader_check(env->engine, &dead);
    if (dead > 0) return ROV_OK;
  }
  const size_t current = map_size(env);
  size_t size = map_size_for(current, current + 1);
  if (size > env->map_limit) size = env->map_limit;
  if (size <= current) {
    return fail_text(
        ROV_ERR_FULL,
        "database %s has reached the limit of its map, %zu MiB: raise ROV_MAP_MAX, or delete "
        "nodes; nothing was changed",
        env->path, current >> 20);
  }
  return map_resize(env, size);
}

// Grows the map before the first attempt when the edits are sure not to fit, which saves attempts.
void make_room_ahead(Env* env, const Overlay& edits) {
  const size_t current = map_size(env);
  const size_t used = map_used(env);
  if (edits.bytes() > SIZE_MAX / 2 - used || used + edits.bytes() <= current) return;
  size_t size = map_size_for(current, used + edits.bytes() + edits.bytes() / 4);
  if (size > env->map_limit) size = env->map_limit;
  // A failure comes again where the room is needed.
  if (size > current) static_cast<void>(map_resize(env, size));
}

// The engine calls a short write an I/O error; a full disk is the usual reason, or a file that the
// process may not make larger.
int cause_of_short_write(const Env* env) {
  struct stat file;
  struct rlimit limit;
  if (fstatat(env->directory, "data.mdb", &file, 0) == 0 && getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
      limit.rlim_cur != RLIM_INFINITY && static_cast<rlim_t>(file.st_size) >= limit.rlim_cur) {
    return EFBIG;
  }
  struct statvfs disk;
  return fstatvfs(env->directory, &disk) == 0 && disk.f_bavail == 0 ? ENOSPC : EIO;
}

// The mark of commit `base` with its sums, so far as it is known: this process made or verified it, or another one
// left it.
Mark mark_of(const Env* env, uint64_t base) {
  const Mark& own = env->committing.mark;
  const Mark mark = own.revision == base ? own : wake_mark(env->directory, env->identity);
  return mark.revision == base ? mark : Mark();
}

uint32_t commit_locked(Env* env, const Overlay& edits, uint64_t base, Mark* made) {
  if (!is_dead(env)) {
    const uint32_t status = check_file(env);
    if (status != ROV_OK) return status;
    make_room_ahead(env, edits);
  }
  bool checked_readers = false;
  for (;;) {
    if (is_dead(env)) return dead_env(env);
    const Outcome outcome = attempt_commit(env, edits, base);
    if (outcome.moved) {
      return fail_text(
          ROV_ERR_BUSY,
          "database %s was written to by something that does not take its writer lock: begin "
          "the session again",
          env->path);
    }
    if (outcome.status != ROV_OK) return outcome.status;
    uint32_t status = ROV_OK;
    switch (outcome.error) {
      case 0:
        made->revision = outcome.revision;
        for (uint32_t i = 0; i < kTables; ++i) made->sums[i] += outcome.changes[i];
        return ROV_OK;
      case MDB_MAP_FULL:
        status = make_room(env, &checked_readers);
        break;
      case MDB_MAP_RESIZED:
        status = map_resize(env, map_size_for(map_size(env), map_used(env)));
        break;
      case EIO:
        return engine_fail(cause_of_short_write(env), env, "commit");
      default:
        return engine_fail(outcome.error, env, "commit");
    }
    if (status != ROV_OK) return status;
  }
}

void check_readers_now_and_then(Env* env) {
  pthread_mutex_lock(&env->use.lock);
  const bool due = ++env->use.commits >= kCommitsPerReaderCheck;
  if (due) env->use.commits = 0;
  pthread_mutex_unlock(&env->use.lock);
  if (due) store_check_readers(env);
}

}  // namespace

uint32_t store_commit(Env* env, const Overlay& edits, uint64_t base, uint64_t* revision) {
  if (revision != nullptr) *revision = base;
  if (edits.empty()) return ROV_OK;
  pthread_mutex_lock(&env->committing.lock);
  uint32_t status = ROV_OK;
  {
    const Waking waking(env->directory);
    Mark made = mark_of(env, base);
    status = commit_locked(env, edits, base, &made);
    if (status == ROV_OK) {
      waking.tell(env->identity, made);
      env->committing.mark = made;
      if (revision != nullptr) *revision = made.revision;
    }
  }
  pthread_mutex_unlock(&env->committing.lock);
  if (status == ROV_OK) check_readers_now_and_then(env);
  return status;
}

}  // namespace rov
