// Access lists: what is the same, and what is found by its name.
#include "policy/model/model.h"

#include <algorithm>

#include "policy/base/dsetname.h"

namespace qimctl {

namespace {

template <typename Named>
const Named* find_named(const std::vector<Named>& all, std::string_view name) {
  const auto found =
      std::find_if(all.begin(), all.end(), [name](const Named& one) { return one.name == name; });
  return found == all.end() ? nullptr : &*found;
}

bool same_criterion(const Criterion& a, const Criterion& b) {
  return a.type == b.type && a.args == b.args;
}

}  // namespace

bool same_entry(const Entry& a, const Entry& b) {
  return a.name == b.name && a.forwarding == b.forwarding && a.log == b.log &&
         a.policer == b.policer &&
         std::equal(a.criteria.begin(), a.criteria.end(), b.criteria.begin(), b.criteria.end(),
                    same_criterion);
}

const AccessList* find_list(const Model& model, std::string_view name) {
  return find_named(model.lists, name);
}

const Policer* find_policer(const Model& model, std::string_view name) {
  return find_named(model.policers, name);
}

Problem problem_of(const EmptiedList& list) {
  return {list.place, "access list \"" + list.name + "\": 0 of " + std::to_string(list.entries) +
                          " entries carried; without any it would drop every packet, so it is not "
                          "taken, whatever else may be lost"};
}

std::string attachment_text(const Attachment& attachment) {
  return "if:" + attachment.interface + "/" + direction_name(attachment.dir);
}

}  // namespace qimctl
