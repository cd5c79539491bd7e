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

JsonValue unreadable_json(const std::vector<Unreadable>& unreadable) {
  JsonValue lists = JsonValue::array();
  for (const Unreadable& list : unreadable) {
    JsonValue item;
    item.set("name", list.name);
    item.set("node", node_id_text(list.node));
    item.set("unreadable", list.why);
    lists.add(std::move(item));
  }
  return lists;
}

JsonValue to_json(const rov_verify_t& file, const std::vector<Found>& defects,
                  const std::vector<Unreadable>& unreadable, const std::vector<ListNote>& notes) {
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
  value.set("unreadable", unreadable_json(unreadable));
  value.set("findings", std::move(findings));
  return value;
}

void print_notes(const std::vector<ListNote>& notes, bool verbose) {
  for (const ListNote& note : notes)
    if (verbose || !note.is_conflict()) print(note_text(note) + "\n");
}

std::string tally(const std::vector<ListNote>& notes, bool verbose) {
  const auto conflicts = static_cast<size_t>(std::count_if(
      notes.begin(), notes.end(), [](const ListNote& note) { return note.is_conflict(); }));
  return "access lists: " + counted(notes.size() - conflicts, "finding") + ", " +
         counted(conflicts, "conflict") + (conflicts == 0 || verbose ? "" : " (-v lists them)") +
         "\n";
}

bool has_faults(const std::vector<ListNote>& notes) {
  return std::any_of(notes.begin(), notes.end(),
                     [](const ListNote& note) { return note.is_fault(); });
}

void print_text(const rov_verify_t& file, const std::vector<Found>& defects,
                const std::vector<Unreadable>& unreadable, const std::vector<ListNote>& notes,
                bool verbose) {
  for (const Found& found : defects) {
    if (found.defect == Defect::unreadable) continue;  // told below, by name
    print("node " + node_id_text(found.node) + " " + printable(found.what) + "\n");
  }
  for (const Unreadable& list : unreadable)
    print(unreadable_name(list) + " " + printable(unreadable_text(list)) + "\n");
  print_notes(notes, verbose);
  print("file good: " + counted(file.nodes, "node") + ", " + counted(file.records, "record") +
        ", " + counted(file.pages, "page") + " (" + std::to_string(file.free_pages) +
        " free), revision " + std::to_string(file.revision) + "\n");
  if (!notes.empty()) print(tally(notes, verbose));
  print(defects.empty() ? "policy good\n" : "policy: " + counted(defects.size(), "defect") + "\n");
}

void fill_places(const std::vector<Source>& sources, std::vector<ListNote>& notes) {
  std::vector<Finding> placed;
  placed.reserve(notes.size());
  for (const ListNote& note : notes) placed.push_back({Fate::accepted, note.place, ""});
  fill_all_lines(sources, placed);
  for (size_t i = 0; i < notes.size(); i++) notes[i].place = std::move(placed[i].place);
}

// A list may be kept for later: that it is attached nowhere is said, but is no defect.
bool is_idle_list(const Found& found, const StoredModel& stored) {
  const auto is_list = [&found](const StoredList& list) { return list.ids.group() == found.node; };
  const auto is_named = [&found](const Unreadable& list) {
    return list.node == found.node && !list.nameless;
  };
  return found.defect == Defect::unreferenced &&
         (std::any_of(stored.lists.begin(), stored.lists.end(), is_list) ||
          std::any_of(stored.unreadable.begin(), stored.unreadable.end(), is_named));
}

// What is wrong with a node of a list is one defect, not two.
bool is_told(const Unreadable& list, const std::vector<Found>& defects) {
  return std::any_of(defects.begin(), defects.end(), [&list](const Found& found) {
    return found.node == list.node || found.node == list.at ||
           std::find(list.members.begin(), list.members.end(), found.node) != list.members.end();
  });
}

std::vector<Found> all_defects(const ReadSession& session, const StoredModel& stored) {
  std::vector<Found> defects = find_defects(session);
  std::erase_if(defects, [&stored](const Found& found) { return is_idle_list(found, stored); });
  std::vector<Found> lists;
  for (const Unreadable& list : stored.unreadable) {
    if (!list.nameless && !is_told(list, defects))
      lists.push_back({list.node, Defect::unreadable, unreadable_text(list)});
  }
  defects.insert(defects.end(), lists.begin(), lists.end());
  return defects;
}

}  // namespace

bool check_database(const Database& database, const CheckOptions& options) {
  rov_verify_t file;
  require(rov_edit_verify(database.read_handle(), &file),
          "verify the database in " + database.directory());
  const ReadSession session(database);
  const StoredModel stored = read_stored_model(session);
  const std::vector<Found> defects = all_defects(session, stored);
  const std::vector<ListNote> notes = find_list_notes(stored.model);
  is_text(options.form)
      ? print_text(file, defects, stored.unreadable, notes, options.verbose)
      : print_value(to_json(file, defects, stored.unreadable, notes), options.form);
  return defects.empty() && !(options.strict && has_faults(notes));
}

bool check_files(const FileOptions& files, const CheckOptions& options) {
  const PolicyFiles read = read_files(files);
  say_losses(read);
  std::vector<ListNote> notes = find_list_notes(read.model);
  fill_places(read.sources, notes);
  if (is_text(options.form)) {
    print_notes(notes, options.verbose);
    print(counted(read.model.lists.size(), "list") + " looked at\n");
    print(tally(notes, options.verbose));
  } else {
    JsonValue findings = JsonValue::array();
    for (const ListNote& note : notes) findings.add(note_json(note));
    JsonValue value;
    value.set("lists", read.model.lists.size());
    value.set("findings", std::move(findings));
    print_value(value, options.form);
  }
  return !(options.strict && has_faults(notes));
}

}  // namespace qimctl
