// What is odd about the access lists of a policy, in words.
#pragma once

#include <string>
#include <vector>

#include "policy/base/json.h"
#include "policy/model/model.h"

namespace qimctl {

struct ListNote {
  std::string list;
  std::string entry;                // "" = the list as a whole
  std::string kind;                 // fault_name, or "unattached"
  std::vector<std::string> others;  // entries of the list
  std::string what;                 // "is never reached: a and b decide all its packets"
  Place place;                      // in a file, if the model was read from one

  // An ordinary policy is full of exceptions that come before the rule.
  bool is_conflict() const { return kind == "conflict"; }
  // Something that whoever wrote it did not mean.
  bool is_fault() const { return !is_conflict() && kind != "unattached" && kind != "gave_up"; }
};

// In the order of lists and entries.
std::vector<ListNote> find_list_notes(const Model& model);
std::string note_text(const ListNote& note);
JsonValue note_json(const ListNote& note);

}  // namespace qimctl
