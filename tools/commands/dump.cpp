// `qimctl dump`: a whole database as one file.
#include "tools/commands/dump.h"

#include <cstring>
#include <optional>
#include <utility>

#include "policy/base/dsetname.h"
#include "policy/base/json_text.h"
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
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, node.id, n, &link)) == ROV_OK; n++) {
      node.links.push_back(link);
    }
    if (status != ROV_ERR_NO_LINK) require(status, "read the links of node " + name_of(node));
  }

  void read_clients(Stored& node) {
    uint32_t client = 0;
    uint32_t length = 0;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_edit_priv_nth(session_, node.id, n, &client, largest_private,
                                                     room_.data(), &length)) == ROV_OK;
         n++) {
      node.clients.push_back({client, {room_.begin(), room_.begin() + length}});
    }
    if (status != ROV_ERR_NO_VALUE) require(status, "read private data of node " + name_of(node));
  }

  uint32_t session_;
  std::vector<uint8_t> room_;
};

// Would this give back the node byte for byte?
bool is_faithful(const JsonValue& value, const Stored& stored) {
  Node node = read_native_node(parse_json(value.dump(), "").view());
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

// Adds what stands in a file beside a node's contents.
JsonValue with_rest(JsonValue value, std::optional<JsonValue> dset, const Stored& stored) {
  JsonValue links;
  for (const rov_link_t& link : stored.links) {
    qim_link_t form{};
    form.node = qim_from_rov_node_id(&link.node);
    form.node2 = qim_from_rov_node_id(&link.node2);
    form.val = link.val;
    form.tag = link.tag;
    links.set(slot_name(link.field), link_to_json(form));
  }
  if (!links.is_empty()) value.set("links", std::move(links));
  if (dset) value.set("dset", *std::move(dset));
  return value;
}

void add_private(const Stored& stored, JsonValue& value) {
  JsonValue others;
  for (const ClientData& data : stored.clients) {
    if (data.client == client_id) {
      value.set("priv", hex_bytes(data.data));
    } else {
      others.set(hex_number(data.client, 8), hex_bytes(data.data));
    }
  }
  if (!others.is_empty()) value.set("private", std::move(others));
}

// The node in terms of its record; nothing when that says less or something else.
std::optional<JsonValue> record_form(const ReadSession& session, const Stored& stored) {
  try {
    const NodeImage image = read_node(session, qim_from_rov_node_id(&stored.id));
    if (!node_type_code(node_type_name(image.record.type))) return std::nullopt;
    std::optional<JsonValue> dset;
    if (image.dset) dset = dset_to_json(*image.dset);
    JsonValue value = with_rest(contents_to_json(image), std::move(dset), stored);
    if (is_faithful(value, stored)) return value;
  } catch (const DatabaseError& error) {
    if (!is_about_contents(error.status())) throw;
  }
  return std::nullopt;
}

JsonValue raw_form(const Stored& stored) {
  JsonValue body;
  body.set("flags", stored.flags);
  body.set("tlv", hex_bytes(stored.tlv));
  JsonValue value;
  value.set("id", node_id_text(qim_from_rov_node_id(&stored.id)));
  value.set("type", raw_type_name);
  value.set("body", std::move(body));
  std::optional<JsonValue> dset;
  if (!stored.dset.empty()) dset = hex_bytes(stored.dset);
  return with_rest(std::move(value), std::move(dset), stored);
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
  const char* separator = "";
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const Stored stored = reader.read(parms);
    std::optional<JsonValue> value = record_form(session, stored);
    if (!value) value = raw_form(stored);
    add_private(stored, *value);
    output.put(separator + value->dump());
    separator = ",\n";
  });
  output.put("\n],\n");
  print("\"checksum\":\"" + output.checksum() + "\"}\n");
}

}  // namespace qimctl
