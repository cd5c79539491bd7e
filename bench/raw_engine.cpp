#include "bench/raw_engine.h"

#include <lmdb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

namespace bench {
namespace {

constexpr unsigned kTables = 16;
constexpr size_t kMap = sizeof(void*) == 8 ? size_t{4} << 30 : size_t{768} << 20;

void engine_check(int error, const char* what) {
  if (error == 0) return;
  std::fprintf(stderr, "bench: the engine cannot %s: %s\n", what, mdb_strerror(error));
  std::exit(1);
}

MDB_env* open_env(const std::string& path, unsigned flags) {
  MDB_env* env = nullptr;
  engine_check(mdb_env_create(&env), "make an environment");
  engine_check(mdb_env_set_maxdbs(env, kTables), "set the number of tables");
  engine_check(mdb_env_set_mapsize(env, kMap), "set the size of the map");
  engine_check(mdb_env_open(env, path.c_str(), MDB_NOTLS | flags, 0644), "open an environment");
  return env;
}

MDB_val val_of(const Bytes& bytes) {
  return {bytes.size(), const_cast<uint8_t*>(bytes.data())};
}

Bytes bytes_of(const MDB_val& val) {
  const auto* at = static_cast<const uint8_t*>(val.mv_data);
  return {at, at + val.mv_size};
}

RawTable read_table(MDB_txn* txn, const std::string& name) {
  RawTable table;
  table.name = name;
  unsigned number = 0;
  engine_check(mdb_dbi_open(txn, name.c_str(), 0, &number), "open a table");
  engine_check(mdb_dbi_flags(txn, number, &table.flags), "look at a table");
  MDB_cursor* cursor = nullptr;
  engine_check(mdb_cursor_open(txn, number, &cursor), "open a cursor");
  MDB_val key;
  MDB_val value;
  for (auto step = MDB_FIRST; mdb_cursor_get(cursor, &key, &value, step) == 0; step = MDB_NEXT) {
    table.keys.push_back(bytes_of(key));
    table.values.push_back(bytes_of(value));
  }
  mdb_cursor_close(cursor);
  return table;
}

std::map<uint32_t, std::unique_ptr<RawEngine>>& engines() {
  static std::map<uint32_t, std::unique_ptr<RawEngine>> all;
  return all;
}

}  // namespace

RawEngine::RawEngine(uint32_t values) : env_(open_env(folder_.at(""), 0)) {
  MDB_txn* txn = nullptr;
  engine_check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
  engine_check(mdb_dbi_open(txn, "nodes", MDB_CREATE | MDB_INTEGERKEY, &table_), "make a table");
  uint8_t bytes[kRawBytes];
  for (uint32_t index = 0; index < values; ++index) {
    uint32_t id = id_at(index);
    std::memset(bytes, static_cast<int>(index & 0xff), sizeof bytes);
    MDB_val key = {sizeof id, &id};
    MDB_val value = {sizeof bytes, bytes};
    engine_check(mdb_put(txn, table_, &key, &value, 0), "put");
  }
  engine_check(mdb_txn_commit(txn), "commit");
  engine_check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn_), "begin to read");
  engine_check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &renewed_), "begin to read");
  mdb_txn_reset(renewed_);
}

RawEngine::~RawEngine() {
  mdb_txn_abort(txn_);
  mdb_txn_abort(renewed_);
  mdb_env_close(env_);
}

void RawEngine::get(uint32_t id, uint8_t* to) const {
  MDB_val key = {sizeof id, &id};
  MDB_val value;
  engine_check(mdb_get(txn_, table_, &key, &value), "get");
  std::memcpy(to, value.mv_data, kRawBytes);
}

void RawEngine::renew() {
  engine_check(mdb_txn_renew(renewed_), "renew");
  mdb_txn_reset(renewed_);
}

RawEngine& raw_engine(uint32_t values) {
  std::unique_ptr<RawEngine>& one = engines()[values];
  if (one == nullptr) one = std::make_unique<RawEngine>(values);
  return *one;
}

void drop_raw_engines() {
  engines().clear();
}

std::vector<RawTable> read_tables(const std::string& path) {
  MDB_env* env = open_env(path, MDB_RDONLY);
  MDB_txn* txn = nullptr;
  engine_check(mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn), "begin to read");
  unsigned main_table = 0;
  engine_check(mdb_dbi_open(txn, nullptr, 0, &main_table), "open the main table");
  MDB_cursor* cursor = nullptr;
  engine_check(mdb_cursor_open(txn, main_table, &cursor), "open a cursor");
  std::vector<RawTable> tables;
  MDB_val key;
  MDB_val value;
  for (auto step = MDB_FIRST; mdb_cursor_get(cursor, &key, &value, step) == 0; step = MDB_NEXT) {
    tables.push_back(read_table(txn, {static_cast<const char*>(key.mv_data), key.mv_size}));
  }
  mdb_cursor_close(cursor);
  mdb_txn_abort(txn);
  mdb_env_close(env);
  return tables;
}

RawWriter::RawWriter() : env_(open_env(folder_.at(""), 0)) {}

RawWriter::~RawWriter() {
  mdb_env_close(env_);
}

void RawWriter::write(const std::vector<RawTable>& tables) {
  MDB_txn* txn = nullptr;
  engine_check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
  for (const RawTable& table : tables) {
    unsigned number = 0;
    engine_check(mdb_dbi_open(txn, table.name.c_str(), table.flags | MDB_CREATE, &number),
                 "make a table");
    for (size_t i = 0; i < table.keys.size(); ++i) {
      MDB_val key = val_of(table.keys[i]);
      MDB_val value = val_of(table.values[i]);
      engine_check(mdb_put(txn, number, &key, &value, 0), "put");
    }
  }
  engine_check(mdb_txn_commit(txn), "commit");
}

}  // namespace bench
