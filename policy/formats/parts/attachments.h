// Where access lists are attached, in the order in which files name them.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "policy/formats/parts/notes.h"
#include "policy/model/model.h"

namespace qimctl::formats {

// Attaches lists behind those that are at an interface and direction already.
class Attacher {
 public:
  // Reports a list that is there already.
  void attach(Notes& notes, Model& model, const Attachment& wanted);

 private:
  std::map<std::pair<std::string, uint8_t>, std::set<std::string>> lists_;
};

// The lists at one interface in the order of their stages.
struct InterfaceLists {
  std::string name;
  std::vector<const Attachment*> in;
  std::vector<const Attachment*> out;
};
// Interfaces in the order of their first list; those of `lists` alone. One whose name no file can have
// is left out, and among the findings.
std::vector<InterfaceLists> lists_by_interface(const Model& model,
                                               const std::set<std::string>& lists,
                                               std::vector<Finding>& findings);

// Could a file have this as a name of `max` characters at most? If not, why?
std::string name_obstacle(const std::string& name, size_t max);

}  // namespace qimctl::formats
