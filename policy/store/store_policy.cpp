// Writing policies into a database.
#include "policy/store/store_policy.h"

#include <algorithm>
#include <unordered_set>

#include "policy/base/names.h"
#include "policy/store/node_edits.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Row;

bool is_dset_node(const Node& node) {
  return qim::schema::is_of(node.record.type, qim::schema::family::data_sets);
}

// The record of a node as the codec takes it: its pointers lead into the node and into this object.
// Nothing is written through them.
class EncodableRecord {
 public:
  explicit EncodableRecord(const Node& node)
      : record_(node.record), criteria_(node.criteria.size()) {
    const qim::schema::NodeType* type = qim::schema::node_type(record_.type);
    if (type == nullptr) return;
    if (const Row* row = args_of(*type)) attach(node.args, *row, &record_.body);
    if (list_of(*type) != nullptr) attach(node.criteria, record_.body.filter);
  }
  EncodableRecord(const EncodableRecord&) = delete;
  EncodableRecord& operator=(const EncodableRecord&) = delete;

  const qim_node_t* get() const { return &record_; }

 private:
  static void attach(const std::vector<uint8_t>& args, const Row& row, void* record) {
    *qim::schema::length_at(record, row.length_at) = static_cast<uint32_t>(args.size());
    *qim::schema::bytes_at(record, row.position) =
        args.empty() ? nullptr : const_cast<uint8_t*>(args.data());
  }

  void attach(const std::vector<Criterion>& criteria, qim_filter_t& filter) {
    for (size_t i = 0; i < criteria.size(); i++) {
      criteria_[i].type = criteria[i].type;
      criteria_[i].next = i + 1 < criteria.size() ? &criteria_[i + 1] : nullptr;
      criteria_[i].args_len = static_cast<uint32_t>(criteria[i].args.size());
      criteria_[i].args =
          criteria[i].args.empty() ? nullptr : const_cast<uint8_t*>(criteria[i].args.data());
    }
    filter.crit = criteria_.empty() ? nullptr : criteria_.data();
  }

  qim_node_t record_;
  std::vector<qim_criterion_t> criteria_;
};

class Writer {
 public:
  Writer(const std::vector<Policy>& policies, uint32_t session, const StoreOptions& options)
      : policies_(policies), session_(session), options_(options) {}

  StoreCounts write() {
    make_room();
    refuse_if_any();
    each_node([this](const Node& node) {
      put_node(node);
      if (options_.stored) options_.stored();
    });
    each_node([this](const Node& node) {
      for (const Link& link : node.links) put_link(node, link);
    });
    refuse_if_any();
    return counts_;
  }

 private:
  template <typename Visit>
  void each_node(Visit visit) const {
    for (const Policy& policy : policies_) {
      for (const Node& node : policy.nodes) visit(node);
    }
  }

  void report(const Node& node, const std::string& message) {
    problems_.push_back({node.place, "node " + node_id_text(node.id) + " " + message});
  }

  void refuse_if_any() {
    if (!problems_.empty()) throw InputError(std::move(problems_));
  }

  bool stored(uint32_t id) const { return is_stored(session_, id); }

  // Finds the nodes that the database has already, and removes them if that is wanted.
  void make_room() {
    each_node([this](const Node& node) {
      known_.insert(node.id);
      if (!stored(node.id)) return;
      if (!options_.replace) {
        report(node, "is in the database already; import with --replace to replace it");
        return;
      }
      delete_node(session_, node.id);
      counts_.replaced++;
    });
  }

  void put_node(const Node& node) {
    qimctl::put_node(session_, node);
    counts_.nodes++;
  }

  void put_link(const Node& node, const Link& link) {
    check_target(node, link, link.node);
    if (link.node2 != 0) check_target(node, link, link.node2);
    qimctl::put_link(session_, node.id, link);
    counts_.links++;
  }

  void check_target(const Node& node, const Link& link, uint32_t target) {
    if (options_.dangling || known_.contains(target) || stored(target)) return;
    report(node, "has a link " + slot_name(link.field) + " to node " + node_id_text(target) +
                     ", which is neither in the input nor in the database; add that node or "
                     "remove the link");
  }

  const std::vector<Policy>& policies_;
  uint32_t session_;
  StoreOptions options_;
  StoreCounts counts_;
  std::unordered_set<uint32_t> known_;
  std::vector<Problem> problems_;
};

}  // namespace

std::vector<uint8_t> encode_node(const Node& node) {
  if (node.raw) return node.raw->tlv;
  if (is_dset_node(node)) return {};
  const EncodableRecord record(node);
  const uint32_t room = qim_node_get_tlv_sz(record.get());
  const std::string attempt = "encode node " + node_id_text(node.id);
  if (room == UINT32_MAX) throw DatabaseError(QIM_ERR_INTERNAL, attempt);
  std::vector<uint8_t> tlv(room);
  uint32_t length = 0;
  require(qim_node_to_tlv(record.get(), tlv.data(), room, &length, nullptr, 0), attempt);
  tlv.resize(length);
  return tlv;
}

std::optional<uint32_t> encode_small(const Node& node, std::span<uint8_t> room) {
  if (node.raw || is_dset_node(node)) return {};
  const EncodableRecord record(node);
  uint32_t length = 0;
  const uint32_t status = qim_node_to_tlv(record.get(), room.data(),
                                          static_cast<uint32_t>(room.size()), &length, nullptr, 0);
  return status == ROV_OK ? std::optional<uint32_t>(length) : std::nullopt;
}

uint32_t database_flags(const Node& node) {
  if (node.raw) return node.raw->flags;
  return is_dset_node(node) ? uint32_t{ROV_NODE_DSET} : 0;
}

StoreCounts write_policies(const std::vector<Policy>& policies, const WriteSession& session,
                           const StoreOptions& options) {
  return Writer(policies, session.handle(), options).write();
}

}  // namespace qimctl
