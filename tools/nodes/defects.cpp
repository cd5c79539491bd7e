// What is wrong with the policy in a database.
#include "tools/nodes/defects.h"

#include <map>
#include <unordered_map>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "rov_edit.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Naming;
using qim::schema::NodeType;

// NULL for the type of a node that is not understood.
const NodeType* type_of(uint32_t code) {
  return qim::schema::node_type(code);
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
    each_node(session_, [this](const rov_node_parms_t& parms) { learn(parms); });
    each_node(session_, [this](const rov_node_parms_t& parms) { check(parms); });
    return std::move(found_);
  }

 private:
  void report(Defect defect, const std::string& what) { found_.push_back({id_, defect, what}); }

  // A status of the database itself ends the check.
  void learn(const rov_node_parms_t& parms) {
    id_ = qim_from_rov_node_id(&parms.id);
    qim_node_t record;
    const uint32_t status = qim_node_read(session_, id_, 0, &record);
    Known& known = known_[id_];
    if (status == ROV_OK) {
      known.type = record.type;
      const bool named = type_of(record.type)->naming != Naming::never;
      if (named) known.fields = record.body.pinst.fields;
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
    const NodeType& type = *type_of(node.type);
    if (named && type.naming == Naming::never) {
      report(Defect::data_set_name,
             std::string("has a data-set name, which no ") + type.name + " has");
    }
    if (!named && (type.naming == Naming::expected || type.naming == Naming::required)) {
      report(Defect::data_set_name, std::string("is an ") + type.name + " without data-set name");
    }
    if (!named || type.naming == Naming::never) return;
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
    const uint32_t status = qim_link_field_get(session_, id_, QIM_LN_PINST, &link);
    if (status != ROV_OK && status != ROV_ERR_NO_LINK) {
      require(status, "read the link " + slot_name(QIM_LN_PINST) + " of node " + node_id_text(id_));
    }
    if (status == ROV_ERR_NO_LINK) {
      report(Defect::dangling, "is an enforcement destination without policy instance (" +
                                   slot_name(QIM_LN_PINST) + ")");
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
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, parms.id, n, &link)) == ROV_OK;
         n++) {
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
    const NodeType* from = type_of(node.type);
    const NodeType* to = type_of(target->second.type);
    if (from == nullptr || to == nullptr) return;
    const qim::schema::Row* slot = qim::schema::slot_of(*from, field);
    // Links that no slot holds may lead anywhere.
    if (slot == nullptr || (slot->leads_to & from->leads_to & to->family) != 0) return;
    report(Defect::target_type, "has a link " + name + " to node " + node_id_text(id) +
                                    ", which can't be a " + to->name);
  }

  uint32_t session_;
  uint32_t id_ = 0;  // of the node that is looked at
  std::unordered_map<uint32_t, Known> known_;
  std::unordered_map<uint32_t, std::string> undecodable_;
  std::map<std::string, uint32_t> places_;
  std::vector<Found> found_;
};

}  // namespace

const char* defect_name(Defect defect) {
  switch (defect) {
    case Defect::undecodable:
      return "undecodable";
    case Defect::dangling:
      return "dangling";
    case Defect::target_type:
      return "target_type";
    case Defect::unreferenced:
      return "unreferenced";
    case Defect::data_set_name:
      return "data_set_name";
    case Defect::same_place:
      return "same_place";
    case Defect::unreadable:
      break;
  }
  return "unreadable";
}

std::vector<Found> find_defects(const ReadSession& session) {
  return Checker(session.handle()).run();
}

}  // namespace qimctl
