// `qimctl check`: the database's file, and what the policy in it says.
#include "tools/commands/check.h"

#include <utility>

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "rov_edit.h"
#include "tools/base/output.h"
#include "tools/nodes/defects.h"

namespace qimctl {

namespace {

void print_json(const rov_verify_t& file, const std::vector<Found>& defects) {
  JsonValue list = JsonValue::array();
  for (const Found& found : defects) {
    JsonValue item;
    item.set("node", node_id_text(found.node));
    item.set("defect", defect_name(found.defect));
    item.set("what", found.what);
    list.add(std::move(item));
  }
  JsonValue value;
  value.set("nodes", file.nodes);
  value.set("records", file.records);
  value.set("revision", file.revision);
  value.set("bytes", file.bytes);
  value.set("pages", file.pages);
  value.set("free_pages", file.free_pages);
  value.set("defects", std::move(list));
  print(value.dump_repaired(2) + "\n");
}

void print_text(const rov_verify_t& file, const std::vector<Found>& defects) {
  for (const Found& found : defects) {
    print("node " + node_id_text(found.node) + " " + printable(found.what) + "\n");
  }
  print("file good: " + counted(file.nodes, "node") + ", " + counted(file.records, "record") +
        ", " + counted(file.pages, "page") + " (" + std::to_string(file.free_pages) +
        " free), revision " + std::to_string(file.revision) + "\n");
  print(defects.empty() ? "policy good\n" : "policy: " + counted(defects.size(), "defect") + "\n");
}

}  // namespace

bool check_database(const Database& database, bool json) {
  rov_verify_t file;
  require(rov_edit_verify(database.handle(), &file),
          "verify the database in " + database.directory());
  const std::vector<Found> defects = find_defects(ReadSession(database));
  json ? print_json(file, defects) : print_text(file, defects);
  return defects.empty();
}

}  // namespace qimctl
