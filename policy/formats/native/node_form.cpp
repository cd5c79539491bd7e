// Which form a node has where a whole database is written.
#include "policy/formats/native/node_form.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "policy/base/dsetname.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/node_text.h"
#include "policy/store/node_image.h"
#include "policy/store/store_policy.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

// Would this text give back the node byte for byte?
bool is_faithful(const std::string& text, const StoredNode& stored) {
  std::vector<Policy> policies(1);
  policies.front().nodes.push_back(read_native_node(parse_json(text, "").view()));
  const Node& same = policies.front().nodes.front();
  const bool named = same.dset.has_value();
  const bool dset_equal =
      stored.dset.size() == (named ? sizeof(*same.dset) : 0) &&
      // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): packed, so every byte counts
      (!named || memcmp(&*same.dset, stored.dset.data(), sizeof(*same.dset)) == 0);
  return dset_equal && database_flags(same) == stored.flags && encode_node(same) == stored.tlv &&
         check_policies(policies).empty();
}

}  // namespace

bool NodeForm::append(std::string& to, const rov_node_parms_t& parms) {
  reader_.read(parms, stored_);
  const size_t begin = to.size();
  if (append_record(to, parms)) return true;
  to.resize(begin);
  append_raw_form(to, stored_);
  return false;
}

// Of a node whose type has no names: its text says all that is encoded of a record, so the record is
// encoded in place of what would be read.
bool NodeForm::is_encoded_as_stored(const qim_node_t& record) {
  if (stored_.flags != 0 || !stored_.dset.empty()) return false;
  const uint32_t room = qim_node_get_tlv_sz(&record);
  if (room == UINT32_MAX) return false;
  tlv_.resize(std::max<size_t>(tlv_.size(), room));
  uint32_t length = 0;
  return qim_node_to_tlv(&record, tlv_.data(), room, &length, nullptr, 0) == ROV_OK &&
         length == stored_.tlv.size() &&
         std::equal(stored_.tlv.begin(), stored_.tlv.end(), tlv_.begin());
}

// The node in terms of its record; false when that says less or something else.
bool NodeForm::append_record(std::string& to, const rov_node_parms_t& parms) {
  qim_node_t* node = nullptr;
  const uint32_t status =
      qim_int_node_open(session_.handle(), stored_.number(), &parms, 0, &node, qim_lib_get());
  if (is_about_contents(status)) return false;
  if (status != ROV_OK) require(status, "read node " + node_id_text(stored_.number()));
  const auto close = [](qim_node_t* open) { qim_int_node_close(open, qim_lib_get()); };
  const std::unique_ptr<qim_node_t, decltype(close)> owned(node, close);
  const size_t begin = to.size();
  const qim::schema::NodeType* type = qim::schema::tlv_type(node->type);
  if (type != nullptr && type->naming == qim::schema::Naming::never) {
    append_record_form(to, *node, "", stored_);
    return is_encoded_as_stored(*node);
  }
  const std::string name =
      has_dset(*node) ? dset_to_json(name_of(node->body.pinst.fields)).dump() : "";
  append_record_form(to, *node, name, stored_);
  return is_faithful(to.substr(begin), stored_);
}

}  // namespace qimctl
