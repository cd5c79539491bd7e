// Looking at nodes after edits, before they are committed.
#include "fleet/agent/checks.h"

#include <algorithm>
#include <memory>

#include "policy/base/criteria_codes.h"
#include "policy/base/names.h"
#include "policy/store/database.h"
#include "rov_edit.h"

namespace qim::fleet {

namespace {

using qimctl::database_id;
using qimctl::node_id_text;

bool is_there(uint32_t session, const rov_node_id_t& id) {
  rov_node_parms_t parms;
  const uint32_t status = rov_node_parms_get(session, id, &parms);
  if (status != ROV_ERR_NO_ITEM) qimctl::require(status, "look for a node");
  return status == ROV_OK;
}

bool has_unknown(const qim_node_t& node) {
  if (node.type != QIM_NODE_FILTER) return false;
  for (const qim_criterion_t* at = node.body.filter.crit; at != nullptr; at = at->next) {
    if (at->type == qimctl::criterion_opaque) return true;
  }
  return false;
}

// Looks at many nodes, which mostly lead to each other: what was found of one is not asked again.
class Checking {
 public:
  Checking(uint32_t session, const std::vector<uint32_t>& nodes, const CheckOptions& options)
      : session_(session), nodes_(nodes), options_(options), is_here_(nodes.size()) {}

  std::string run() {
    for (size_t at = 0; at < nodes_.size(); at++) {
      const std::string wrong = check_contents(at);
      if (!wrong.empty()) return complaint(nodes_[at], wrong);
    }
    for (size_t at = 0; at < nodes_.size(); at++) {
      const std::string wrong = is_here_[at] ? check_links(database_id(nodes_[at])) : "";
      if (!wrong.empty()) return complaint(nodes_[at], wrong);
    }
    return "";
  }

 private:
  static std::string complaint(uint32_t node, const std::string& wrong) {
    return "node " + node_id_text(node) + " " + wrong;
  }

  std::string check_contents(size_t at) {
    qim_node_t* node = nullptr;
    const uint32_t status =
        qim_int_node_open(session_, nodes_[at], nullptr, 0, &node, qim_lib_get());
    if (status == ROV_ERR_NO_ITEM) return "";
    if (qimctl::is_about_contents(status)) {
      return "is not understood: " + std::string(qimctl::DatabaseError(status, "read it").what());
    }
    qimctl::require(status, "read a node");
    is_here_[at] = true;
    const auto close = [](qim_node_t* open) { qim_int_node_close(open, qim_lib_get()); };
    const std::unique_ptr<qim_node_t, decltype(close)> owned(node, close);
    if (!options_.allow_unknown && has_unknown(*node)) {
      return "has a match that this device can't decide; \"allow_unknown = yes\" takes it all the "
             "same";
    }
    return "";
  }

  bool leads_somewhere(const rov_node_id_t& to) const {
    const uint32_t target = qim_from_rov_node_id(&to);
    if (target == 0) return true;
    const auto found = std::lower_bound(nodes_.begin(), nodes_.end(), target);
    if (found == nodes_.end() || *found != target) return is_there(session_, to);
    return is_here_[static_cast<size_t>(found - nodes_.begin())];
  }

  std::string check_links(const rov_node_id_t& id) const {
    rov_link_t link;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, id, n, &link)) == ROV_OK; n++) {
      for (const rov_node_id_t& to : {link.node, link.node2}) {
        if (leads_somewhere(to)) continue;
        return "leads to node " + node_id_text(qim_from_rov_node_id(&to)) + ", which is not there";
      }
    }
    if (status != ROV_ERR_NO_LINK) qimctl::require(status, "read the links of a node");
    return "";
  }

  uint32_t session_;
  const std::vector<uint32_t>& nodes_;
  const CheckOptions& options_;
  std::vector<bool> is_here_;  // by place in nodes_
};

}  // namespace

std::vector<uint32_t> referrers_of(uint32_t session, uint32_t node) {
  std::vector<uint32_t> found;
  for (uint32_t index = 0;; index++) {
    uint32_t total = 0;
    uint32_t field = 0;
    rov_node_id_t referrer{};
    const uint32_t status =
        rov_node_ref_get(session, database_id(node), index, &total, &field, &referrer);
    if (status == ROV_ERR_NO_ITEM) return found;
    qimctl::require(status, "read who refers to a node");
    found.push_back(qim_from_rov_node_id(&referrer));
  }
}

std::string check_nodes(uint32_t session, const std::vector<uint32_t>& nodes,
                        const CheckOptions& options) {
  return Checking(session, nodes, options).run();
}

}  // namespace qim::fleet
