// Where access lists are attached, in the order in which files name them.
#include "policy/formats/parts/attachments.h"

#include <algorithm>

#include "policy/base/criteria_codes.h"
#include "policy/base/text.h"

namespace qimctl::formats {

void Attacher::attach(Notes& notes, Model& model, const Attachment& wanted) {
  std::set<std::string>& lists = lists_[{wanted.interface, wanted.dir}];
  const std::string where = attachment_text(wanted);
  if (!lists.insert(wanted.list).second)
    return notes.problem(wanted.place, "access list " + in_quotes(wanted.list) +
                                           " is attached twice to " + where + "; remove one");
  if (lists.size() > policy_type_stages)
    return notes.problem(wanted.place, "more than " + std::to_string(policy_type_stages) +
                                           " access lists at " + where + "; merge some of them");
  model.attachments.push_back(wanted);
  model.attachments.back().stage = static_cast<uint32_t>(lists.size());
}

std::vector<InterfaceLists> lists_by_interface(const Model& model,
                                               const std::set<std::string>& lists,
                                               std::vector<Finding>& findings) {
  std::vector<InterfaceLists> interfaces;
  std::map<std::string, size_t> known;
  for (const Attachment& attachment : model.attachments) {
    if (!lists.contains(attachment.list)) continue;
    const auto [at, added] = known.emplace(attachment.interface, interfaces.size());
    if (added) interfaces.push_back({attachment.interface, {}, {}});
    InterfaceLists& interface = interfaces[at->second];
    (attachment.dir == QIM_DIR_IN ? interface.in : interface.out).push_back(&attachment);
  }
  for (InterfaceLists& interface : interfaces)
    for (auto* attached : {&interface.in, &interface.out})
      std::stable_sort(attached->begin(), attached->end(),
                       [](const auto* a, const auto* b) { return a->stage < b->stage; });
  std::erase_if(interfaces, [&findings](const InterfaceLists& interface) {
    const std::string obstacle = name_obstacle(interface.name, std::string::npos);
    if (obstacle.empty()) return false;
    findings.push_back({Fate::skipped,
                        {interface.name, 0, ""},
                        "interface left out, for its name can't be one: " + obstacle});
    return true;
  });
  return interfaces;
}

std::string name_obstacle(const std::string& name, size_t max) {
  if (name.empty()) return "it is empty";
  if (!reads_as_text(name)) return "it is no text";
  if (std::any_of(name.begin(), name.end(), is_forbidden)) return "it holds control characters";
  if (characters(name) > max) return "it is longer than " + std::to_string(max) + " characters";
  return "";
}

}  // namespace qimctl::formats
