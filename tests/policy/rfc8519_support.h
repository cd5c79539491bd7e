// Builders of access-list documents, and ways to look at what becomes of them.
#ifndef TESTS_TOOLS_RFC8519_SUPPORT_H
#define TESTS_TOOLS_RFC8519_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/formats/rfc8519/rfc8519.h"

namespace rfc8519_test {

using qimctl::Fate;
using qimctl::Finding;
using qimctl::Node;
using qimctl::Policy;

inline constexpr const char* file_name = "lists.json";

// Members of the access-list container as a document.
std::string document(const std::string& members);
// A document of one list "l" of the type that goes with every header, holding `entries` (JSON).
std::string list_of(const std::string& entries);
// An entry that accepts what `matches` (JSON members) describe.
std::string entry(const std::string& name, const std::string& matches = "",
                  const std::string& actions = R"("forwarding":"accept")");

Policy read(const std::string& text);

// What is wrong with the text, a line for each problem: "line path message". "" when nothing is.
std::vector<std::string> problems_of(const std::string& text);
// Passes when the text has exactly one problem, at the end of whose path stands `path` and whose
// message contains `message`.
void expect_problem(const std::string& text, const std::string& path, const std::string& message);

// Nodes of one type, in order; Actions that are only names do not count.
std::vector<const Node*> of_type(const Policy& policy, uint32_t type);
// The node of an identifier; fails the test and gives an empty one when there is none.
const Node& by_id(const Policy& policy, uint32_t id);
// Where the link of a field leads, 0 when there is none.
uint32_t target(const Node& node, uint16_t field);
// What a list, an entry or an interface is called, by its Group or Pinst, its Filter, its
// Edest.
std::string name_of(const Policy& policy, const Node& node);
// The criteria that are matches as text, with ", " between them.
std::string criteria_of(const Node& node);
// A node's data-set name in host order.
qim_pinst_fields_t dset_of(const Node& node);

std::vector<const Finding*> findings(const Policy& policy, Fate fate);

// The contents of a file; nothing when it cannot be read.
std::string contents(const std::string& path);

}  // namespace rfc8519_test

#endif
