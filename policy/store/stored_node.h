// A node as the database keeps it, which takes no decoding: for whoever carries nodes over as they
// are, or compares them.
#pragma once

#include <cstdint>
#include <vector>

#include "policy/base/policy.h"
#include "policy/store/database.h"
#include "rov.h"

namespace qimctl {

struct StoredNode {
  rov_node_id_t id{};
  uint32_t flags = 0;
  std::vector<uint8_t> tlv;
  std::vector<uint8_t> dset;        // 21 bytes, or none
  std::vector<rov_link_t> links;    // by field code
  std::vector<ClientData> clients;  // private data of all clients, by client

  uint32_t number() const { return qim_from_rov_node_id(&id); }
};

// Reads nodes whole, one after the other.
class StoredNodeReader {
 public:
  explicit StoredNodeReader(const ReadSession& session);
  StoredNode read(const rov_node_parms_t& parms);
  // The same in the room that another one leaves.
  void read(const rov_node_parms_t& parms, StoredNode& node);

 private:
  void read_links(StoredNode& node) const;
  void read_clients(StoredNode& node);

  uint32_t session_;
  std::vector<uint8_t> room_;
};

}  // namespace qimctl
