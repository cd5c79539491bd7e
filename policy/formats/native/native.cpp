// Reading the native format.
#include "policy/formats/native/native.h"

#include <algorithm>

#include "policy/base/dsetname.h"
#include "policy/base/json_text.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "policy/formats/native/native_schema.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Row;

uint32_t u32_of(JsonView value) {
  return static_cast<uint32_t>(number_from_json(value));
}

uint32_t optional_u32(JsonView object, const char* member) {
  const JsonView found = object.find(member);
  return found ? u32_of(found) : 0;
}

Criterion read_criterion(JsonView value, const qim::schema::Record& record) {
  Criterion criterion;
  for (const Row& row : record) {
    const JsonView member = value.find(row.name);
    if (!member) continue;
    if (row.coding == Coding::integer) criterion.type = u32_of(member);
    if (row.coding == Coding::args) criterion.args = bytes_from_json(member);
  }
  return criterion;
}

void read_body(JsonView body, const qim::schema::Record& record, Node& node) {
  for (const Row& row : record) {
    const JsonView value = body.find(row.name);
    if (!value) continue;
    if (is_input(row)) {
      row_from_json(row, value, &node.record.body);
    } else if (row.coding == Coding::args) {
      node.args = bytes_from_json(value);
    } else if (row.coding == Coding::list) {
      for (size_t i = 0; i < value.size(); i++) {
        node.criteria.push_back(read_criterion(value[i], *row.record));
      }
    }
  }
}

Link read_link(uint16_t field, JsonView value) {
  Link link;
  link.field = field;
  if (!value.is_object()) {
    link.node = u32_of(value);
    return link;
  }
  link.node = u32_of(value.at("node"));
  link.node2 = optional_u32(value, "node2");
  link.val = optional_u32(value, "val");
  link.tag = static_cast<uint16_t>(optional_u32(value, "tag"));
  return link;
}

RawContents read_raw(JsonView body) {
  RawContents raw;
  raw.flags = optional_u32(body, "flags");
  if (const JsonView tlv = body.find("tlv")) raw.tlv = bytes_from_json(tlv);
  return raw;
}

// The checksum covers all bytes in front of its line.
bool is_checksum_right(const std::string& text, JsonView checksum) {
  const size_t line = text.rfind("\n\"checksum\"");
  return line != text.npos && checksum.is(checksum_text(text.substr(0, line + 1)));
}

class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  Policy read(JsonView document) {
    Policy policy;
    const JsonView nodes = document.at("nodes");
    policy.nodes.reserve(nodes.size());
    for (size_t i = 0; i < nodes.size(); i++) {
      policy.nodes.push_back(read_node(nodes[i], pointer_to("/nodes", i)));
    }
    return policy;
  }

  std::vector<Problem>& problems() { return problems_; }

  Node read_node(JsonView value, const std::string& path) {
    Node node;
    node.place = {file_, 0, path};
    node.id = u32_of(value.at("id"));
    if (value.at("type").is(raw_type_name)) {
      node.raw = read_raw(value.at("body"));
    } else {
      read_record(value, node);
    }
    if (const JsonView links = value.find("links")) {
      read_links(links, pointer_to(path, "links"), node);
    }
    if (const JsonView name = value.find("dset")) node.dset = dset_from_json(name);
    if (const JsonView own = value.find("priv")) node.priv = bytes_from_json(own);
    if (value.find("private")) read_clients(value, pointer_to(path, "private"), node);
    return node;
  }

 private:
  static void read_record(JsonView value, Node& node) {
    node.record.type = type_of(value.at("type"));
    node.record.group = optional_u32(value, "group");
    node.record.flags = optional_u32(value, "flags");
    const qim::schema::NodeType* type = qim::schema::node_type(node.record.type);
    if (const JsonView body = value.find("body")) read_body(body, *type->body, node);
  }

  static uint32_t type_of(JsonView value) {
    if (!value.is_string()) return u32_of(value);
    return node_type_code(value.text()).value();
  }

  // One link may be named in two ways, which the schema can't see.
  void read_links(JsonView links, const std::string& path, Node& node) {
    links.each([&](const std::string& name, JsonView value) {
      const uint16_t field = link_field(name).value();
      const bool again = std::any_of(node.links.begin(), node.links.end(),
                                     [field](const Link& link) { return link.field == field; });
      if (again) {
        problems_.push_back({{file_, 0, pointer_to(path, name)},
                             "is the link " + slot_name(field) +
                                 ", which this node has already under another spelling; "
                                 "remove one of the two"});
      } else {
        node.links.push_back(read_link(field, value));
      }
    });
  }

  // So may one client, and this tool's data have a member of their own.
  void read_clients(JsonView value, const std::string& path, Node& node) {
    value.at("private").each([&](const std::string& name, JsonView data) {
      const auto client = static_cast<uint32_t>(*parse_number(name));
      const bool again =
          std::any_of(node.clients.begin(), node.clients.end(),
                      [client](const ClientData& other) { return other.client == client; });
      if (again) {
        refuse_client(pointer_to(path, name), client, "under another spelling");
      } else if (client == client_id && value.find("priv")) {
        refuse_client(pointer_to(path, name), client, "in the member priv");
      } else {
        node.clients.push_back({client, bytes_from_json(data)});
      }
    });
  }

  void refuse_client(const std::string& path, uint32_t client, const std::string& where) {
    problems_.push_back({{file_, 0, path},
                         "is the private data of client " + hex_number(client, 8) +
                             ", which this node has already " + where + "; remove one of the two"});
  }

  const std::string& file_;
  std::vector<Problem> problems_;
};

[[noreturn]] void refuse(const std::string& text, const std::string& file,
                         std::vector<Problem> problems) {
  fill_lines(text, file, problems);
  std::stable_sort(problems.begin(), problems.end(),
                   [](const Problem& a, const Problem& b) { return a.place.line < b.place.line; });
  throw InputError(std::move(problems));
}

}  // namespace

std::string checksum_text(const std::string& text) {
  return checksum_digits(rov_crc32c(0, text.data(), static_cast<uint32_t>(text.size())));
}

std::string checksum_digits(uint32_t checksum) {
  return hex_number(checksum, 8).substr(2);
}

Node read_native_node(JsonView value) {
  const std::string file;
  return Reader(file).read_node(value, "");
}

Policy read_native(const std::string& text, const std::string& file) {
  const JsonDocument parsed = parse_json(text, file);
  const JsonView document = parsed.view();
  std::vector<Problem> broken = check_native_schema(document, file);
  if (!broken.empty()) refuse(text, file, std::move(broken));
  const JsonView checksum = document.find("checksum");
  if (checksum && !is_checksum_right(text, checksum)) {
    refuse(text, file,
           {{{file, 0, "/checksum"},
             "is not that of the file: it was damaged or changed after it was written; take an "
             "undamaged one, or import it without this member if the changes are wanted"}});
  }
  Reader reader(file);
  Policy policy = reader.read(document);
  policy.checked = static_cast<bool>(checksum);
  if (!reader.problems().empty()) refuse(text, file, std::move(reader.problems()));
  return policy;
}

}  // namespace qimctl
