// What is refused of policies whoever made them.
#include "policy/base/policy_check.h"

#include <gmock/gmock.h>

#include "tests/tools/support.h"

namespace {

using qimctl::check_policies;
using qimctl::Node;
using qimctl::Policy;
using testing::ElementsAre;
using testing::IsEmpty;

Node node_of(uint32_t id, uint32_t type, const std::string& file = "a.json") {
  Node node;
  node.id = id;
  node.record.type = type;
  node.place = {file, 0, "/nodes/" + std::to_string(id)};
  return node;
}

Policy policy_of(std::vector<Node> nodes) {
  return {std::move(nodes), {}};
}

std::vector<std::string> messages(const std::vector<Policy>& policies) {
  std::vector<std::string> found;
  for (const auto& problem : check_policies(policies)) found.push_back(problem.message);
  return found;
}

TEST(CheckPolicies, passes_good_nodes) {
  Node filter = node_of(1, QIM_NODE_FILTER);
  filter.links = {{0x081, 2, 0, 0, 7}, {0x8082, 3, 4, 5, 6}};
  Node dset = node_of(2, QIM_NODE_DSET);
  dset.dset.emplace();
  EXPECT_THAT(messages({policy_of({filter, dset, node_of(3, QIM_NODE_PINST)})}), IsEmpty());
}

TEST(CheckPolicies, refuses_one_identifier_twice) {
  EXPECT_THAT(messages({policy_of({node_of(1, QIM_NODE_DEF), node_of(1, QIM_NODE_DEF)})}),
              ElementsAre("node 0x00000001 is there already, at /nodes/1; give one of the two "
                          "another identifier"));
}

TEST(CheckPolicies, refuses_one_identifier_in_two_files) {
  const auto problems = check_policies({policy_of({node_of(1, QIM_NODE_DEF, "a.json")}),
                                        policy_of({node_of(1, QIM_NODE_DEF, "b.json")})});
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].place.file, "b.json");
  EXPECT_THAT(problems[0].message, testing::HasSubstr("at a.json/nodes/1;"));
}

TEST(CheckPolicies, refuses_identifier_0_and_unknown_types) {
  EXPECT_THAT(
      messages({policy_of({node_of(0, QIM_NODE_DEF), node_of(1, 0), node_of(2, 11)})}),
      ElementsAre("a node's identifier must not be 0", "node 0x00000001 is of no known type",
                  "node 0x00000002 is of no known type"));
}

TEST(CheckPolicies, refuses_a_bare_slot_that_would_hold_more) {
  Node node = node_of(1, QIM_NODE_ACTION);
  node.links = {{0x141, 2, 3, 0, 0}};
  EXPECT_THAT(messages({policy_of({node})}),
              ElementsAre(testing::HasSubstr("link ln_141 with a node2 or val")));
  node.links = {{0x141, 2, 0, 3, 0}};
  EXPECT_EQ(messages({policy_of({node})}).size(), 1u);
  node.record.type = QIM_NODE_FILTER;  // no slot of a Filter, so nothing bare about it
  EXPECT_THAT(messages({policy_of({node})}), IsEmpty());
}

TEST(CheckPolicies, refuses_links_to_nowhere_and_two_of_one_field) {
  Node node = node_of(1, QIM_NODE_IFELSE);
  node.links = {{0x241, 0, 0, 0, 0}, {0x242, 5, 0, 0, 0}, {0x242, 6, 0, 0, 0}};
  EXPECT_THAT(messages({policy_of({node})}),
              ElementsAre("node 0x00000001 has a link ln_241 to node 0; leave the link out",
                          "node 0x00000001 has two links ln_242; a node has one at most"));
}

TEST(CheckPolicies, keeps_data_set_names_where_they_belong) {
  for (uint32_t type = QIM_NODE_FILTER; type <= QIM_NODE_DSET_NONAME; type++) {
    if (type > QIM_NODE_EDEST && type < QIM_NODE_DSET) continue;
    Node node = node_of(1, type);
    node.dset.emplace();
    const bool may = type == QIM_NODE_PINST || type == QIM_NODE_EDEST || type == QIM_NODE_DSET;
    EXPECT_EQ(messages({policy_of({node})}).size(), may ? 0u : 1u) << type;
  }
  EXPECT_THAT(
      messages({policy_of({node_of(1, QIM_NODE_DSET)})}),
      ElementsAre("node 0x00000001 has no data-set name; add one, or make it a DsetNoname"));
}

}  // namespace
