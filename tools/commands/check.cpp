// `qimctl check`: the database's file, and what the policy in it says.
#include "tools/commands/check.h"

#include <algorithm>
#include <utility>

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/stored_model.h"
#include "rov_edit.h"
#include "tools/base/output.h"
#include "tools/commands/list_findings.h"
#include "tools/nodes/defects.h"

namespace qimctl {

namespace {

void print_json(const rov_verify_t& file, const std::vector<Found>& defects,
                const std::vector<ListNote>& notes) {
  JsonValue findings = JsonValue::array();
  for (const ListNote& note : notes) findings.add(note_json(note));
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
  value.set("findings", std::move(findings));
  print(value.dump_repaired(2) + "\n");
}

void print_text(const rov_verify_t& file, const std::vector<Found>& defects,
                const std::vector<ListNote>& notes, bool verbose) {
  for (const Found& found : defects) {
    print("node " + node_id_text(found.node) + " " + printable(found.what) + "\n");
  }
  size_t conflicts = 0;
  for (const ListNote& note : notes) {
    if (note.is_conflict()) conflicts++;
    if (verbose || !note.is_conflict()) print(note_text(note) + "\n");
  }
  print("file good: " + counted(file.nodes, "node") + ", " + counted(file.records, "record") +
        ", " + counted(file.pages, "page") + " (" + std::to_string(file.free_pages) +
        " free), revision " + std::to_string(file.revision) + "\n");
  if (!notes.empty()) {
    print("access lists: " + counted(notes.size() - conflicts, "finding") + ", " +
          counted(conflicts, "conflict") + (conflicts == 0 || verbose ? "" : " (-v lists them)") +
          "\n");
  }
  print(defects.empty() ? "policy good\n" : "policy: " + counted(defects.size(), "defect") + "\n");
}

// A list may be kept for later: that it is attached nowhere is said, but is no defect.
bool is_idle_list(const Found& found, const StoredModel& stored) {
  return found.defect == Defect::unreferenced &&
         std::any_of(stored.lists.begin(), stored.lists.end(),
                     [&found](const StoredList& list) { return list.ids.group() == found.node; });
}

}  // namespace

bool check_database(const Database& database, const CheckOptions& options) {
  rov_verify_t file;
  require(rov_edit_verify(database.handle(), &file),
          "verify the database in " + database.directory());
  const ReadSession session(database);
  const StoredModel stored = read_stored_model(session);
  std::vector<Found> defects = find_defects(session);
  std::erase_if(defects, [&stored](const Found& found) { return is_idle_list(found, stored); });
  const std::vector<ListNote> notes = find_list_notes(stored.model);
  options.json ? print_json(file, defects, notes)
               : print_text(file, defects, notes, options.verbose);
  const bool faulty =
      options.strict &&
      std::any_of(notes.begin(), notes.end(), [](const ListNote& note) { return note.is_fault(); });
  return defects.empty() && !faulty;
}

}  // namespace qimctl
