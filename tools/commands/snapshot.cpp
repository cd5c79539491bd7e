// `qimctl snapshot`: states of a database that are kept under a name.
#include "tools/commands/snapshot.h"

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/snapshots.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"

namespace qimctl {

namespace {

JsonValue snapshot_json(const std::string& name, const rov_verify_t& file) {
  JsonValue value;
  value.set("snapshot", name);
  value.set("revision", file.revision);
  value.set("nodes", file.nodes);
  value.set("bytes", file.bytes);
  return value;
}

void add_snapshot(Rows& rows, const std::string& name, const rov_verify_t& file) {
  if (!rows.is_text()) return rows.add(snapshot_json(name, file));
  rows.add({printable(name), std::to_string(file.revision), std::to_string(file.nodes),
            std::to_string(file.bytes), ""});
}

// One that can't be read does not hide the others.
void add_damaged(Rows& rows, const std::string& name, const std::string& why) {
  if (rows.is_text()) return rows.add({printable(name), "", "", "", printable(why)});
  JsonValue value;
  value.set("snapshot", name);
  value.set("damage", why);
  rows.add(value);
}

std::vector<std::string> paths_in(const std::string& directory) {
  return snapshot_paths(Database(directory, OpenMode::read));
}

}  // namespace

void make_snapshot_named(const Database& database, const std::string& name, OutputForm form) {
  const rov_verify_t file = make_snapshot(database, name);
  if (!is_text(form)) return print_value(snapshot_json(name, file), form);
  print("made snapshot " + quoted(name) + " of revision " + std::to_string(file.revision) + ", " +
        counted(file.nodes, "node") + "\n");
}

bool list_snapshots(const std::string& directory, OutputForm form) {
  size_t damaged = 0;
  Rows rows(form, {{"SNAPSHOT"}, {"REVISION"}, {"NODES"}, {"BYTES"}, {""}});
  for (const std::string& path : paths_in(directory)) {
    try {
      const Database database(directory, OpenMode::read, path);
      rov_verify_t file;
      require(rov_edit_verify(database.read_handle(), &file),
              "verify the snapshot " + quoted(path));
      add_snapshot(rows, path, file);
    } catch (const DatabaseError& error) {
      add_damaged(rows, path, error.what());
      damaged++;
    }
  }
  rows.finish("snapshot");
  if (damaged != 0) complain(counted(damaged, "snapshot") + " can't be read");
  return damaged == 0;
}

void remove_snapshot_named(const Database& database, const std::string& name, OutputForm form) {
  remove_snapshot(database, name);
  if (is_text(form)) return print("removed snapshot " + quoted(name) + "\n");
  JsonValue value;
  value.set("removed", name);
  print_value(value, form);
}

}  // namespace qimctl
