#include "tools/commands/check.h"

#include <nlohmann/json.hpp>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "rov_edit.h"
#include "tools/base/output.h"
#include "tools/nodes/defects.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

void print_json(const rov_verify_t& file, const std::vector<Found>& defects) {
  ordered_json list = ordered_json::array();
  for (const Found& found : defects) {
    list.push_back({{"node", node_id_text(found.node)},
                    {"defect", defect_name(found.defect)},
                    {"what", found.what}});
  }
  const ordered_json value = {
      {"nodes", file.nodes}, {"records", file.records}, {"revision", file.revision},
      {"bytes", file.bytes}, {"pages", file.pages},     {"free_pages", file.free_pages},
      {"defects", list}};
  print(value.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
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

const char* defect_name(Defect defect) {
  switch (defect) {
    case Defect::undecodable:
      return "undecodable";
    case Defect::dangling:
      return "dangling";
    case Defect::target_type:
      return "target_type";
    case Defect::unreferenced:
      return "unreferenced";
    case Defect::data_set_name:
      return "data_set_name";
    case Defect::same_place:
      break;
  }
  return "same_place";
}

bool check_database(const Database& database, bool json) {
  rov_verify_t file;
  require(rov_edit_verify(database.handle(), &file),
          "verify the database in " + database.directory());
  const std::vector<Found> defects = find_defects(ReadSession(database));
  json ? print_json(file, defects) : print_text(file, defects);
  return defects.empty();
}

}  // namespace qimctl
