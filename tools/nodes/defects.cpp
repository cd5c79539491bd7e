#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "rov_edit.h"
#include "tools/nodes/defects.h"

namespace qimctl {

namespace {

using Types = std::set<uint32_t>;

// The types that a link can lead to; empty where every type of policy will do.
Types targets_of(uint32_t type, uint16_t field) {
  switch (field) {
    case 0x081:  // the next of a list of filters
      return {QIM_NODE_FILTER, QIM_NODE_HFILTER};
    case 0x141:  // the next of a list of actions
      return {QIM_NODE_ACTION, QIM_NODE_HACTION, QIM_NODE_POLICE};
    case 0x282:
    case 0x301:
      return {QIM_NODE_DEF};
    case 0x2c1:
      if (type == QIM_NODE_EDEST || type == QIM_NODE_DSET) return {QIM_NODE_PINST};
      return {};
    default:
      return {};
  }
}

// What a policy is made of, in contrast to where it is applied.
bool is_policy(uint32_t type) {
  return type != QIM_NODE_PINST && type != QIM_NODE_EDEST && type != QIM_NODE_DSET &&
         type != QIM_NODE_DSET_NONAME;
}

bool may_be_named(uint32_t type) {
  return type == QIM_NODE_PINST || type == QIM_NODE_EDEST || type == QIM_NODE_DSET;
}

// What must be known of a node to judge others by.
struct Known {
  uint32_t type = 0;  // 0: undecodable
  qim_pinst_fields_t fields{};
};

class Checker {
 public:
  explicit Checker(uint32_t session) : session_(session) {}

  std::vector<Found> run() {
    each_node([this](const rov_node_parms_t& parms) { learn(parms); });
    each_node([this](const rov_node_parms_t& parms) { check(parms); });
    return std::move(found_);
  }

 private:
  template <typename Visit>
  void each_node(Visit visit) {
    rov_node_id_t after{};
    rov_node_parms_t parms;
    uint32_t status = 0;
    while ((status = rov_node_next(session_, after, &parms)) == 0) {
      visit(parms);
      after = parms.id;
    }
    if (status != ROV_ERR_NO_ITEM) require(status, "list the nodes");
  }

  void report(Defect defect, const std::string& what) { found_.push_back({id_, defect, what}); }

  // A status of the database itself ends the check.
  void learn(const rov_node_parms_t& parms) {
    id_ = qim_from_rov_node_id(&parms.id);
    qim_node_t record;
    const uint32_t status = qim_node_read(session_, id_, 0, &record);
    Known& known = known_[id_];
    if (status == ROV_OK) {
      known.type = record.type;
      if (may_be_named(record.type)) known.fields = record.body.pinst.fields;
      return;
    }
    if (!is_about_contents(status)) require(status, "read node " + node_id_text(id_));
    undecodable_[id_] = DatabaseError(status, "read it").what();
  }

  void check(const rov_node_parms_t& parms) {
    id_ = qim_from_rov_node_id(&parms.id);
    const Known& node = known_[id_];
    const auto broken = undecodable_.find(id_);
    if (broken != undecodable_.end()) {
      report(Defect::undecodable, "is not understood: " + broken->second);
    } else {
      check_name(parms, node);
    }
    if (parms.refs == 0 && parms.dset_len == 0 && (parms.flags & ROV_NODE_DSET) == 0) {
      report(Defect::unreferenced,
             "is referred to by nothing and is no data set, so no policy uses it");
    }
    check_links(parms, node);
  }

  void check_name(const rov_node_parms_t& parms, const Known& node) {
    const bool named = parms.dset_len != 0;
    const std::string type = node_type_name(node.type);
    if (named && !may_be_named(node.type)) {
      report(Defect::data_set_name, "has a data-set name, which no " + type + " has");
    }
    if (!named && (node.type == QIM_NODE_EDEST || node.type == QIM_NODE_DSET)) {
      report(Defect::data_set_name, "is an " + type + " without data-set name");
    }
    if (!named || !may_be_named(node.type)) return;
    qim_dsetname_t name{};
    require(rov_node_data_get(session_, parms.id, 0, nullptr, sizeof name, &name, 0, nullptr),
            "read the data-set name of node " + node_id_text(id_));
    if (dset_to_json(name).is_string()) {
      report(Defect::data_set_name,
             "has a data-set name of no known destination: " + hex_bytes(&name, sizeof name));
    }
    if (node.type == QIM_NODE_EDEST) check_place(name, node);
  }

  // A destination is looked for by its policy instance and its place, and by the name made of both.
  void check_place(const qim_dsetname_t& name, const Known& node) {
    qim_link_t link;
    const uint32_t status = qim_link_field_get(session_, id_, 0x2c1, &link);
    if (status != ROV_OK && status != ROV_ERR_NO_LINK) {
      require(status, "read the link ln_2c1 of node " + node_id_text(id_));
    }
    if (status == ROV_ERR_NO_LINK) {
      report(Defect::dangling, "is an enforcement destination without policy instance (ln_2c1)");
    }
    const auto pinst = known_.find(link.node);
    if (pinst != known_.end() && pinst->second.type == QIM_NODE_PINST) {
      check_agreement(node.fields, link.node, pinst->second.fields);
    }
    const std::string place(reinterpret_cast<const char*>(&node.fields.dest),
                            sizeof node.fields.dest);
    const std::string bytes(reinterpret_cast<const char*>(&name), sizeof name);
    const auto [first, is_new] = places_.emplace(std::to_string(link.node) + place, id_);
    const auto [bearer, is_new_name] = places_.emplace(bytes, id_);
    if (is_new && is_new_name) return;
    report(Defect::same_place, "is enforced at the same place as node " +
                                   node_id_text(is_new ? bearer->second : first->second) + ": " +
                                   dset_text(node.fields));
  }

  void check_agreement(const qim_pinst_fields_t& fields, uint32_t pinst,
                       const qim_pinst_fields_t& instance) {
    if (instance.dest.fmt == 0 || fields.type == instance.type) return;
    report(Defect::data_set_name, "has the name of another policy type (" + dset_text(fields) +
                                      ") than its policy instance " + node_id_text(pinst) + " (" +
                                      dset_text(instance) + ")");
  }

  void check_links(const rov_node_parms_t& parms, const Known& node) {
    rov_link_t link;
    uint32_t status = 0;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, parms.id, n, &link)) == 0; n++) {
      const std::string name = slot_name(link.field);
      const uint32_t target = qim_from_rov_node_id(&link.node);
      const uint32_t second = qim_from_rov_node_id(&link.node2);
      check_target(node, link.field, name, target);
      if (second != 0 && !known_.contains(second)) report_dangling(name, second);
    }
    if (status != ROV_ERR_NO_LINK) require(status, "read the links of node " + node_id_text(id_));
  }

  void report_dangling(const std::string& link, uint32_t target) {
    report(Defect::dangling,
           "has a link " + link + " to node " + node_id_text(target) + ", which is not there");
  }

  void check_target(const Known& node, uint16_t field, const std::string& name, uint32_t id) {
    const auto target = known_.find(id);
    if (target == known_.end()) {
      report_dangling(name, id);
      return;
    }
    // Links that no slot holds may lead anywhere.
    if (node.type == 0 || target->second.type == 0 || !has_slot(node.type, field)) return;
    const Types types = targets_of(node.type, field);
    const uint32_t type = target->second.type;
    if (types.empty() ? is_policy(type) : types.contains(type)) return;
    report(Defect::target_type, "has a link " + name + " to node " + node_id_text(id) +
                                    ", which can't be a " + node_type_name(type));
  }

  uint32_t session_;
  uint32_t id_ = 0;  // of the node that is looked at
  std::unordered_map<uint32_t, Known> known_;
  std::unordered_map<uint32_t, std::string> undecodable_;
  std::map<std::string, uint32_t> places_;
  std::vector<Found> found_;
};

}  // namespace

std::vector<Found> find_defects(const ReadSession& session) {
  return Checker(session.handle()).run();
}

}  // namespace qimctl
