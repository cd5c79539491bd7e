// The device's side of a fleet: the database, of which this is the only writer, and what is kept beside
// it.
//
//   <directory>/back        how to come from what is held to what was held before; a short way is a
//                           mark of the database instead, for which no file need be written
//   <directory>/snapshot    the last good state, compressed
//
// Every content is committed together with the mark that says which revision it is, once its digest
// has been checked in the very session.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fleet/agent/checks.h"
#include "fleet/agent/machine.h"
#include "fleet/agent/supply.h"
#include "fleet/state/database_state.h"
#include "fleet/state/state_digest.h"
#include "policy/store/database.h"

namespace qim::fleet {

// This device can't take the revision, and will not be able to another time.
class RefusedError : public Error {
 public:
  using Error::Error;
};

// Somebody else has changed the database.
class DriftError : public Error {
 public:
  using Error::Error;
};

struct DeviceOptions {
  std::string database;   // made when there is none
  std::string directory;  // for what is kept, which is there
  CheckOptions checks;
};

class Device {
 public:
  explicit Device(const DeviceOptions& options);
  virtual ~Device() = default;

  // What the mark says. Throws ConfigError for a damaged one.
  Held held() const;
  // By which head what is committed from now on goes.
  void goes_by(const SeenHead& seen) { seen_ = seen; }

  // All three commit, once, and return what is held then. They throw RefusedError, DriftError,
  // ForgedError, DatabaseError and Error; then nothing was changed.
  virtual Held take(const Supply& supply, const Target& target, const std::string& scope);
  Held go_back(const Target& target);
  // Makes the database what its mark says again, from what is kept or from what was fetched.
  Held repair(const Supply* fetched);

  // Is there, without the store, a way back to that, or to what the mark says?
  bool can_go_back(const Target& target) const;
  bool can_repair() const;

  // Reads the whole database. "" when it is what its mark says; otherwise how it differs.
  std::string find_drift();

  const qimctl::Database& database() const { return database_; }

 private:
  struct Plan;
  Held commit(qimctl::WriteSession& writer, const Plan& plan);
  void require_base(uint32_t session, const Held& held, uint64_t revision);
  void check(uint32_t before, uint32_t after, const std::set<uint32_t>& touched,
             const Plan& plan) const;
  void keep_way_back(uint32_t session, const Held& held, const std::string& back) const;
  std::optional<std::string> way_back(const Held& from, const Target& target) const;
  void keep_snapshot(const Held& held, uint32_t session) const;
  std::optional<std::string> kept(const std::string& name, const std::string& head) const;

  DeviceOptions options_;
  qimctl::Database database_;
  BlockDigests digests_;
  uint64_t digests_of_ = 0;  // the commit that they belong to, 0 = none
  SeenHead seen_;
};

// The parts of what a device does, for who puts them together.
Held read_mark(uint32_t session);
void write_mark(uint32_t session, const Held& held);

}  // namespace qim::fleet
