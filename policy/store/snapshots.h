// Snapshots of a database that are kept under a name.
#pragma once

#include <cstdint>
#include <string>

#include "policy/store/database.h"
#include "rov_edit.h"

namespace qimctl {

// A snapshot, open as long as the object lives. The database makes one that is not there, so whoever
// does not mean to looks first (snapshot_paths).
class Snapshot {
 public:
  // path: "nightly", or with a group in front, "acme://edge-7/nightly".
  Snapshot(const Database& database, const std::string& path);
  ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  uint32_t handle() const { return handle_; }
  // What is in its file.
  rov_verify_t verify() const;

 private:
  std::string path_;
  uint32_t handle_ = 0;
};

// Is there one of that path?
bool has_snapshot(const Database& database, const std::string& path);

// Makes one. Throws DatabaseError when there is one of that path already.
rov_verify_t make_snapshot(const Database& database, const std::string& path);
// Removes one. Throws DatabaseError when there is none, or when there are others whose paths begin
// with its own and a '/', which the database would take away with it.
void remove_snapshot(const Database& database, const std::string& path);

// Throws DatabaseError with what is said of a path that no snapshot has.
void require_snapshot(const Database& database, const std::string& path);

}  // namespace qimctl
