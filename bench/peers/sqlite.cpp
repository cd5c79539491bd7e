#include <sqlite3.h>

#include <cstring>
#include <map>
#include <memory>

#include "bench/database.h"
#include "bench/peers/peers.h"
#include "bench/raw_engine.h"

namespace bench::peers::sqlite {
namespace {

// A table of such values with a prepared select by primary key; its cache holds all of it.
class Table {
 public:
  explicit Table(uint32_t values) {
    ok(sqlite3_open(folder_.at("nodes.sqlite").c_str(), &db_), "open");
    run("PRAGMA journal_mode=WAL; PRAGMA cache_size=-2000000; PRAGMA mmap_size=2000000000");
    run("CREATE TABLE nodes (id INTEGER PRIMARY KEY, value BLOB); BEGIN");
    sqlite3_stmt* insert = nullptr;
    ok(sqlite3_prepare_v2(db_, "INSERT INTO nodes VALUES (?, ?)", -1, &insert, nullptr), "prepare");
    const Bytes bytes(kRawBytes, 0x5a);
    for (uint32_t index = 0; index < values; ++index) {
      sqlite3_bind_int64(insert, 1, id_at(index));
      sqlite3_bind_blob(insert, 2, bytes.data(), kRawBytes, SQLITE_STATIC);
      check(sqlite3_step(insert) == SQLITE_DONE, "SQLite", "insert");
      sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    run("COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
    ok(sqlite3_prepare_v2(db_, "SELECT value FROM nodes WHERE id = ?", -1, &select_, nullptr),
       "prepare");
  }
  ~Table() {
    sqlite3_finalize(select_);
    sqlite3_close(db_);
  }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  void run(const char* statement) {
    ok(sqlite3_exec(db_, statement, nullptr, nullptr, nullptr), statement);
  }
  void get(uint32_t id, uint8_t* to) {
    sqlite3_bind_int64(select_, 1, id);
    check(sqlite3_step(select_) == SQLITE_ROW, "SQLite", "find a value");
    std::memcpy(to, sqlite3_column_blob(select_, 0), kRawBytes);
    sqlite3_reset(select_);
  }

 private:
  static void ok(int error, const char* what) { check(error == SQLITE_OK, "SQLite", what); }

  Folder folder_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
};

std::map<uint32_t, std::unique_ptr<Table>>& tables() {
  static std::map<uint32_t, std::unique_ptr<Table>> all;
  return all;
}

void select(benchmark::State& state, Table& table, uint32_t values) {
  Random random(values);
  uint8_t bytes[kRawBytes];
  for (auto _ : state) {
    table.get(id_at(random.next(values)), bytes);
    benchmark::DoNotOptimize(bytes);
  }
}

}  // namespace

void add_lookups(uint32_t values, Workload* workload) {
  std::unique_ptr<Table>& table = tables()[values];
  if (table == nullptr) table = std::make_unique<Table>(values);
  Table& one = *table;
  workload->sides.push_back({"SQLite, in a transaction", [&one, values](benchmark::State& state) {
                               one.run("BEGIN");
                               select(state, one, values);
                               one.run("COMMIT");
                             }});
  workload->sides.push_back({"SQLite, autocommit", [&one, values](benchmark::State& state) {
                               select(state, one, values);
                             }});
  workload->claims.push_back({"qim_node_read", "SQLite, in a transaction", Rule::kAtMost, 1.0});
  workload->claims.push_back({"qim_node_read", "SQLite, autocommit", Rule::kAtMost, 0.25});
}

void drop() {
  tables().clear();
}

}  // namespace bench::peers::sqlite
