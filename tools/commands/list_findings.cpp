// What is odd about the access lists of a policy, in words.
#include "tools/commands/list_findings.h"

#include <utility>

#include "policy/analysis/list_analysis.h"
#include "policy/base/text.h"
#include "policy/model/words.h"

namespace qimctl {

namespace {

// "a", "a and b", "a, b and 7 more".
std::string names_text(const std::vector<std::string>& names) {
  constexpr size_t most = 4;
  const size_t shown = names.size() > most ? most - 1 : names.size();
  std::string text;
  for (size_t i = 0; i < shown; i++) {
    const bool last = i + 1 == names.size();
    text += (i == 0 ? "" : last ? " and " : ", ") + name_word(names[i]);
  }
  if (shown < names.size()) text += " and " + std::to_string(names.size() - shown) + " more";
  return text;
}

std::string what(const EntryFinding& finding, const std::vector<std::string>& others) {
  const std::string names = names_text(others);
  switch (finding.fault) {
    case EntryFault::impossible:
      return "can never match: " + finding.what;
    case EntryFault::shadowed:
      return "is never reached: " + names + (others.size() == 1 ? " decides" : " decide") +
             " all its packets" + (finding.same_verdict ? ", in the same way" : ", otherwise");
    case EntryFault::redundant:
      return "is redundant: without it " + (others.empty() ? "the default" : names) +
             (others.size() > 1 ? " do the same" : " does the same");
    case EntryFault::conflict:
      return "is in conflict with " + names + ", before it: what both match is decided otherwise";
    case EntryFault::undecided:
      return "is for another model to decide, before " + names + ", which would decide otherwise";
    case EntryFault::gave_up:
      break;
  }
  return "was not analysed to the end: it would have taken too long";
}

// Many write down at the end what happens to all the rest.
bool says_default(const EntryFinding& finding, const AccessList& list) {
  return finding.fault == EntryFault::redundant && finding.others.empty() &&
         list.entries[finding.entry].criteria.empty();
}

}  // namespace

std::vector<ListNote> find_list_notes(const Model& model) {
  std::vector<ListNote> notes;
  for (const AccessList& list : model.lists) {
    if (!is_attached(model, list))
      notes.push_back({list.name, "", "unattached", {}, "is attached nowhere", list.place});
    for (const EntryFinding& finding : analyse_list(list, hands_on(model, list)).findings) {
      if (says_default(finding, list)) continue;
      std::vector<std::string> others;
      for (const size_t other : finding.others) others.push_back(list.entries[other].name);
      const std::string text = what(finding, others);
      const Entry& entry = list.entries[finding.entry];
      notes.push_back(
          {list.name, entry.name, fault_name(finding.fault), std::move(others), text, entry.place});
    }
  }
  return notes;
}

std::string note_text(const ListNote& note) {
  const std::string place = note.place.file.empty() ? "" : harmless(to_string(note.place)) + ": ";
  return place + name_word(note.list) + (note.entry.empty() ? "" : "/" + name_word(note.entry)) +
         " " + note.what;
}

JsonValue note_json(const ListNote& note) {
  JsonValue others = JsonValue::array();
  for (const std::string& other : note.others) others.add(other);
  JsonValue value;
  value.set("list", note.list);
  value.set("entry", note.entry);
  value.set("finding", note.kind);
  value.set("others", std::move(others));
  value.set("what", note.what);
  if (note.place.file.empty()) return value;
  value.set("file", note.place.file);
  value.set("line", note.place.line);
  value.set("path", note.place.path);
  return value;
}

}  // namespace qimctl
