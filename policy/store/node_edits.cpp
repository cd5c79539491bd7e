// Single edits of a write session.
#include "policy/store/node_edits.h"

#include <algorithm>
#include <array>
#include <optional>

#include "policy/base/names.h"
#include "policy/store/store_policy.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

// Words are made for what fails only: there are as many edits as nodes.
void require_edit(uint32_t status, const char* verb, uint32_t id) {
  if (status != ROV_OK) require(status, std::string(verb) + " node " + node_id_text(id));
}

void require_link(uint32_t status, const char* verb, uint32_t owner, uint16_t field) {
  if (status != ROV_OK)
    require(status, std::string(verb) + " the link " + slot_name(field) + " of node " +
                        node_id_text(owner));
}

Link link_of(const rov_link_t& form) {
  return {form.field, qim_from_rov_node_id(&form.node), qim_from_rov_node_id(&form.node2), form.val,
          form.tag};
}

bool same_link(const Link& a, const Link& b) {
  return a.field == b.field && a.node == b.node && a.node2 == b.node2 && a.val == b.val &&
         a.tag == b.tag;
}

const Link* find_link(const std::vector<Link>& links, uint16_t field) {
  const auto found = std::find_if(links.begin(), links.end(),
                                  [field](const Link& link) { return link.field == field; });
  return found == links.end() ? nullptr : &*found;
}

bool same_bytes(const std::vector<uint8_t>& bytes, const void* others, size_t count) {
  const auto* other = static_cast<const uint8_t*>(others);
  return std::equal(bytes.begin(), bytes.end(), other, other + count);
}

bool same_contents(uint32_t session, const Node& node) {
  rov_node_parms_t parms;
  const rov_node_id_t id = database_id(node.id);
  require_edit(rov_node_parms_get(session, id, &parms), "look for", node.id);
  std::vector<uint8_t> tlv(parms.tlv_len);
  std::vector<uint8_t> dset(parms.dset_len);
  std::vector<uint8_t> priv(parms.priv_len);
  require_edit(rov_node_data_get(session, id, parms.tlv_len, tlv.data(), parms.dset_len,
                                 dset.data(), parms.priv_len, priv.data()),
               "read", node.id);
  const size_t name = node.dset ? sizeof *node.dset : 0;
  return parms.flags == database_flags(node) && tlv == encode_node(node) && priv == node.priv &&
         same_bytes(dset, node.dset ? &*node.dset : nullptr, name);
}

// Do other clients keep on a node what it is given with? What they keep besides is theirs.
bool same_clients(uint32_t session, const Node& node) {
  for (const ClientData& wanted : node.clients) {
    std::vector<uint8_t> kept(wanted.data.size());
    uint32_t client = 0;
    uint32_t length = 0;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; client != wanted.client && status != ROV_ERR_NO_VALUE; n++) {
      status = rov_edit_priv_nth(session, database_id(node.id), n, &client,
                                 static_cast<uint32_t>(kept.size()), kept.data(), &length);
      const bool told = status == ROV_ERR_NO_VALUE || status == ROV_ERR_LENGTH;
      if (!told) require_edit(status, "read the private data of", node.id);
    }
    if (status != ROV_OK || length != kept.size() || kept != wanted.data) return false;
  }
  return true;
}

}  // namespace

void put_node(uint32_t session, const Node& node) {
  // Nearly all are small.
  std::array<uint8_t, 512> room;
  std::vector<uint8_t> tlv;
  const std::optional<uint32_t> small = encode_small(node, room);
  if (!small) tlv = encode_node(node);
  rov_edit_node_t form{};
  form.id = database_id(node.id);
  form.flags = database_flags(node);
  form.tlv_len = small.value_or(static_cast<uint32_t>(tlv.size()));
  form.tlv = small ? room.data() : tlv.data();
  if (form.tlv_len == 0) form.tlv = nullptr;
  form.dset_len = node.dset ? static_cast<uint32_t>(sizeof(*node.dset)) : 0;
  form.dset = node.dset ? &*node.dset : nullptr;
  require_edit(rov_edit_node_put(session, &form), "store", node.id);
  if (!node.priv.empty()) {
    require_edit(qim_node_priv_set(session, node.id, node.priv.data(),
                                   static_cast<uint32_t>(node.priv.size())),
                 "store the private data of", node.id);
  }
  for (const ClientData& other : node.clients) {
    require_edit(rov_edit_priv_put(session, form.id, other.client, other.data.data(),
                                   static_cast<uint32_t>(other.data.size())),
                 "store other clients' private data of", node.id);
  }
}

void put_link(uint32_t session, uint32_t owner, const Link& link) {
  rov_link_t form{};
  form.owner = database_id(owner);
  form.field = link.field;
  form.node = database_id(link.node);
  form.node2 = database_id(link.node2);
  form.val = link.val;
  form.tag = link.tag;
  require_link(rov_edit_link_put(session, &form), "store", owner, link.field);
}

void delete_link(uint32_t session, uint32_t owner, uint16_t field) {
  require_link(rov_edit_link_del(session, database_id(owner), field), "remove", owner, field);
}

void delete_node(uint32_t session, uint32_t id) {
  require_edit(rov_edit_node_del(session, database_id(id)), "delete", id);
}

bool is_stored(uint32_t session, uint32_t id) {
  rov_node_parms_t parms;
  const uint32_t status = rov_node_parms_get(session, database_id(id), &parms);
  if (status == ROV_ERR_NO_ITEM) return false;
  require_edit(status, "look for", id);
  return true;
}

NodeDifference difference_from_stored(uint32_t session, const Node& node) {
  NodeDifference difference;
  difference.contents = !same_contents(session, node) || !same_clients(session, node);
  difference.links = node.links;
  rov_link_t entry;
  uint32_t status = ROV_OK;
  for (uint32_t n = 0;
       (status = rov_node_link_nth(session, database_id(node.id), n, &entry)) == ROV_OK; n++) {
    const Link stored = link_of(entry);
    const Link* wanted = find_link(node.links, stored.field);
    if (wanted == nullptr) {
      difference.extras.push_back(stored.field);
    } else if (same_link(*wanted, stored)) {
      std::erase_if(difference.links, [&](const Link& link) { return link.field == stored.field; });
    }
  }
  if (status != ROV_ERR_NO_LINK) require_edit(status, "list the links of", node.id);
  return difference;
}

}  // namespace qimctl
