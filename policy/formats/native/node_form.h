// Which form a node has where a whole database is written: in terms of its record where that says all
// that is stored of it, else as it is stored.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/store/database.h"
#include "policy/store/stored_node.h"

namespace qimctl {

class NodeForm {
 public:
  explicit NodeForm(const ReadSession& session) : session_(session), reader_(session) {}

  // Appends the node's text. Is it in terms of its record?
  bool append(std::string& to, const rov_node_parms_t& parms);
  // The node that was appended last, as it is stored.
  const StoredNode& stored() const { return stored_; }

 private:
  bool append_record(std::string& to, const rov_node_parms_t& parms);
  bool is_encoded_as_stored(const qim_node_t& record);

  const ReadSession& session_;
  StoredNodeReader reader_;
  StoredNode stored_;
  std::vector<uint8_t> tlv_;
};

}  // namespace qimctl
