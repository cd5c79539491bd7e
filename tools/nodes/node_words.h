// Nodes in words: what they are called, and what they hold in one line.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "policy/store/node_image.h"

namespace qimctl {

// What a node is called, safe to print: the names that lie in nodes, in quotes, of an Edest the place
// "if:eth0/in"; else this tool's private data where they read as text; "" when there is neither.
// Contents suffice (read_contents). Throws DatabaseError when the database fails.
std::string node_name(const ReadSession& session, const NodeImage& node);

// The name, and what the node holds besides. `coded`: with codes and zeros.
std::string node_words(const ReadSession& session, const NodeImage& node, bool coded);

// What a node's type and name are, by its identifier: "0x00300002 Filter "ssh"", or why it can't be
// said.
std::string target_words(const ReadSession& session, uint32_t id, bool coded);

// The groups of nodes, which are mostly the same few.
class GroupWords {
 public:
  explicit GroupWords(const ReadSession& session) : session_(session) {}

  // The name of the access list that the number is the Group of, in quotes; else the number, "" for 0.
  const std::string& words(uint32_t group);

 private:
  const ReadSession& session_;
  std::map<uint32_t, std::string> known_;
};

}  // namespace qimctl
