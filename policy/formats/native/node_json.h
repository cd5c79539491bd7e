// Nodes as JSON.
#pragma once

#include <string>

#include "policy/base/json.h"
#include "policy/store/node_image.h"

namespace qimctl {

// The node in the native format, followed by a member "computed" with what the library and the
// database count and keep for it. Criteria of known types carry a comment that says what they
// match.
JsonValue node_to_json(const NodeImage& image);

// The same for people: types that have names are those names, and criteria read as text.
JsonValue node_to_worded_json(const NodeImage& image);

// A link as the member of its name: the node that it leads to, or an object when it carries more.
JsonValue link_to_json(const qim_link_t& link);

// What qim_node_read alone tells of a node, for lists: identifier, type, group, flags, body,
// data-set name and counts.
JsonValue record_to_json(const qim_node_t& record);

// A record's body in one line: "match True, nomatch Next, crit_cnt 2". Members that are 0 are left
// out.
std::string body_summary(const qim_node_t& record);

// The same without the data-set name.
std::string members_summary(const qim_node_t& record);

// What the type in the body of an Action, a Def or a Group is called: "accept", "access list"; "" where
// it has no name.
std::string body_type_name(const qim_node_t& record);

// As body_summary, with private data that reads as text in front.
std::string named_summary(const std::string& private_text, const qim_node_t& record);

// The same of a whole node, with its criteria in place of their count.
std::string node_summary(const NodeImage& image);

// Private data in quotes when it reads as text, "" when it does not or there is none.
std::string private_text(const void* data, size_t length);

}  // namespace qimctl
