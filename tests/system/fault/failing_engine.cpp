#include "tests/system/fault/failing_engine.h"

#include <lmdb.h>

#include <list>
#include <vector>

#include "database/file/search.h"
#include "database/record/keys.h"
#include "database/store/store.h"

namespace failing_engine {
namespace {

bool g_counting = false;
const Plan* g_plan = nullptr;
Counts g_counts;
std::list<std::vector<uint8_t>> g_damaged;  // values that were handed out since begin()

// The error with which the call is to end, 0 = none.
int verdict(Call call) {
  if (!g_counting) return 0;
  const uint32_t number = g_counts.calls[call]++;
  if (g_plan == nullptr || g_plan->call != call) return 0;
  if (number < g_plan->from || number >= g_plan->until) return 0;
  ++g_counts.injected;
  return g_plan->error;
}

// The engine keeps nodes under native integers; the checksum is over the key in network order.
rov::Key key_of(rov::Bytes key) {
  rov::Key made;
  memcpy(made.bytes, key.data, key.len);
  made.len = key.len;
  if (made.len == 4) rov::write_be32(made.bytes, rov::load<uint32_t>(key.data));
  return made;
}

void damage(int how, rov::Entry* entry) {
  constexpr size_t kChecksum = 4;
  std::vector<uint8_t>& made = g_damaged.emplace_back(entry->data, entry->data + entry->size);
  if (how == kFlipped) made.back() ^= 0x40;
  if (how == kHalf) made.resize(kChecksum + (made.size() - kChecksum) / 2);
  if (how == kOnes) std::fill(made.begin() + kChecksum, made.end(), uint8_t{0xff});
  if (how != kFlipped) {
    const rov::Bytes whole = {made.data(), static_cast<uint32_t>(made.size())};
    rov::write_value(made.data(), rov::record_crc(key_of(entry->key), whole));
  }
  entry->data = made.data();
  entry->size = static_cast<uint32_t>(made.size());
}

rov::Finding spoil(int how, rov::Finding found, rov::Entry* entry) {
  if (how == 0 || found != rov::Finding::kFound) return found;
  if (how == kNoRecord) return rov::Finding::kBadEntry;
  damage(how, entry);
  return found;
}

}  // namespace

const char* name_of(Call call) {
  constexpr const char* kNames[kCalls] = {"env_create",         "env_set_maxdbs",
                                          "env_set_maxreaders", "env_set_mapsize",
                                          "env_open",           "env_sync",
                                          "env_copyfd",         "env_copyfd2",
                                          "reader_list",        "txn_begin",
                                          "txn_renew",          "txn_commit",
                                          "dbi_open",           "del",
                                          "cursor_open",        "cursor_get",
                                          "cursor_put",         "(search)",
                                          "(search in order)"};
  return kNames[call];
}

void begin(const Plan* plan) {
  g_counts = {};
  g_damaged.clear();
  g_plan = plan;
  g_counting = true;
}

Counts end() {
  g_counting = false;
  return g_counts;
}

}  // namespace failing_engine

using namespace failing_engine;

// What the linker calls the function of the engine, and what it calls this one.
#define WRAPPED(function, call, parameters, arguments)       \
  int __real_##function parameters;                          \
  int __wrap_##function parameters {                         \
    const int error = verdict(call);                         \
    return error != 0 ? error : __real_##function arguments; \
  }

extern "C" {

WRAPPED(mdb_env_create, kEnvCreate, (MDB_env * *env), (env))
WRAPPED(mdb_env_set_maxdbs, kSetMaxDbs, (MDB_env * env, MDB_dbi count), (env, count))
WRAPPED(mdb_env_set_maxreaders, kSetMaxReaders, (MDB_env * env, unsigned count), (env, count))
WRAPPED(mdb_env_set_mapsize, kSetMapSize, (MDB_env * env, size_t size), (env, size))
WRAPPED(mdb_env_open, kEnvOpen, (MDB_env * env, const char* path, unsigned flags, mdb_mode_t mode),
        (env, path, flags, mode))
WRAPPED(mdb_env_sync, kEnvSync, (MDB_env * env, int force), (env, force))
WRAPPED(mdb_env_copyfd, kCopy, (MDB_env * env, mdb_filehandle_t file), (env, file))
WRAPPED(mdb_env_copyfd2, kCompact, (MDB_env * env, mdb_filehandle_t file, unsigned flags),
        (env, file, flags))
WRAPPED(mdb_reader_list, kListReaders, (MDB_env * env, MDB_msg_func* out, void* arg),
        (env, out, arg))
WRAPPED(mdb_txn_begin, kTxnBegin, (MDB_env * env, MDB_txn* parent, unsigned flags, MDB_txn** txn),
        (env, parent, flags, txn))
WRAPPED(mdb_txn_renew, kTxnRenew, (MDB_txn * txn), (txn))
WRAPPED(mdb_dbi_open, kDbiOpen, (MDB_txn * txn, const char* name, unsigned flags, MDB_dbi* table),
        (txn, name, flags, table))
WRAPPED(mdb_del, kDel, (MDB_txn * txn, MDB_dbi table, MDB_val* key, MDB_val* value),
        (txn, table, key, value))
WRAPPED(mdb_cursor_open, kCursorOpen, (MDB_txn * txn, MDB_dbi table, MDB_cursor** cursor),
        (txn, table, cursor))
WRAPPED(mdb_cursor_get, kCursorGet,
        (MDB_cursor * cursor, MDB_val* key, MDB_val* value, MDB_cursor_op op),
        (cursor, key, value, op))
WRAPPED(mdb_cursor_put, kCursorPut,
        (MDB_cursor * cursor, MDB_val* key, MDB_val* value, unsigned flags),
        (cursor, key, value, flags))

// A transaction is gone after its commit, whatever came of it.
int __real_mdb_txn_commit(MDB_txn* txn);
int __wrap_mdb_txn_commit(MDB_txn* txn) {
  const int error = verdict(kTxnCommit);
  if (error == 0) return __real_mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  return error;
}

// Members of rov::Search, under the names that the linker knows them by.
rov::Finding __real__ZN3rov6Search3getENS_5BytesEPNS_5EntryE(rov::Search* search, rov::Bytes key,
                                                             rov::Entry* entry);
rov::Finding __wrap__ZN3rov6Search3getENS_5BytesEPNS_5EntryE(rov::Search* search, rov::Bytes key,
                                                             rov::Entry* entry) {
  const int how = verdict(kSearch);
  return spoil(how, __real__ZN3rov6Search3getENS_5BytesEPNS_5EntryE(search, key, entry), entry);
}

rov::Finding __real__ZN3rov6Search10first_fromENS_5BytesEPPKhPNS_5EntryE(rov::Search* search,
                                                                         rov::Bytes key,
                                                                         const uint8_t** leaf,
                                                                         rov::Entry* entry);
rov::Finding __wrap__ZN3rov6Search10first_fromENS_5BytesEPPKhPNS_5EntryE(rov::Search* search,
                                                                         rov::Bytes key,
                                                                         const uint8_t** leaf,
                                                                         rov::Entry* entry) {
  const int how = verdict(kSearchInOrder);
  return spoil(
      how, __real__ZN3rov6Search10first_fromENS_5BytesEPPKhPNS_5EntryE(search, key, leaf, entry),
      entry);
}

rov::Finding __real__ZN3rov6Search7last_toENS_5BytesEPNS_5EntryE(rov::Search* search,
                                                                 rov::Bytes key, rov::Entry* entry);
rov::Finding __wrap__ZN3rov6Search7last_toENS_5BytesEPNS_5EntryE(rov::Search* search,
                                                                 rov::Bytes key,
                                                                 rov::Entry* entry) {
  const int how = verdict(kSearchInOrder);
  return spoil(how, __real__ZN3rov6Search7last_toENS_5BytesEPNS_5EntryE(search, key, entry), entry);
}
}
