// Nodes as objects. Their members are the rows of the records.
#include <pybind11/stl.h>

#include <string_view>
#include <utility>
#include <vector>

#include "bindings/python/module/objects.h"
#include "policy/base/criteria.h"
#include "policy/base/dsetname.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "policy/base/policy.h"
#include "policy/formats/native/node_form.h"
#include "policy/store/node_image.h"
#include "qim_acl.h"
#include "rov.h"
#include "rov_edit.h"
#include "schema/args_field.h"
#include "schema/names.h"
#include "schema/rows.h"

namespace qim_python {

namespace {

using qim::schema::Coding;
using qim::schema::NodeType;
using qim::schema::Record;
using qim::schema::Row;
using qim::schema::Slot;

template <uint32_t code>
struct TypedNode : Node {};
struct RawNode : Node {};

struct Bandwidth {
  qim_action_bw_t record{};
};

// By type code.
py::object (*g_makers[qim::schema::kTypeCodes])(Node&&);

template <uint32_t code>
py::object make_typed(Node&& node) {
  return py::cast(new TypedNode<code>{std::move(node)}, py::return_value_policy::take_ownership);
}

Link to_link(const qim_link_t& link) {
  return {link.field, link.node, link.node2, link.val, link.tag};
}

Link to_link(const rov_link_t& link) {
  return {static_cast<uint16_t>(link.field), qim_from_rov_node_id(&link.node),
          qim_from_rov_node_id(&link.node2), link.val, link.tag};
}

// Is the member one that objects have? Pointers, gaps and what copies leave out are none.
bool is_member(const Row& row) {
  if (row.of == nullptr || std::string_view(row.name).find_first_of(".[") != std::string_view::npos)
    return false;
  return row.copied || row.coding == Coding::list || row.coding == Coding::args;
}

py::object number_of(const Row& row, const void* record) {
  const uint64_t value = qimctl::load(record, row.position, row.width);
  const char* name = row.show_kind == ROV_SHOW_ENUM
                         ? qimctl::link_kind_name(static_cast<uint32_t>(value))
                         : nullptr;
  if (name != nullptr) return py::str(name);
  return py::int_(value);
}

const char* place_of(const Row& row, const void* record) {
  return static_cast<const char*>(record) + row.position;
}

py::list criteria_of(const qimctl::NodeImage& image) {
  py::list list;
  for (const qim_criterion_t* each = image.record.body.filter.crit; each != nullptr;
       each = each->next)
    list.append(qimctl::Criterion{each->type, {each->args, each->args + each->args_len}});
  return list;
}

py::object value_of(const Node& node, const Row& row) {
  const void* body = &node.record.body;
  if (row.slot == Slot::full)
    return py::cast(to_link(*reinterpret_cast<const qim_link_t*>(place_of(row, body))));
  if (row.coding == Coding::record)
    return py::cast(Bandwidth{*reinterpret_cast<const qim_action_bw_t*>(place_of(row, body))});
  if (row.coding != Coding::list && row.coding != Coding::args) return number_of(row, body);
  const qimctl::NodeImage image = qimctl::read_node(node.session->read, node.record.id);
  if (row.coding == Coding::list) return criteria_of(image);
  const auto [bytes, length] =
      qim::schema::args_at(&image.record.body, row.position, row.length_at);
  return to_bytes(bytes, length);
}

bool is_told(const Row& row) {
  return qimctl::is_input(row) || row.coding == Coding::list || row.coding == Coding::args;
}

py::dict members_of(const Node& node) {
  py::dict members;
  const NodeType* type = qim::schema::node_type(node.record.type);
  if (!node.is_understood || type == nullptr) return members;
  if (qim::schema::is_of(node.record.type, qim::schema::family::data_sets)) return members;
  for (const Row& row : *type->body)
    if (is_told(row)) members[row.name] = value_of(node, row);
  return members;
}

template <uint32_t code>
void add_type(py::module_& module, const NodeType& type) {
  static const std::string doc = std::string("A node of type ") + type.name + ".";
  py::class_<TypedNode<code>, Node> made(module, type.name, doc.c_str());
  for (const Row& row : *type.body) {
    if (!is_member(row)) continue;
    made.def_property_readonly(row.name,
                               [&row](const TypedNode<code>& node) { return value_of(node, row); });
  }
  g_makers[code] = make_typed<code>;
}

template <size_t... i>
void add_tlv_types(py::module_& module, std::index_sequence<i...>) {
  (add_type<qim::schema::tlv_types[i].code>(module, qim::schema::tlv_types[i]), ...);
}

template <size_t... i>
void add_dset_types(py::module_& module, std::index_sequence<i...>) {
  (add_type<qim::schema::dset_types[i].code>(module, qim::schema::dset_types[i]), ...);
}

rov_node_parms_t parms_of(const SessionPtr& session, uint32_t id) {
  rov_node_parms_t parms{};
  qimctl::require_node(rov_node_parms_get(session->handle(), qimctl::database_id(id), &parms),
                       "read node " + qimctl::node_id_text(id));
  return parms;
}

qimctl::StoredNode stored_node(const Node& node) {
  return qimctl::StoredNodeReader(node.session->read).read(parms_of(node.session, node.record.id));
}

bool is_exact(const Node& node) {
  std::string text;
  const rov_node_parms_t parms = parms_of(node.session, node.record.id);
  return qimctl::NodeForm(node.session->read).append(text, parms);
}

std::vector<Link> links_of(const Node& node) {
  std::vector<Link> links;
  if (!node.is_understood) {
    for (const rov_link_t& link : stored_node(node).links) links.push_back(to_link(link));
    return links;
  }
  for (const qim_link_t& link : qimctl::read_links(node.session->read, node.record))
    links.push_back(to_link(link));
  return links;
}

py::object follow(const Node& node, uint16_t field) {
  qim_link_t link;
  const uint32_t status = qim_link_field_get(node.session->handle(), node.record.id, field, &link);
  if (status == ROV_ERR_NO_LINK) return py::none();
  qimctl::require(status, "read the link " + qimctl::slot_name(field));
  return read_node(node.session, link.node);
}

py::list referrers(const Node& node) {
  py::list found;
  for (uint32_t n = 0;; n++) {
    qim_node_id_t id = 0;
    qimctl::require(qim_ref_get(node.session->handle(), node.record.id, n, &id),
                    "read who refers to node " + qimctl::node_id_text(node.record.id));
    if (id == 0) return found;
    found.append(read_node(node.session, id));
  }
}

py::object name_of(const Node& node) {
  using Get = uint32_t (*)(uint32_t, qim_node_id_t, uint32_t, char*, uint32_t*);
  Get get = nullptr;
  if (node.record.type == QIM_NODE_GROUP) get = qim_list_name_get;
  if (node.record.type == QIM_NODE_FILTER) get = qim_entry_name_get;
  if (node.record.type == QIM_NODE_EDEST) get = qim_interface_name_get;
  if (node.record.type == QIM_NODE_POLICE) get = qim_policer_name_get;
  if (get == nullptr) return py::none();
  uint32_t length = 0;
  uint32_t status = get(node.session->handle(), node.record.id, 0, nullptr, &length);
  if (status == QIM_POLICY_NO_NAME) return py::none();
  std::string name(length + 1, '\0');
  if (status == QIM_ERR_BUF_SMALL)
    status = get(node.session->handle(), node.record.id, length + 1, name.data(), &length);
  qimctl::require(status, "read the name of node " + qimctl::node_id_text(node.record.id));
  return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(name.data(), length, "replace"));
}

py::object dset_of(const Node& node) {
  if (!node.is_understood || !qimctl::has_dset(node.record)) return py::none();
  const std::string text =
      qimctl::dset_to_json(qimctl::name_of(node.record.body.pinst.fields)).dump();
  return py::module_::import("json").attr("loads")(text);
}

const char* kind_of(const Node& node) {
  const NodeType* type = qim::schema::node_type(node.record.type);
  return node.is_understood && type != nullptr ? type->name : "Raw";
}

std::string repr(const Node& node) {
  return std::string("<qim.") + kind_of(node) + " " + qimctl::node_id_text(node.record.id) + ">";
}

std::string link_repr(const Link& link) {
  return "<qim.Link " + qimctl::slot_name(link.field) + " to " + qimctl::node_id_text(link.node) +
         ">";
}

void add_parts(py::module_& module) {
  py::class_<Link>(module, "Link", "A link of a node.")
      .def_readonly("field", &Link::field, "the link's field code, 16 bits")
      .def_readonly("node", &Link::node, "the node it leads to, 0 = none")
      .def_readonly("node2", &Link::node2, "a second node, 0 = none")
      .def_readonly("val", &Link::val, "a 32-bit value that it carries")
      .def_readonly("tag", &Link::tag, "a 16-bit value that it carries")
      .def_property_readonly(
          "name", [](const Link& link) { return qimctl::slot_name(link.field); },
          "the name of the field: 'ln_081', or '0x8082' for one that no record holds")
      .def("__repr__", &link_repr);
  py::class_<qimctl::Criterion>(module, "Criterion", "A match criterion of a Filter.")
      .def_readonly("type", &qimctl::Criterion::type, "header and field, as in qim_acl.h")
      .def_property_readonly(
          "args",
          [](const qimctl::Criterion& criterion) {
            return to_bytes(criterion.args.data(), criterion.args.size());
          },
          "its arguments, integers in network order")
      .def(
          "__str__",
          [](const qimctl::Criterion& criterion) {
            return qimctl::criterion_text(criterion.type, criterion.args);
          },
          "'tcp.destination-port eq 22'");
  py::class_<Bandwidth> bandwidth(module, "Bandwidth", "A bandwidth of a Police.");
  for (const Row& row : qim::schema::action_bw) {
    if (!qimctl::is_input(row)) continue;
    bandwidth.def_property_readonly(
        row.name, [&row](const Bandwidth& of) { return number_of(row, &of.record); });
  }
  bandwidth.def(
      "members",
      [](const Bandwidth& of) {
        py::dict members;
        for (const Row& row : qim::schema::action_bw)
          if (qimctl::is_input(row)) members[row.name] = number_of(row, &of.record);
        return members;
      },
      "its members by name");
  py::class_<qimctl::StoredNode>(module, "Stored", "A node as the database keeps it.")
      .def_readonly("flags", &qimctl::StoredNode::flags, "the database's flags")
      .def_property_readonly(
          "tlv",
          [](const qimctl::StoredNode& node) { return to_bytes(node.tlv.data(), node.tlv.size()); },
          "its record, encoded")
      .def_property_readonly(
          "dset",
          [](const qimctl::StoredNode& node) {
            return to_bytes(node.dset.data(), node.dset.size());
          },
          "its data-set name, 21 bytes in network order, or none")
      .def_property_readonly(
          "links",
          [](const qimctl::StoredNode& node) {
            std::vector<Link> links;
            for (const rov_link_t& link : node.links) links.push_back(to_link(link));
            return links;
          },
          "all links, by field code")
      .def_property_readonly(
          "private",
          [](const qimctl::StoredNode& node) {
            py::dict found;
            for (const qimctl::ClientData& data : node.clients)
              found[py::int_(data.client)] = to_bytes(data.data.data(), data.data.size());
            return found;
          },
          "what clients keep on it, by their identities");
}

}  // namespace

py::bytes to_bytes(const void* data, size_t size) {
  return {static_cast<const char*>(data), size};
}

// Words for a failure are made only when there is one: this is done for every node there is.
py::object read_node(const SessionPtr& session, const rov_node_parms_t& parms) {
  const uint32_t id = qim_from_rov_node_id(&parms.id);
  Node node{session};
  const uint32_t status = qim_node_read_int(session->handle(), id, &parms, 0, &node.record);
  const uint32_t type = node.record.type;
  if (status == 0 && type < qim::schema::kTypeCodes && g_makers[type] != nullptr)
    return g_makers[type](std::move(node));
  if (status != 0 && !qimctl::is_about_contents(status))
    qimctl::require_node(status, "read node " + qimctl::node_id_text(id));
  node.is_understood = false;
  node.record.id = id;
  return py::cast(RawNode{std::move(node)});
}

py::object read_node(const SessionPtr& session, uint32_t id) {
  return read_node(session, parms_of(session, id));
}

void add_nodes(py::module_& module) {
  add_parts(module);
  py::class_<Node>(module, "Node", "A node. It stays readable as long as its session is open.")
      .def_property_readonly(
          "id", [](const Node& node) { return node.record.id; }, "its identifier, 32 bits")
      .def_property_readonly("kind", &kind_of, "its type: 'Filter'")
      .def_property_readonly(
          "group", [](const Node& node) { return node.record.group; }, "its group number")
      .def_property_readonly(
          "node_flags", [](const Node& node) { return node.record.flags; },
          "the node's flags, 32 bits")
      .def_property_readonly(
          "refs", [](const Node& node) { return node.record.refs; }, "how many nodes refer to it")
      .def_property_readonly("name", &name_of,
                             "what people call the list, entry, interface or policer, or None")
      .def_property_readonly("dset", &dset_of,
                             "its data-set name as the native format has it, or None")
      .def_property_readonly("exact", &is_exact, "whether its members say all that is stored of it")
      .def_property_readonly("stored", &stored_node, "the node as the database keeps it")
      .def("members", &members_of, "the members of its record by name, in the record's order")
      .def("links", &links_of, "all its links, by field code")
      .def("follow", &follow, py::arg("field"), "the node that link `field` leads to, or None")
      .def("referrers", &referrers, "the nodes that refer to it")
      .def("__repr__", &repr);
  py::class_<RawNode, Node>(module, "Raw", "A node that no record describes.");
  add_tlv_types(module, std::make_index_sequence<std::size(qim::schema::tlv_types)>());
  add_dset_types(module, std::make_index_sequence<std::size(qim::schema::dset_types)>());
}

}  // namespace qim_python
