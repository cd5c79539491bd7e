// The storage engine used directly: the floor under everything that the database does.
#ifndef BENCH_RAW_ENGINE_H
#define BENCH_RAW_ENGINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench/database.h"

struct MDB_env;
struct MDB_txn;

namespace bench {

constexpr uint32_t kRawBytes = 200;  // of each value

// So many values under the identifiers of the policy's nodes, and a snapshot that stays open.
class RawEngine {
 public:
  explicit RawEngine(uint32_t values);
  ~RawEngine();
  RawEngine(const RawEngine&) = delete;
  RawEngine& operator=(const RawEngine&) = delete;

  // Copies the value of that identifier to `to`.
  void get(uint32_t id, uint8_t* to) const;
  // Begins a snapshot and ends it; the engine keeps what it needs for the next one.
  void renew();

 private:
  Folder folder_;
  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_txn* renewed_ = nullptr;
  unsigned table_ = 0;
};

// That engine, the same one every time.
RawEngine& raw_engine(uint32_t values);
void drop_raw_engines();

// Everything that a database holds, as the engine sees it.
struct RawTable {
  std::string name;
  unsigned flags = 0;
  std::vector<Bytes> keys;
  std::vector<Bytes> values;
};
// `path` is a database that no one in this process has open.
std::vector<RawTable> read_tables(const std::string& path);
// Puts all of it into a new database of the engine, one transaction, durable.
class RawWriter {
 public:
  RawWriter();
  ~RawWriter();
  RawWriter(const RawWriter&) = delete;
  RawWriter& operator=(const RawWriter&) = delete;
  void write(const std::vector<RawTable>& tables);

 private:
  Folder folder_;
  MDB_env* env_ = nullptr;
};

}  // namespace bench

#endif
