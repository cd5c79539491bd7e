// `qimctl check`: a list that can't be read as one is a defect, and one that is damaged is not two.
#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "policy/store/database.h"
#include "policy/store/store_policy.h"
#include "tests/policy/lists_support.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using qimctl::Node;
using testing::HasSubstr;
using testing::Not;
using tools_test::Outcome;

class CheckOfLists : public testing::Test {
 protected:
  void SetUp() override {
    model_ = lists_test::model({lists_test::list("guard", {"a", "b", "c"})});
    nodes_ = make_nodes(model_);
  }

  // The node of a type that is the first of them in the list.
  Node& first(uint32_t type) {
    return *std::find_if(nodes_.begin(), nodes_.end(),
                         [type](const Node& node) { return node.record.type == type; });
  }

  void store() const {
    lists_test::store(qimctl::Database(dir_ / "db", qimctl::OpenMode::create), nodes_);
  }

  Outcome check(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"--db", dir_ / "db", "check"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return tools_test::run_qimctl(arguments);
  }

  qimctl::Model model_;
  std::vector<Node> nodes_;
  tools_test::TempDir dir_;
};

TEST_F(CheckOfLists, one_of_another_making_is_a_defect) {
  first(QIM_NODE_FILTER).record.body.filter.nomatch = QIM_LINK_NOMATCH;
  store();
  const Outcome told = check();
  EXPECT_EQ(told.code, qimctl::exit_defects);
  EXPECT_THAT(told.out, HasSubstr("\"guard\" cannot be read as an access list: entry 1, node "));
  EXPECT_THAT(told.out, HasSubstr("\npolicy: 1 defect\n"));
  EXPECT_THAT(told.out, Not(HasSubstr("nothing refers")));
  EXPECT_EQ(told.out.find("does not lead on"), told.out.rfind("does not lead on"));
}

TEST_F(CheckOfLists, programs_are_told_its_kind) {
  first(QIM_NODE_FILTER).record.body.filter.nomatch = QIM_LINK_NOMATCH;
  store();
  const json told = json::parse(check({"--json"}).out);
  ASSERT_EQ(told["defects"].size(), 1u);
  EXPECT_EQ(told["defects"][0]["defect"], "unreadable");
  EXPECT_THAT(told["defects"][0]["what"].get<std::string>(), HasSubstr("does not lead on"));
  EXPECT_EQ(told["unreadable"][0]["name"], "guard");
  EXPECT_EQ(told["unreadable"][0]["node"], told["defects"][0]["node"]);
}

TEST_F(CheckOfLists, one_with_a_damaged_node_counts_once) {
  Node& entry = first(QIM_NODE_FILTER);
  entry.record = {};
  entry.record.type = QIM_NODE_ACTION;
  entry.links.clear();
  store();
  const Outcome told = check();
  EXPECT_EQ(told.code, qimctl::exit_defects);
  EXPECT_THAT(told.out, HasSubstr("\"guard\" cannot be read as an access list: "));
  const json found = json::parse(check({"--json"}).out)["defects"];
  for (const json& each : found) EXPECT_NE(each["defect"], "unreadable") << each;
}

TEST_F(CheckOfLists, a_group_without_a_name_may_be_something_else) {
  std::erase_if(first(QIM_NODE_GROUP).links,
                [](const qimctl::Link& link) { return link.field == QIM_LN_GROUP_NAME; });
  store();
  const Outcome told = check();
  EXPECT_THAT(told.out, HasSubstr("cannot be read as an access list: the list has no name"));
  const json found = json::parse(check({"--json"}).out)["defects"];
  for (const json& each : found) EXPECT_NE(each["defect"], "unreadable") << each;
}

}  // namespace
