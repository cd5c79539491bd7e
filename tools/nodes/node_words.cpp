// Nodes in words.
#include "tools/nodes/node_words.h"

#include <optional>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/formats/native/node_json.h"
#include "policy/model/name_hash.h"
#include "policy/model/words.h"
#include "policy/store/node_scan.h"
#include "qim_acl.h"
#include "rov.h"

namespace qimctl {

namespace {

void append(std::string& text, const std::string& part) {
  if (!text.empty() && !part.empty()) text += ", ";
  text += part;
}

using NameGet = uint32_t (*)(uint32_t, qim_node_id_t, uint32_t, char*, uint32_t*);

// A node's name through one of the calls of the installed header. Nothing when it has none, or none
// that can be read.
std::optional<std::string> read_name(const ReadSession& session, NameGet get, uint32_t id) {
  std::string name;
  uint32_t length = 0;
  uint32_t status = get(session.handle(), id, 0, nullptr, &length);
  if (status == QIM_ERR_BUF_SMALL) {
    name.resize(length + 1);
    status = get(session.handle(), id, length + 1, name.data(), &length);
    name.resize(length);
  }
  if (status == QIM_POLICY_NO_NAME || status == ROV_ERR_NO_ITEM || is_about_contents(status))
    return std::nullopt;
  require(status, "read the name of node " + node_id_text(id));
  return name;
}

std::string in_quotes(const std::optional<std::string>& name) {
  return name ? quoted(*name) : "";
}

// The list that a Pinst leads to; 0 when it leads nowhere.
uint32_t policy_of(const ReadSession& session, uint32_t id) {
  return linked_node(session.handle(), id, QIM_LN_PINST);
}

// The place that a list is attached to, which the interface's name tells.
std::string place_name(const std::optional<std::string>& interface, uint8_t dir) {
  return interface ? "if:" + bare_name(*interface) + "/" + direction_name(dir) : "";
}

std::string instance_name(const ReadSession& session, uint32_t id) {
  const std::optional<std::string> list =
      read_name(session, qim_list_name_get, policy_of(session, id));
  return list ? "of " + quoted(*list) : "";
}

std::string entry_name(const qim_filter_t& filter) {
  const qim_criterion_t* name = name_of(filter);
  if (name == nullptr) return "";
  return quoted({name->args, name->args + name->args_len});
}

// What the nodes say that it is called.
std::string stored_name(const ReadSession& session, const qim_node_t& record) {
  switch (record.type) {
    case QIM_NODE_GROUP:
      return in_quotes(read_name(session, qim_list_name_get, record.id));
    case QIM_NODE_FILTER:
      return entry_name(record.body.filter);
    case QIM_NODE_ACTION:
      return in_quotes(read_name(session, qim_policy_name_get, record.id));
    case QIM_NODE_POLICE:
      return in_quotes(read_name(session, qim_policer_name_get, record.id));
    case QIM_NODE_PINST:
      return instance_name(session, record.id);
    case QIM_NODE_EDEST:
      return place_name(read_name(session, qim_interface_name_get, record.id),
                        record.body.pinst.fields.dir);
    default:
      return "";
  }
}

// What an entry matches, and what becomes of its packets where that is not the usual.
std::string filter_words(qim_node_t record) {
  qim_filter_t& filter = record.body.filter;
  Entry entry;
  read_criteria(filter, entry.criteria);
  std::string text = criteria_words(entry);
  filter.crit_cnt = 0;
  filter.crit_bytes = 0;
  if (filter.match == QIM_LINK_TRUE) filter.match = 0;
  if (filter.nomatch == QIM_LINK_NEXT) filter.nomatch = 0;
  append(text, members_summary(record));
  return text;
}

// Actions, defaults and groups: their types have names.
std::string typed_words(qim_node_t record) {
  std::string text = body_type_name(record);
  if (record.type == QIM_NODE_GROUP && !text.empty()) {
    text += ", " + list_type_words(record.body.group.subtype);
    record.body.group.type = record.body.group.subtype = 0;
  } else if (record.type == QIM_NODE_ACTION && !text.empty()) {
    if (record.body.action.type == QIM_ACTION_NAME) record.body.action.args_len = 0;
    record.body.action.type = 0;
  } else if (!text.empty()) {
    record.body.def.type = 0;
  }
  append(text, members_summary(record));
  return text;
}

std::string police_words(const qim_node_t& record) {
  const qim_action_bw_t& committed = record.body.police.comt_bw;
  const qim_action_bw_t& peak = record.body.police.peak_bw;
  const uint32_t unit = committed.rate_units;
  const bool plain = (unit == QIM_UNIT_BYTES || unit == QIM_UNIT_PACKETS) &&
                     committed.burst_units == unit && peak.rate_units == unit &&
                     peak.burst_units == unit;
  if (!plain) return members_summary(record);
  return policer_words({"", static_cast<Policer::Unit>(unit), committed.rate, committed.burst,
                        peak.rate, peak.burst});
}

// Is it the destination that the name alone makes of an interface, or the list of an instance?
bool is_implied(const ReadSession& session, const qim_node_t& record) {
  const qim_policy_dest_t& dest = record.body.pinst.fields.dest;
  qim_policy_dest_t implied{};
  implied.fmt = dest.fmt;
  if (record.type == QIM_NODE_EDEST) {
    const auto name = read_name(session, qim_interface_name_get, record.id);
    if (!name || dest.fmt != QIM_DEST_IF) return false;
    implied.intf.ifix = interface_index(*name);
  } else {
    if (record.type != QIM_NODE_PINST || dest.fmt != QIM_DEST_GEN) return false;
    implied.gen.v32a = policy_of(session, record.id);
  }
  return qim_policy_dest_cmp(&implied, &dest) == 0;
}

std::string place_words(const ReadSession& session, const qim_node_t& record) {
  const qim_pinst_fields_t& fields = record.body.pinst.fields;
  std::string text;
  if (is_implied(session, record)) {
    text = policy_type_words(fields.type);
    // The name of a place tells the direction.
    if (record.type == QIM_NODE_PINST) append(text, direction_name(fields.dir));
  } else if (has_dset(record)) {
    text = dset_words(fields);
  }
  append(text, members_summary(record));
  return text;
}

std::string words_of(const ReadSession& session, const qim_node_t& record) {
  switch (record.type) {
    case QIM_NODE_FILTER:
      return filter_words(record);
    case QIM_NODE_ACTION:
    case QIM_NODE_DEF:
    case QIM_NODE_GROUP:
      return typed_words(record);
    case QIM_NODE_POLICE:
      return police_words(record);
    default:
      return place_words(session, record);
  }
}

}  // namespace

std::string node_name(const ReadSession& session, const NodeImage& node) {
  const std::string name = stored_name(session, node.record);
  return name.empty() ? private_text(node.record.priv_buf, node.record.priv_len) : name;
}

std::string node_words(const ReadSession& session, const NodeImage& node, bool coded) {
  std::string text;
  if (!coded) {
    text = node_name(session, node);
    append(text, words_of(session, node.record));
    return text;
  }
  // The summary has these names already.
  const bool has_name = node.record.type == QIM_NODE_FILTER || node.record.type == QIM_NODE_ACTION;
  if (!has_name) text = stored_name(session, node.record);
  append(text, node_summary(node));
  return text;
}

std::string target_words(const ReadSession& session, uint32_t id, bool coded) {
  qim_node_t record;
  const uint32_t status = qim_node_read(session.handle(), id, 0, &record);
  if (status == ROV_ERR_NO_ITEM) return node_id_text(id) + " (missing)";
  if (is_about_contents(status)) return node_id_text(id) + " (undecodable)";
  require(status, "read node " + node_id_text(id));
  const std::string text = node_id_text(id) + " " + node_type_name(record.type);
  const NodeImage node = read_contents(session, id);
  const std::string name = node_name(session, node);
  const std::string type = coded ? "" : body_type_name(node.record);
  const bool says_all = name.empty() && !type.empty();
  return text + (name.empty() ? "" : " " + name) + (says_all ? " " + type : "");
}

const std::string& GroupWords::words(uint32_t group) {
  const auto [known, is_new] = known_.try_emplace(group);
  if (is_new && group != 0) {
    const auto name = read_name(session_, qim_list_name_get, group);
    known->second = name ? quoted(*name) : std::to_string(group);
  }
  return known->second;
}

}  // namespace qimctl
