// Making, opening and removing snapshots.
#include "policy/store/snapshots.h"

#include <algorithm>

#include "policy/base/text.h"
#include "rov.h"

namespace qimctl {

Snapshot::Snapshot(const Database& database, const std::string& path) : path_(path) {
  require(snapshot_open(database.handle(), path, &handle_), "open the snapshot " + quoted(path));
}

Snapshot::~Snapshot() {
  rov_snapshot_close(handle_);
}

rov_verify_t Snapshot::verify() const {
  rov_verify_t report;
  require(rov_edit_verify(handle_, &report), "verify the snapshot " + quoted(path_));
  return report;
}

bool has_snapshot(const Database& database, const std::string& path) {
  const std::vector<std::string> paths = snapshot_paths(database);
  return std::find(paths.begin(), paths.end(), path) != paths.end();
}

rov_verify_t make_snapshot(const Database& database, const std::string& path) {
  if (has_snapshot(database, path))
    throw DatabaseError(ROV_ERR_INVALID, "make the snapshot " + quoted(path),
                        "there is one of that name; remove it first, or take another name");
  return Snapshot(database, path).verify();
}

void require_snapshot(const Database& database, const std::string& path) {
  if (has_snapshot(database, path)) return;
  throw DatabaseError(ROV_ERR_NO_ITEM, "find the snapshot " + quoted(path),
                      "there is none of that name; 'qimctl snapshot list' names those that are");
}

void remove_snapshot(const Database& database, const std::string& path) {
  require_snapshot(database, path);
  for (const std::string& other : snapshot_paths(database)) {
    if (other.starts_with(path + "/"))
      throw DatabaseError(ROV_ERR_INVALID, "remove the snapshot " + quoted(path),
                          "the snapshot " + quoted(other) +
                              " lies below it and would go with it; remove that one first");
  }
  require(rov_db_uri_rm(database.handle(), path.c_str()), "remove the snapshot " + quoted(path));
}

}  // namespace qimctl
