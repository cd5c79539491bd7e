// Reading nodes as the database keeps them.
#include "policy/store/stored_node.h"

#include "policy/base/names.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

constexpr uint32_t largest_private = 1U << 20;

std::string name_of(const StoredNode& node) {
  return node_id_text(node.number());
}

}  // namespace

StoredNodeReader::StoredNodeReader(const ReadSession& session)
    : session_(session.handle()), room_(largest_private) {}

StoredNode StoredNodeReader::read(const rov_node_parms_t& parms) {
  StoredNode node;
  read(parms, node);
  return node;
}

void StoredNodeReader::read(const rov_node_parms_t& parms, StoredNode& node) {
  node.id = parms.id;
  node.flags = parms.flags;
  node.tlv.resize(parms.tlv_len);
  node.dset.resize(parms.dset_len);
  const uint32_t status = rov_node_data_get(session_, parms.id, parms.tlv_len, node.tlv.data(),
                                            parms.dset_len, node.dset.data(), 0, nullptr);
  if (status != ROV_OK) require(status, "read node " + name_of(node));
  read_links(node);
  read_clients(node);
}

void StoredNodeReader::read_links(StoredNode& node) const {
  rov_link_t link;
  uint32_t status = ROV_OK;
  node.links.clear();
  for (uint32_t n = 0; (status = rov_node_link_nth(session_, node.id, n, &link)) == ROV_OK; n++) {
    node.links.push_back(link);
  }
  if (status != ROV_ERR_NO_LINK) require(status, "read the links of node " + name_of(node));
}

void StoredNodeReader::read_clients(StoredNode& node) {
  uint32_t client = 0;
  uint32_t length = 0;
  uint32_t status = ROV_OK;
  node.clients.clear();
  for (uint32_t n = 0; (status = rov_edit_priv_nth(session_, node.id, n, &client, largest_private,
                                                   room_.data(), &length)) == ROV_OK;
       n++) {
    node.clients.push_back({client, {room_.begin(), room_.begin() + length}});
  }
  if (status != ROV_ERR_NO_VALUE) require(status, "read private data of node " + name_of(node));
}

}  // namespace qimctl
