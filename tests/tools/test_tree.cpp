// Walks along the links of a policy.
#include <gmock/gmock.h>

#include "policy/base/names.h"
#include "policy/store/store_policy.h"
#include "rov.h"
#include "rov_edit.h"
#include "tests/tools/support.h"
#include "tools/nodes/tree_walk.h"

namespace {

using namespace qimctl;
using testing::ElementsAre;

class Tree : public testing::Test {
 protected:
  Node& add(uint32_t id, uint32_t type, std::vector<Link> links = {}) {
    Node& node = policy_.nodes.emplace_back();
    node.id = id;
    node.record.type = type;
    node.links = std::move(links);
    return node;
  }

  void store() {
    WriteSession session(database_);
    write_policies({policy_}, session, {});
    session.commit();
  }

  // A line for each node: indented by its depth, how it was reached, its mark; "." closes a level.
  std::vector<std::string> walk(uint32_t root, uint32_t depth = 100) {
    const ReadSession session(database_);
    TreeWalk tree(session, root, depth);
    std::vector<std::string> lines;
    while (const auto step = tree.step()) {
      std::string line(step->depth, ' ');
      if (!step->via.empty()) line += step->via + (step->next ? "=>" : "->");
      line += std::to_string(step->id);
      if (step->mark != TreeMark::none) line += std::string(" ") + tree_mark_name(step->mark);
      if (step->last) line += ".";
      lines.push_back(line);
    }
    return lines;
  }

  tools_test::TempDir dir_;
  Database database_{dir_ / "db", OpenMode::create};
  Policy policy_;
};

TEST_F(Tree, is_one_line_for_a_node_alone) {
  add(1, QIM_NODE_DEF);
  store();
  EXPECT_THAT(walk(1), ElementsAre("1."));
}

TEST_F(Tree, follows_links_in_the_order_of_their_codes) {
  add(1, QIM_NODE_IFELSE, {{0x8001, 6, 0, 0, 0}, {0x244, 5, 0, 0, 0}, {0x241, 2, 3, 0, 0}});
  for (uint32_t id : {2u, 3u, 5u, 6u}) add(id, QIM_NODE_PINST);
  store();
  EXPECT_THAT(walk(1),
              ElementsAre("1.", " ln_241->2", " ln_241 node2->3", " ln_244->5", " 0x8001->6."));
}

TEST_F(Tree, shows_lists_flat) {
  add(1, QIM_NODE_GROUP, {{0x281, 2, 0, 0, 0}, {0x282, 9, 0, 0, 0}});
  add(2, QIM_NODE_FILTER, {{0x081, 3, 0, 0, 0}, {0x8082, 7, 0, 0, 0}});
  add(3, QIM_NODE_HFILTER, {{0x081, 4, 0, 0, 0}});
  add(4, QIM_NODE_FILTER);
  add(7, QIM_NODE_ACTION, {{0x141, 8, 0, 0, 0}});
  add(8, QIM_NODE_HACTION);
  add(9, QIM_NODE_DEF);
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_281->2", "  0x8082->7", "  ln_141=>8.", " ln_081=>3",
                                   " ln_081=>4", " ln_282->9."));
}

TEST_F(Tree, puts_the_rest_of_a_list_below_its_root) {
  add(1, QIM_NODE_ACTION, {{0x141, 2, 0, 0, 0}});
  add(2, QIM_NODE_ACTION, {{0x141, 3, 0, 0, 0}});
  add(3, QIM_NODE_ACTION);
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_141->2", " ln_141=>3."));
}

TEST_F(Tree, marks_nodes_that_are_shared) {
  add(1, QIM_NODE_IFELSE, {{0x241, 2, 0, 0, 0}, {0x242, 3, 0, 0, 0}});
  add(2, QIM_NODE_DEF, {{0x302, 3, 0, 0, 0}});
  add(3, QIM_NODE_DEF, {{0x302, 4, 0, 0, 0}});
  add(4, QIM_NODE_ACTION);
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_241->2", "  ln_302->3.", "   ln_302->4.",
                                   " ln_242->3 shared."));
}

TEST_F(Tree, marks_cycles) {
  add(1, QIM_NODE_DEF, {{0x302, 2, 0, 0, 0}});
  add(2, QIM_NODE_DEF, {{0x302, 1, 0, 0, 0}});
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_302->2.", "  ln_302->1 cycle."));
}

TEST_F(Tree, marks_cycles_of_lists) {
  add(1, QIM_NODE_GROUP, {{0x281, 2, 0, 0, 0}});
  add(2, QIM_NODE_FILTER, {{0x081, 3, 0, 0, 0}});
  add(3, QIM_NODE_FILTER, {{0x081, 2, 0, 0, 0}});
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_281->2", " ln_081=>3", " ln_081=>2 cycle."));
}

TEST_F(Tree, tells_a_list_met_again_from_a_cycle) {
  add(1, QIM_NODE_IFELSE, {{0x241, 2, 0, 0, 0}, {0x242, 2, 0, 0, 0}});
  add(2, QIM_NODE_FILTER, {{0x081, 3, 0, 0, 0}});
  add(3, QIM_NODE_FILTER);
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_241->2", " ln_081=>3", " ln_242->2 shared."));
}

TEST_F(Tree, marks_a_node_that_leads_to_itself) {
  add(1, QIM_NODE_IFELSE, {{0x241, 1, 1, 0, 0}});
  store();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_241->1 cycle", " ln_241 node2->1 cycle."));
}

TEST_F(Tree, marks_what_is_missing) {
  add(1, QIM_NODE_IFELSE, {{0x241, 2, 0, 0, 0}});
  add(2, QIM_NODE_DEF);
  store();
  WriteSession session(database_);
  ASSERT_EQ(rov_edit_node_del(session.handle(), database_id(2)), 0u);
  session.commit();
  EXPECT_THAT(walk(1), ElementsAre("1.", " ln_241->2 missing."));
}

TEST_F(Tree, refuses_a_root_that_is_missing) {
  EXPECT_THROW(walk(1), DatabaseError);
}

TEST_F(Tree, stops_at_the_depth_asked_for) {
  add(1, QIM_NODE_DEF, {{0x302, 2, 0, 0, 0}});
  add(2, QIM_NODE_DEF, {{0x302, 3, 0, 0, 0}});
  add(3, QIM_NODE_DEF);
  store();
  EXPECT_THAT(walk(1, 0), ElementsAre("1 deeper."));
  EXPECT_THAT(walk(1, 1), ElementsAre("1.", " ln_302->2 deeper."));
  EXPECT_THAT(walk(1, 2), ElementsAre("1.", " ln_302->2.", "  ln_302->3."));
}

// What was cut off at one place is shown where there is room.
TEST_F(Tree, expands_what_was_cut_off_where_there_is_room) {
  add(1, QIM_NODE_IFELSE, {{0x241, 2, 0, 0, 0}, {0x242, 3, 0, 0, 0}, {0x243, 3, 0, 0, 0}});
  add(2, QIM_NODE_DEF, {{0x302, 3, 0, 0, 0}});
  add(3, QIM_NODE_DEF, {{0x302, 4, 0, 0, 0}});
  add(4, QIM_NODE_DEF, {{0x302, 5, 0, 0, 0}});
  add(5, QIM_NODE_DEF);
  store();
  EXPECT_THAT(walk(1, 2), ElementsAre("1.", " ln_241->2", "  ln_302->3 deeper.", " ln_242->3",
                                      "  ln_302->4 deeper.", " ln_243->3 shared."));
  EXPECT_THAT(walk(1, 3),
              ElementsAre("1.", " ln_241->2", "  ln_302->3.", "   ln_302->4 deeper.", " ln_242->3",
                          "  ln_302->4.", "   ln_302->5.", " ln_243->3 shared."));
}

TEST_F(Tree, takes_lists_of_any_length) {
  constexpr uint32_t count = 3000;
  add(1, QIM_NODE_GROUP, {{0x281, 2, 0, 0, 0}});
  for (uint32_t id = 2; id < count; id++) add(id, QIM_NODE_FILTER, {{0x081, id + 1, 0, 0, 0}});
  add(count, QIM_NODE_FILTER);
  store();
  const auto lines = walk(1);
  EXPECT_EQ(lines.size(), count);
  EXPECT_EQ(lines.back(), " ln_081=>3000.");
}

}  // namespace
