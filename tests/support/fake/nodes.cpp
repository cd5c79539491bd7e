// The database's nodes, and the functions that read them.

#include "nodes.h"

#include <algorithm>

#include "recorder.h"
#include "rov.h"

namespace fake {
namespace {

// Struct ids of the records in tags.
enum : std::uint16_t {
  kNode = 1,
  kFilter = 2,
  kCriterion = 3,
  kHfilter = 4,
  kAction = 5,
  kHaction = 6,
  kBandwidth = 7,
  kPolice = 8,
  kGroup = 10,
  kDef = 12
};

std::map<std::uint32_t, Node>& nodes() {
  static auto* const instance = new std::map<std::uint32_t, Node>;
  return *instance;
}

// A byte string of no bytes has no attribute.
Tlv& put_bytes(Tlv& tlv, std::uint16_t record, const Bytes& args) {
  return args.empty() ? tlv : tlv.bytes(record, 2, args);
}

Tlv bandwidth(const Bandwidth& v) {
  return Tlv()
      .u32(kBandwidth, 1, v.rate_units)
      .u64(kBandwidth, 2, v.rate)
      .u32(kBandwidth, 3, v.burst_units)
      .u64(kBandwidth, 4, v.burst);
}

}  // namespace

void detail::reset_nodes() {
  nodes().clear();
}

Node& node(std::uint32_t id) {
  return nodes().try_emplace(id, id).first->second;
}

const Node* find_node(std::uint32_t id) {
  const auto found = nodes().find(id);
  return found == nodes().end() ? nullptr : &found->second;
}

void remove_node(std::uint32_t id) {
  nodes().erase(id);
}

Node& Node::group(std::uint32_t v) {
  group_ = v;
  return *this;
}

Node& Node::flags(std::uint32_t v) {
  flags_ = v;
  return *this;
}

Node& Node::body(std::uint32_t type, const Tlv& contents) {
  body_ = Tlv().unite(kNode, 3, type, contents);
  return *this;
}

Node& Node::tlv(const Bytes& bytes) {
  raw_ = bytes;
  return *this;
}

Node& Node::filter(const Filter& v) {
  Tlv tlv;
  tlv.u32(kFilter, 3, v.flags).u32(kFilter, 1, v.match).u32(kFilter, 2, v.nomatch);
  for (const Criterion& criterion : v.criteria) {
    Tlv element;
    put_bytes(element.u32(kCriterion, 1, criterion.type), kCriterion, criterion.args);
    tlv.nest(kFilter, 4, element);
  }
  return body(1, tlv);
}

Node& Node::action(const Action& v) {
  Tlv tlv;
  return body(2, put_bytes(tlv.u32(kAction, 1, v.type), kAction, v.args));
}

Node& Node::ifelse() {
  return body(3, Tlv());
}

Node& Node::hfilter(const Hfilter& v) {
  return body(4, Tlv()
                     .u32(kHfilter, 1, v.type)
                     .u32(kHfilter, 2, v.true_act)
                     .u32(kHfilter, 3, v.false_act)
                     .u32(kHfilter, 4, v.nomatch_act));
}

Node& Node::haction(const Haction& v) {
  return body(5, Tlv().u32(kHaction, 1, v.type));
}

Node& Node::police(const Police& v) {
  return body(6,
              Tlv().nest(kPolice, 1, bandwidth(v.committed)).nest(kPolice, 2, bandwidth(v.peak)));
}

Node& Node::group_body(const Group& v) {
  return body(7, Tlv().u32(kGroup, 1, v.type).u32(kGroup, 2, v.subtype));
}

Node& Node::pinst() {
  return body(8, Tlv());
}

Node& Node::def(const Def& v) {
  Tlv tlv;
  return body(9, put_bytes(tlv.u32(kDef, 1, v.type), kDef, v.args));
}

Node& Node::edest() {
  return body(10, Tlv());
}

Node& Node::link(std::uint16_t field, std::uint32_t to) {
  return link(field, Link{.node = to});
}

Node& Node::link(std::uint16_t field, const Link& v) {
  rov_link_t link;
  detail::spoil(&link);
  link.owner = fake::id(id_);
  link.field = field;
  link.node = fake::id(v.node);
  link.val = v.val;
  link.node2 = fake::id(v.node2);
  link.tag = v.tag;
  links_[field] = link;
  return *this;
}

Node& Node::referrers(const std::vector<std::uint32_t>& v) {
  referrers_ = v;
  return *this;
}

Node& Node::data_set() {
  db_flags_ |= ROV_NODE_DSET;
  return *this;
}

Node& Node::dset_name(const Bytes& v) {
  dset_ = v;
  return *this;
}

Node& Node::priv(const Bytes& v) {
  priv_ = v;
  return *this;
}

Node& Node::priv_ptr(std::uintptr_t v) {
  priv_ptr_ = v;
  return *this;
}

Node& Node::links_total(std::uint32_t v) {
  links_total_ = v;
  return *this;
}

Node& Node::refs(std::uint32_t v) {
  refs_ = v;
  return *this;
}

Bytes Node::tlv_bytes() const {
  if (raw_) return *raw_;
  if (is_data_set() && !body_) return {};
  Tlv tlv;
  tlv.u32(kNode, 2, flags_).u32(kNode, 1, group_);
  Bytes bytes = tlv.data();
  if (body_) bytes.insert(bytes.end(), body_->data().begin(), body_->data().end());
  return bytes;
}

rov_node_parms_t Node::parms() const {
  rov_node_parms_t parms;
  detail::spoil(&parms);
  parms.id = fake::id(id_);
  parms.flags = db_flags_;
  parms.links = links_total_.value_or(static_cast<std::uint32_t>(links_.size()));
  parms.refs = refs_.value_or(static_cast<std::uint32_t>(referrers_.size()));
  parms.tlv_len = static_cast<std::uint32_t>(tlv_bytes().size());
  parms.dset_len = static_cast<std::uint32_t>(dset_.size());
  parms.priv_len = static_cast<std::uint32_t>(priv_.size());
  parms.priv_ptr = priv_ptr_;
  return parms;
}

namespace {

void copy_part(const Bytes& part, std::uint32_t len, void* out) {
  if (len == 0 || out == nullptr) return;
  std::memset(out, kGarbage, len);
  if (!part.empty()) std::memcpy(out, part.data(), std::min<std::size_t>(len, part.size()));
}

std::uint32_t link_of(std::uint32_t node, std::uint32_t field, rov_link_t* link) {
  detail::spoil(link);
  const Node* const found = find_node(node);
  if (found == nullptr) return ROV_ERR_NO_ITEM;
  const auto at = found->links().find(field);
  if (at == found->links().end()) return ROV_ERR_NO_LINK;
  *link = at->second;
  return ROV_OK;
}

// Data sets in the order of their identifiers.
std::uint32_t parms_of(const Node* node, rov_node_parms_t* parms) {
  if (node == nullptr) return ROV_ERR_NO_ITEM;
  *parms = node->parms();
  return ROV_OK;
}

const Node* data_set_at(std::uint32_t selector) {
  for (const auto& [id, node] : nodes()) {
    if (node.is_data_set() && selector-- == 0) return &node;
  }
  return nullptr;
}

const Node* data_set_named(const void* name, std::uint32_t len) {
  for (const auto& [id, node] : nodes()) {
    if (node.name().size() == len && std::memcmp(node.name().data(), name, len) == 0) return &node;
  }
  return nullptr;
}

}  // namespace
}  // namespace fake

using fake::detail::enter;
using fake::detail::enter_with;
using fake::detail::spoil;

extern "C" {

uint32_t rov_node_parms_get(uint32_t ses, rov_node_id_t id, rov_node_parms_t* parms) {
  spoil(parms);
  const auto status = enter("rov_node_parms_get", ses, id, parms);
  if (status) return *status;
  return fake::parms_of(fake::find_node(fake::node_of(id)), parms);
}

uint32_t rov_node_data_get(uint32_t ses, rov_node_id_t id, uint32_t tlv_len, void* tlv,
                           uint32_t dset_len, void* dset, uint32_t priv_len, void* priv) {
  if (const auto status =
          enter("rov_node_data_get", ses, id, tlv_len, tlv, dset_len, dset, priv_len, priv)) {
    return *status;
  }
  const fake::Node* const node = fake::find_node(fake::node_of(id));
  if (node == nullptr) return ROV_ERR_NO_ITEM;
  fake::copy_part(node->tlv_bytes(), tlv_len, tlv);
  fake::copy_part(node->name(), dset_len, dset);
  fake::copy_part(node->private_data(), priv_len, priv);
  return ROV_OK;
}

uint32_t rov_node_ln_field_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  spoil(link);
  const auto status = enter("rov_node_ln_field_get", ses, id, field, link);
  return status ? *status : fake::link_of(fake::node_of(id), field, link);
}

uint32_t rov_node_link_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link) {
  spoil(link);
  const auto status = enter("rov_node_link_get", ses, id, field, link);
  return status ? *status : fake::link_of(fake::node_of(id), field, link);
}

uint32_t rov_node_link_match(uint32_t ses, rov_node_id_t id, uint32_t field, uint32_t mask,
                             uint32_t value, uint32_t width, rov_link_t* link) {
  spoil(link);
  const auto status = enter("rov_node_link_match", ses, id, field, mask, value, width, link);
  if (status) return *status;
  return fake::link_of(fake::node_of(id), (field & ~mask) | (value & mask), link);
}

uint32_t rov_node_ref_get(uint32_t ses, rov_node_id_t id, uint32_t index, uint32_t* total,
                          uint32_t* field, rov_node_id_t* ref) {
  const auto status = enter("rov_node_ref_get", ses, id, index, total, field, ref);
  if (status) return *status;
  const fake::Node* const node = fake::find_node(fake::node_of(id));
  if (node == nullptr || index >= node->referring().size()) return ROV_ERR_NO_ITEM;
  if (total != nullptr) *total = static_cast<uint32_t>(node->referring().size());
  if (field != nullptr) *field = 0;
  *ref = fake::id(node->referring()[index]);
  return ROV_OK;
}

uint32_t rov_node_ref_get_all(uint32_t ses, rov_node_id_t id, rov_node_id_t* refs, uint32_t count) {
  const auto status = enter("rov_node_ref_get_all", ses, id, refs, count);
  if (status) return *status;
  const fake::Node* const node = fake::find_node(fake::node_of(id));
  if (node == nullptr) return ROV_ERR_NO_ITEM;
  const std::size_t stop = std::min<std::size_t>(count, node->referring().size());
  for (std::size_t i = 0; i < stop; ++i) refs[i] = fake::id(node->referring()[i]);
  return ROV_OK;
}

uint32_t rov_node_dset_get(uint32_t ses, rov_node_id_t id, uint32_t selector,
                           rov_node_parms_t* parms) {
  const auto status = enter("rov_node_dset_get", ses, id, selector, parms);
  if (status) return *status;
  const fake::Node* const node = fake::find_node(fake::node_of(id));
  return fake::parms_of(node != nullptr && node->is_data_set() && selector == 0 ? node : nullptr,
                        parms);
}

// Private data: the calls are recorded with the bytes; what the nodes hold does not change.
uint32_t rov_node_priv_set(uint32_t ses, const rov_node_id_t* id, const void* data, uint32_t len) {
  return enter_with(data, len, "rov_node_priv_set", ses, *id, data, len).value_or(ROV_OK);
}

uint32_t rov_node_priv_ptr_set(uint32_t ses, const rov_node_id_t* id, void* ptr) {
  return enter("rov_node_priv_ptr_set", ses, *id, ptr).value_or(ROV_OK);
}

uint32_t rov_node_priv_ptr_get(uint32_t ses, const rov_node_id_t* id, void** ptr) {
  const auto status = enter("rov_node_priv_ptr_get", ses, *id, ptr);
  if (status) return *status;
  const fake::Node* const node = fake::find_node(fake::node_of(*id));
  if (node == nullptr) return ROV_ERR_NO_ITEM;
  *ptr = reinterpret_cast<void*>(node->parms().priv_ptr);
  return ROV_OK;
}

uint32_t rov_data_cpy(uint32_t len, void* buf, uint32_t src_len, const void* src) {
  const auto status = enter("rov_data_cpy", len, buf, src_len, src);
  if (status) return *status;
  if (len < src_len) return ROV_ERR_LENGTH;
  if (src_len != 0) std::memcpy(buf, src, src_len);
  return ROV_OK;
}

uint32_t rov_ses_get_num_dsets(uint32_t ses, uint32_t* count) {
  if (const auto status = enter("rov_ses_get_num_dsets", ses, count)) return *status;
  *count = static_cast<uint32_t>(
      std::count_if(fake::nodes().begin(), fake::nodes().end(),
                    [](const auto& entry) { return entry.second.is_data_set(); }));
  return ROV_OK;
}

uint32_t rov_ses_dset_get(uint32_t ses, uint32_t selector, rov_node_parms_t* parms) {
  const auto status = enter("rov_ses_dset_get", ses, selector, parms);
  return status ? *status : fake::parms_of(fake::data_set_at(selector), parms);
}

// Keeps a copy of the name.
uint32_t rov_ses_dset_name_get(uint32_t ses, uint32_t len, const void* name,
                               rov_node_parms_t* parms) {
  const auto status = enter_with(name, len, "rov_ses_dset_name_get", ses, len, name, parms);
  return status ? *status : fake::parms_of(fake::data_set_named(name, len), parms);
}

}  // extern "C"
