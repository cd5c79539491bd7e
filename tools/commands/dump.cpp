#include "tools/commands/dump.h"

#include <nlohmann/json.hpp>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "policy/store/store_policy.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr uint32_t largest_private = 1U << 20;

// A node as the database keeps it.
struct Stored {
  rov_node_id_t id{};
  uint32_t flags = 0;
  std::vector<uint8_t> tlv;
  std::vector<uint8_t> dset;
  std::vector<rov_link_t> links;
  std::vector<ClientData> clients;
};

class StoreReader {
 public:
  explicit StoreReader(uint32_t session) : session_(session), room_(largest_private) {}

  Stored read(const rov_node_parms_t& parms) {
    Stored node;
    node.id = parms.id;
    node.flags = parms.flags;
    node.tlv.resize(parms.tlv_len);
    node.dset.resize(parms.dset_len);
    require(rov_node_data_get(session_, parms.id, parms.tlv_len, node.tlv.data(), parms.dset_len,
                              node.dset.data(), 0, nullptr),
            "read node " + name_of(node));
    read_links(node);
    read_clients(node);
    return node;
  }

 private:
  static std::string name_of(const Stored& node) {
    return node_id_text(qim_from_rov_node_id(&node.id));
  }

  void read_links(Stored& node) {
    rov_link_t link;
    uint32_t status = 0;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, node.id, n, &link)) == 0; n++) {
      node.links.push_back(link);
    }
    if (status != ROV_ERR_NO_LINK) require(status, "read the links of node " + name_of(node));
  }

  void read_clients(Stored& node) {
    uint32_t client = 0;
    uint32_t length = 0;
    uint32_t status = 0;
    for (uint32_t n = 0; (status = rov_edit_priv_nth(session_, node.id, n, &client, largest_private,
                                                     room_.data(), &length)) == 0;
         n++) {
      node.clients.push_back({client, {room_.begin(), room_.begin() + length}});
    }
    if (status != ROV_ERR_NO_VALUE) require(status, "read private data of node " + name_of(node));
  }

  uint32_t session_;
  std::vector<uint8_t> room_;
};

// What criteria mean is said for people only.
void drop_comments(ordered_json& value) {
  if (!value.contains("body") || !value["body"].contains("crit")) return;
  for (ordered_json& criterion : value["body"]["crit"]) criterion.erase("comment");
}

// Would this give back the node byte for byte?
bool is_faithful(const ordered_json& value, const Stored& stored) {
  Node node = read_native_node(json::parse(value.dump()));
  Policy policy;
  policy.nodes.push_back(std::move(node));
  const Node& same = policy.nodes.front();
  const bool named = same.dset.has_value();
  const bool dset_equal =
      stored.dset.size() == (named ? sizeof(*same.dset) : 0) &&
      // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): packed, so every byte counts
      (!named || memcmp(&*same.dset, stored.dset.data(), sizeof(*same.dset)) == 0);
  return dset_equal && database_flags(same) == stored.flags && encode_node(same) == stored.tlv &&
         check_policies({policy}).empty();
}

ordered_json link_value(const rov_link_t& link) {
  const uint32_t node2 = qim_from_rov_node_id(&link.node2);
  const std::string node = node_id_text(qim_from_rov_node_id(&link.node));
  if (node2 == 0 && link.val == 0 && link.tag == 0) return node;
  ordered_json value;
  value["node"] = node;
  if (node2 != 0) value["node2"] = node_id_text(node2);
  if (link.val != 0) value["val"] = link.val;
  if (link.tag != 0) value["tag"] = link.tag;
  return value;
}

void add_links(const Stored& stored, ordered_json& value) {
  for (const rov_link_t& link : stored.links) {
    value["links"][slot_name(link.field)] = link_value(link);
  }
}

void add_private(const Stored& stored, ordered_json& value) {
  for (const ClientData& data : stored.clients) {
    if (data.client == client_id) value["priv"] = hex_bytes(data.data);
  }
  for (const ClientData& data : stored.clients) {
    if (data.client != client_id)
      value["private"][hex_number(data.client, 8)] = hex_bytes(data.data);
  }
}

ordered_json with_rest(ordered_json value, const ordered_json& dset, const Stored& stored) {
  add_links(stored, value);
  if (!dset.is_null()) value["dset"] = dset;
  return value;
}

// The node in terms of its record; nothing when that says less or something else.
std::optional<ordered_json> record_form(const ReadSession& session, const Stored& stored) {
  try {
    ordered_json whole = node_to_json(read_node(session, qim_from_rov_node_id(&stored.id)));
    const ordered_json dset = whole.value("dset", ordered_json());
    for (const char* member : {"computed", "links", "dset", "priv"}) whole.erase(member);
    drop_comments(whole);
    if (!node_type_code(whole["type"].get<std::string>())) return std::nullopt;
    ordered_json value = with_rest(std::move(whole), dset, stored);
    if (is_faithful(value, stored)) return value;
  } catch (const DatabaseError& error) {
    if (!is_about_contents(error.status())) throw;
  }
  return std::nullopt;
}

ordered_json raw_form(const Stored& stored) {
  ordered_json value;
  value["id"] = node_id_text(qim_from_rov_node_id(&stored.id));
  value["type"] = raw_type_name;
  value["body"]["flags"] = stored.flags;
  value["body"]["tlv"] = hex_bytes(stored.tlv);
  const ordered_json dset =
      stored.dset.empty() ? ordered_json() : ordered_json(hex_bytes(stored.dset));
  return with_rest(std::move(value), dset, stored);
}

// Prints, and sums up what was printed.
class CheckedOutput {
 public:
  void put(const std::string& text) {
    checksum_ = rov_crc32c(checksum_, text.data(), static_cast<uint32_t>(text.size()));
    print(text);
  }
  std::string checksum() const { return checksum_digits(checksum_); }

 private:
  uint32_t checksum_ = 0;
};

}  // namespace

void dump_database(const ReadSession& session) {
  StoreReader reader(session.handle());
  CheckedOutput output;
  output.put("{\"format\":\"" + std::string(native_format_name) + "\",\"version\":1,\"nodes\":[\n");
  rov_node_id_t after{};
  rov_node_parms_t parms;
  const char* separator = "";
  uint32_t status = 0;
  while ((status = rov_node_next(session.handle(), after, &parms)) == 0) {
    const Stored stored = reader.read(parms);
    std::optional<ordered_json> value = record_form(session, stored);
    if (!value) value = raw_form(stored);
    add_private(stored, *value);
    output.put(separator + value->dump());
    separator = ",\n";
    after = parms.id;
  }
  if (status != ROV_ERR_NO_ITEM) require(status, "list the nodes");
  output.put("\n],\n");
  print("\"checksum\":\"" + output.checksum() + "\"}\n");
}

}  // namespace qimctl
