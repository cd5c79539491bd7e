#include "tools/nodes/queries.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "schema/args_field.h"
#include "schema/rows.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

void print_record(const qim_node_t& record, bool json) {
  if (json) {
    print(record_to_json(record).dump(2) + "\n");
    return;
  }
  const std::string contents = body_summary(record);
  print(node_id_text(record.id) + "  " + node_type_name(record.type) +
        (contents.empty() ? "" : "  " + contents) + "\n");
}

void print_records(const std::vector<qim_node_t>& records, const char* noun, bool json) {
  if (json) {
    ordered_json list = ordered_json::array();
    for (const qim_node_t& record : records) list.push_back(record_to_json(record));
    print(list.dump(2) + "\n");
    return;
  }
  TextTable table({"NODE", "TYPE", "CONTENTS"});
  for (const qim_node_t& record : records) {
    table.add({node_id_text(record.id), node_type_name(record.type), body_summary(record)});
  }
  if (!records.empty()) print(table.text());
  print(counted(records.size(), noun) + "\n");
}

std::vector<uint32_t> referrers(const ReadSession& session, const qim_node_t& record) {
  uint32_t* ids = nullptr;
  uint32_t count = 0;
  require(qim_ref_get_all(session.handle(), &record, &ids, &count),
          "list the referrers of " + node_id_text(record.id));
  const std::unique_ptr<uint32_t, decltype(&free)> owned(ids, free);
  return {ids, ids + count};
}

// `purpose` completes "cannot ... 0x00000001".
qim_node_t read_typed(const ReadSession& session, uint32_t id, uint32_t type,
                      const std::string& purpose) {
  const qim_node_t record = read_record(session, id);
  if (record.type == type) return record;
  throw DatabaseError(
      QIM_ERR_NODE_TYPE, purpose + " " + node_id_text(id),
      "it is of type " + node_type_name(record.type) + ", not " + node_type_name(type));
}

// "Action or Def"
std::string types_with_arguments() {
  std::string names;
  for (const qim::schema::NodeType* type : qim::schema::types_by_code.at) {
    if (type == nullptr || part_of(*type, qim::schema::Coding::args) == nullptr) continue;
    names += (names.empty() ? "" : " or ") + std::string(type->name);
  }
  return names;
}

std::vector<uint8_t> arguments(const ReadSession& session, const qim_node_t& record) {
  const qim::schema::Row* row =
      part_of(*qim::schema::node_type(record.type), qim::schema::Coding::args);
  if (row == nullptr) {
    throw DatabaseError(
        QIM_ERR_NODE_TYPE, "read the arguments of " + node_id_text(record.id),
        "it is of type " + node_type_name(record.type) + ", not " + types_with_arguments());
  }
  const NodeImage image = read_node(session, record.id);
  const auto [bytes, length] =
      qim::schema::args_at(&image.record.body, row->position, row->length_at);
  return {bytes, bytes + length};
}

void print_bytes(const std::vector<uint8_t>& bytes, bool json) {
  const std::string text = private_text(bytes.data(), bytes.size());
  if (json) {
    print(ordered_json(hex_bytes(bytes)).dump() + "\n");
  } else {
    print((bytes.empty() ? "none" : hex_bytes(bytes)) + (text.empty() ? "" : "  " + text) + "\n");
  }
}

}  // namespace

void print_referrers(const ReadSession& session, uint32_t id, bool json) {
  std::vector<qim_node_t> records;
  for (const uint32_t referrer : referrers(session, read_record(session, id))) {
    records.push_back(read_record(session, referrer));
  }
  print_records(records, "referrer", json);
}

void print_edests(const ReadSession& session, uint32_t pinst, bool json) {
  const qim_node_t instance =
      read_typed(session, pinst, QIM_NODE_PINST, "list the enforcement destinations of");
  std::vector<qim_node_t> records;
  for (uint32_t n = 0; n < instance.refs; n++) {
    qim_node_t record{};
    const uint32_t status = qim_pinst_edest_get(session.handle(), pinst, n, &record);
    if (status == QIM_ERR_INVALID) break;  // there is no n-th
    require(status, "read the enforcement destinations of " + node_id_text(pinst));
    records.push_back(record);
  }
  print_records(records, "enforcement destination", json);
}

void print_edest_at(const ReadSession& session, uint32_t pinst, const qim_policy_dest_t& dest,
                    bool json) {
  const std::string purpose = "find that enforcement destination of";
  const qim_node_t instance = read_typed(session, pinst, QIM_NODE_PINST, purpose);
  qim_node_t record{};
  require(qim_pinst_edest_lookup(session.handle(), &instance, &dest, &record),
          purpose + " " + node_id_text(pinst));
  print_record(record, json);
}

void print_dset_named(const ReadSession& session, const qim_dsetname_t& name, bool json) {
  qim_dsetname_t copy = name;
  qim_pinst_t pinst{};
  qim_pinst_from_dsetname(&pinst.fields, &copy);
  qim_node_t record{};
  require(qim_ses_pinst_name_get(session.handle(), &pinst, &record), "find that data set");
  print_record(record, json);
}

void print_dset_at(const ReadSession& session, uint32_t selector, bool json) {
  qim_node_t record{};
  require(qim_ses_pinst_get(session.handle(), selector, &record),
          "find data set number " + std::to_string(selector));
  print_record(record, json);
}

void print_criteria(const ReadSession& session, uint32_t id, bool json) {
  const qim_node_t record = read_typed(session, id, QIM_NODE_FILTER, "read the criteria of");
  std::vector<uint64_t> room(record.body.filter.crit_bytes / sizeof(uint64_t) + 1);
  const auto bytes = static_cast<uint32_t>(room.size() * sizeof(uint64_t));
  if (record.body.filter.crit_cnt == 0) {
    print(json ? "[]\n" : "none\n");
    return;
  }
  require(qim_filter_criteria_get(session.handle(), id, bytes, room.data()),
          "read the criteria of " + node_id_text(id));
  ordered_json list = ordered_json::array();
  for (const auto* crit = reinterpret_cast<const qim_criterion_t*>(room.data()); crit != nullptr;
       crit = crit->next) {
    const std::string text = criterion_text(crit->type, {crit->args, crit->args_len});
    list.push_back(
        {{"type", crit->type}, {"args", hex_bytes(crit->args, crit->args_len)}, {"text", text}});
    if (!json) print(text + "\n");
  }
  if (json) print(list.dump(2) + "\n");
}

void print_args(const ReadSession& session, uint32_t id, bool json) {
  print_bytes(arguments(session, read_record(session, id)), json);
}

void print_private(const ReadSession& session, uint32_t id, bool json) {
  print_bytes(read_private(session, read_record(session, id)), json);
}

void set_private(const ReadSession& session, uint32_t id, const std::vector<uint8_t>& data) {
  const auto length = static_cast<uint32_t>(data.size());
  require_node(qim_node_priv_set(session.handle(), id, data.data(), length),
               "set the private data of " + node_id_text(id));
}

void print_shown(const Database& database, const ReadSession& session, uint32_t id) {
  std::string text;
  rov_show_req_t request{};
  request.ses = session.handle();
  request.what = ROV_SHOW_NODE;
  request.node = database_id(id);
  // Collected first: the database's caller must not be left by an exception.
  request.out = [](const char* piece, void* to) { *static_cast<std::string*>(to) += piece; };
  request.arg = &text;
  const uint32_t status = qim_db_show_internal(database.handle(), &request);
  print(text);
  require_node(status, "show node " + node_id_text(id));
}

}  // namespace qimctl
