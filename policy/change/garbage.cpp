// Nodes of access lists that are of no use any more.
#include "policy/change/garbage.h"

#include <set>
#include <unordered_set>

#include "policy/base/names.h"
#include "policy/change/referrers.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

std::set<uint32_t> leftovers(const StoredModel& stored) {
  std::set<uint32_t> left;
  for (const StoredList& list : stored.lists) {
    std::unordered_set<uint32_t> parts(list.ids.filters.begin(), list.ids.filters.end());
    for (const auto& [key, id] : list.ids.parts) parts.insert(id);
    for (const uint32_t id : list.members) {
      if (!parts.contains(id)) left.insert(id);
    }
  }
  return left;
}

bool is_destination(uint32_t session, uint32_t id) {
  qim_node_t record;
  return qim_node_read(session, id, QIM_NODE_EDEST, &record) == ROV_OK;
}

// What a node leads to.
std::vector<uint32_t> targets_of(uint32_t session, uint32_t id) {
  std::vector<uint32_t> targets;
  rov_link_t link;
  for (uint32_t n = 0; rov_node_link_nth(session, database_id(id), n, &link) == ROV_OK; n++) {
    targets.push_back(qim_from_rov_node_id(&link.node));
    targets.push_back(qim_from_rov_node_id(&link.node2));
  }
  return targets;
}

}  // namespace

std::vector<uint32_t> garbage_of(uint32_t session, const StoredModel& stored) {
  std::set<uint32_t> left = leftovers(stored);
  const std::vector<uint32_t> all(left.begin(), left.end());
  std::vector<uint32_t> used;
  for (const uint32_t id : all) {
    if (is_destination(session, id) || has_outside_referrer(session, id, all)) used.push_back(id);
  }
  while (!used.empty()) {
    const uint32_t id = used.back();
    used.pop_back();
    if (left.erase(id) == 0) continue;
    for (const uint32_t target : targets_of(session, id)) {
      if (left.contains(target)) used.push_back(target);
    }
  }
  return {left.begin(), left.end()};
}

}  // namespace qimctl
