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
#include "policy/store/stored_node.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

// Would this give back the node byte for byte?
bool is_faithful(const JsonValue& value, const StoredNode& stored) {
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
JsonValue with_rest(JsonValue value, std::optional<JsonValue> dset, const StoredNode& stored) {
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

void add_private(const StoredNode& stored, JsonValue& value) {
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
std::optional<JsonValue> record_form(const ReadSession& session, const StoredNode& stored) {
  try {
    const NodeImage image = read_node(session, stored.number());
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

JsonValue raw_form(const StoredNode& stored) {
  JsonValue body;
  body.set("flags", stored.flags);
  body.set("tlv", hex_bytes(stored.tlv));
  JsonValue value;
  value.set("id", node_id_text(stored.number()));
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
  StoredNodeReader reader(session);
  CheckedOutput output;
  output.put("{\"format\":\"" + std::string(native_format_name) + "\",\"version\":1,\"nodes\":[\n");
  const char* separator = "";
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const StoredNode stored = reader.read(parms);
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
