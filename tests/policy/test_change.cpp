// Changing access lists: what differs, and that only what differs is edited.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "policy/change/apply.h"
#include "policy/change/garbage.h"
#include "policy/change/stages.h"
#include "policy/change/words.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/model/name_hash.h"
#include "rov.h"
#include "tests/policy/lists_support.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using lists_test::list;
using lists_test::model;
using lists_test::stored;
using lists_test::text_of;
using qimctl::AccessList;
using qimctl::Change;
using qimctl::EditCounts;
using qimctl::merge_models;
using qimctl::Model;
using qimctl::Node;
using qimctl::read_stored_model;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "+ guard/ssh", a line for each difference, without what it is about.
std::vector<std::string> signs(const Model& old, const Model& wanted, bool prune = false) {
  std::vector<std::string> lines;
  for (const auto& line : difference_lines(difference(old, wanted, {.prune = prune})))
    lines.push_back(std::string(1, line.sign) + " " + line.name);
  return lines;
}

std::vector<std::string> summaries(const Model& old, const Model& wanted, bool prune = false) {
  std::vector<std::string> lines;
  const Change change = difference(old, wanted, {.prune = prune});
  for (const auto& one : change.lists) lines.push_back(one.name() + ": " + change_summary(one));
  return lines;
}

TEST(Difference, OfTheSameIsNone) {
  const Model same = model({list("a", {"x", "y log"}), list("b", {})}, {"a eth0/in"});
  EXPECT_THAT(signs(same, same), IsEmpty());
  EXPECT_THAT(summaries(same, same), ElementsAre("a: unchanged", "b: unchanged"));
  EXPECT_FALSE(difference(same, same, {}).any());
}

TEST(Difference, TellsAddedRemovedAndChangedEntries) {
  const Model old = model({list("a", {"x", "y", "z"})});
  const Model wanted = model({list("a", {"x", "new", "z drop"})});
  EXPECT_THAT(signs(old, wanted), ElementsAre("- a/y", "+ a/new", "~ a/z"));
  EXPECT_THAT(summaries(old, wanted), ElementsAre("a: 1 entry added, 1 removed, 1 changed"));
}

TEST(Difference, MovesAsFewEntriesAsPossible) {
  const Model old = model({list("a", {"1", "2", "3", "4", "5"})});
  EXPECT_THAT(signs(old, model({list("a", {"5", "1", "2", "3", "4"})})), ElementsAre("~ a/5"));
  EXPECT_THAT(signs(old, model({list("a", {"2", "3", "1 drop", "4", "5"})})), ElementsAre("~ a/1"));
  const Change change = difference(old, model({list("a", {"2", "3", "1 drop", "4", "5"})}), {});
  EXPECT_THAT(difference_lines(change)[0].what, HasSubstr("moved behind 3; any: accept => any"));
  const Change front = difference(old, model({list("a", {"5", "1", "2", "3", "4"})}), {});
  EXPECT_EQ(difference_lines(front)[0].what, "moved to the front");
}

TEST(Difference, TellsWholeListsAndTheirDefaults) {
  Model old = model({list("a", {"x"}), list("b", {"y"})}, {"b eth0/in"});
  Model wanted = model({list("c", {"z"}), list("b", {"y"})}, {"c eth1/out"});
  wanted.lists[1].default_action = qimctl::ActionType::accept;
  wanted.lists[1].type = qimctl::acl_type_ipv6;
  EXPECT_THAT(signs(old, wanted), ElementsAre("+ c", "+ c/z", "+ c", "~ b", "~ b", "- b"));
  EXPECT_THAT(signs(old, wanted, true),
              ElementsAre("+ c", "+ c/z", "+ c", "~ b", "~ b", "- b", "- a", "- a/x"));
  EXPECT_THAT(summaries(old, wanted, true),
              ElementsAre("c: added with 1 entry; attached to if:eth1/out",
                          "b: type ipv6; default accept; detached from if:eth0/in", "a: deleted"));
}

TEST(Difference, OfStagesIsOneOfOrder) {
  Model old = model({list("a", {}), list("b", {})}, {"a eth0/in", "b eth0/in"});
  old.attachments[0].stage = 7;
  old.attachments[1].stage = 9;
  EXPECT_THAT(signs(old, model({list("a", {}), list("b", {})}, {"a eth0/in", "b eth0/in"})),
              IsEmpty());
  EXPECT_THAT(signs(old, model({list("a", {}), list("b", {})}, {"b eth0/in", "a eth0/in"})),
              ElementsAre("~ b"));
}

// "a1 b2 ": lists and their stages.
std::string stages(const Model& old, const Model& wanted) {
  std::string text;
  auto after = attachments_after(old, wanted, {});
  std::sort(after.begin(), after.end(),
            [](const auto& a, const auto& b) { return a.stage < b.stage; });
  for (const auto& at : after) text += at.list + std::to_string(at.stage) + " ";
  return text;
}

TEST(Stages, OfListsThatNoFileNamesStayUnlessTheyAreTaken) {
  const Model old = model({list("x", {}), list("y", {})}, {"x eth0/in", "y eth0/in"});
  EXPECT_EQ(stages(old, model({list("a", {})}, {"a eth0/in"})), "a1 x2 y3 ");
  EXPECT_EQ(stages(old, model({list("y", {})}, {"y eth0/in"})), "x1 y2 ");
  EXPECT_EQ(stages(old, model({list("y", {})}, {})), "x1 ");
}

TEST(Stages, OfListsThatGiveWayAreBehindAllThatFilesName) {
  Model old = model({list("x", {}), list("b", {})}, {"x eth0/in", "b eth0/in"});
  old.attachments[1].stage = 5;
  EXPECT_EQ(stages(old, model({list("a", {}), list("b", {})}, {"a eth0/in", "b eth0/in"})),
            "a1 b5 x6 ");
}

TEST(Stages, ThatRunOutAreNumberedFromOne) {
  Model old = model({list("a", {}), list("b", {})}, {"a eth0/in", "b eth0/in"});
  old.attachments[1].stage = qimctl::policy_type_stages;
  EXPECT_EQ(stages(old, model({list("a", {}), list("b", {})}, {"b eth0/in", "a eth0/in"})),
            "b1 a2 ");
}

TEST(Stages, LongestAscendingKeepsTheMost) {
  const auto kept = qimctl::longest_ascending({4, 0, 1, 5, 2, 3});
  EXPECT_EQ(kept, (std::vector<bool>{false, true, true, false, true, true}));
  EXPECT_TRUE(qimctl::longest_ascending({}).empty());
}

TEST(MergedFiles, OfOneListAreOneProblemWithBothPlaces) {
  Model first = model({list("guard", {"a", "b"})}, {"guard eth0/in"});
  Model second = first;
  first.lists[0].place = {"a.json", 3, "/acl/0"};
  second.lists[0].place = {"b.json", 5, "/acl/1"};
  const auto problems = tools_test::problems_of([&] { merge_models({first, second}); });
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].place.file, "b.json");
  EXPECT_THAT(problems[0].message, HasSubstr("a.json:3"));
}

TEST(MergedFiles, AskTheirListsOneFileAfterTheOther) {
  const Model merged =
      merge_models({model({list("a", {})}, {"a eth0/in"}), model({list("b", {})}, {"b eth0/in"})});
  EXPECT_EQ(merged.attachments[0].stage, 1u);
  EXPECT_EQ(merged.attachments[1].stage, 2u);
}

TEST(MergedFiles, AgreeAboutPolicers) {
  Model first;
  first.policers = {{"gold", qimctl::Policer::Unit::bytes, 1, 2, 3, 4}};
  Model second = first;
  EXPECT_EQ(merge_models({first, second}).policers.size(), 1u);
  second.policers[0].peak_rate = 9;
  EXPECT_EQ(tools_test::problems_of([&] { merge_models({first, second}); }).size(), 1u);
}

class Applied : public testing::Test {
 protected:
  // Commits unless there is nothing to do.
  EditCounts apply(const Model& wanted, bool prune = false) {
    qimctl::WriteSession session(database_);
    qimctl::StoredModel before = read_stored_model(session.handle());
    qimctl::Editor editor(session.handle(), before, {});
    editor.write_lists(difference(before.model, wanted, {.prune = prune}));
    if (editor.counts().edits != 0) session.commit();
    return editor.counts();
  }

  EditCounts apply_nodes(const std::vector<Node>& nodes, bool must_be_new = false) {
    qimctl::WriteSession session(database_);
    qimctl::StoredModel before = read_stored_model(session.handle());
    qimctl::Editor editor(session.handle(), before, {});
    editor.write_nodes({{nodes, {}}}, {.must_be_new = must_be_new});
    if (editor.counts().edits != 0) session.commit();
    return editor.counts();
  }

  // Everything that the database holds is what is wanted, regular, and nothing besides.
  void expect_stored(const Model& wanted) {
    const qimctl::StoredModel read = stored(database_);
    EXPECT_EQ(text_of(read.model), text_of(wanted));
    EXPECT_TRUE(read.unreadable.empty());
    for (const auto& one : read.lists) EXPECT_TRUE(one.regular);
  }

  tools_test::TempDir dir_;
  qimctl::Database database_{dir_ / "db", qimctl::OpenMode::create};
};

Model policed() {
  Model made = model({list("guard", {"ssh port=22 log", "web port=80 police=gold", "rest drop"}),
                      list("inner", {"all"})},
                     {"guard eth0/in", "inner eth0/in", "guard eth1/out"});
  made.policers = {{"gold", qimctl::Policer::Unit::bytes, 1, 2, 3, 4}};
  return made;
}

TEST_F(Applied, UnchangedInputEditsNothing) {
  const Model wanted = policed();
  EXPECT_NE(apply(wanted).edits, 0u);
  expect_stored(wanted);
  EXPECT_EQ(apply(wanted).edits, 0u);
}

// Each change of the policy alone, and back.
TEST_F(Applied, EveryKindOfChangeIsStoredAndTakenBack) {
  const Model first = policed();
  std::vector<Model> others;
  const auto variant = [&](auto change) {
    others.push_back(first);
    change(others.back());
  };
  variant([](Model& m) { m.lists[0].entries.pop_back(); });
  variant([](Model& m) {
    m.lists[0].entries.clear();
    m.policers.clear();
  });
  variant([](Model& m) { m.lists[0].entries.push_back(lists_test::entry("last reject")); });
  variant([](Model& m) {
    m.lists[0].entries.insert(m.lists[0].entries.begin(), lists_test::entry("first log"));
  });
  variant([](Model& m) { std::swap(m.lists[0].entries[0], m.lists[0].entries[2]); });
  variant([](Model& m) { m.lists[0].entries[1].log = true; });
  variant([](Model& m) { m.lists[0].entries[1].criteria.clear(); });
  variant([](Model& m) {
    m.lists[0].entries[1].policer = "";
    m.policers.clear();
  });
  variant([](Model& m) { m.lists[0].default_action = qimctl::ActionType::reject; });
  variant([](Model& m) { m.lists[0].type = 7; });
  variant([](Model& m) { m.policers[0].peak_rate = 99; });
  variant([](Model& m) { m.attachments.pop_back(); });
  variant([](Model& m) { m.attachments.clear(); });
  variant([](Model& m) {
    m.lists[1].name = "outer";
    m.attachments[1].list = "outer";
  });
  for (const Model& other : others) {
    SCOPED_TRACE(text_of(other));
    apply(first, true);
    expect_stored(first);
    EXPECT_NE(apply(other, true).edits, 0u);
    expect_stored(other);
    EXPECT_EQ(apply(other, true).edits, 0u);
  }
}

TEST_F(Applied, ExamplesTwiceChangeNothing) {
  const std::string file =
      (tools_test::source_dir() / "examples/edge-router.rfc8519.json").string();
  const Model wanted = qimctl::read_rfc8519(tools_test::read_text(file), file).model;
  apply(wanted);
  expect_stored(wanted);
  EXPECT_EQ(apply(wanted).edits, 0u);
}

TEST_F(Applied, OneChangedEntryOfManyIsOneEdit) {
  std::vector<std::string> entries;
  for (int i = 0; i < 500; i++) entries.push_back("e" + std::to_string(i) + " port=80");
  apply(model({list("a", entries)}));
  entries[250] = "e250 port=81";
  EXPECT_EQ(apply(model({list("a", entries)})).edits, 1u);
  entries.insert(entries.begin() + 100, "new port=1");
  EXPECT_EQ(apply(model({list("a", entries)})).edits, 5u)
      << "the node, its links, the one to it, and how many there are";
  entries.erase(entries.begin() + 100);
  EXPECT_EQ(apply(model({list("a", entries)})).edits, 3u);
  expect_stored(model({list("a", entries)}));
}

TEST_F(Applied, WatchersAreToldOfTheChangedEntryOnly) {
  std::vector<std::string> entries;
  for (int i = 0; i < 50; i++) entries.push_back("e" + std::to_string(i) + " port=80");
  apply(model({list("a", entries)}));
  rov_ntf_t registration{};
  registration.kinds = UINT32_MAX;
  ASSERT_EQ(qim_db_ntf(database_.handle(), &registration), 0u);
  apply(model({list("a", entries)}));
  rov_change_t change;
  uint32_t length = 0;
  EXPECT_EQ(qim_process_msg(database_.handle(), &change, sizeof change, &length),
            uint32_t{ROV_ERR_NO_VALUE})
      << "nothing was committed";
  entries[25] = "e25 port=81";
  apply(model({list("a", entries)}));
  const auto after = stored(database_);
  ASSERT_EQ(qim_process_msg(database_.handle(), &change, sizeof change, &length), 0u);
  EXPECT_EQ(change.kind, uint32_t{ROV_CHANGE_NODE_PUT});
  EXPECT_EQ(qim_from_rov_node_id(&change.node), after.lists[0].ids.filters[25]);
  EXPECT_EQ(qim_process_msg(database_.handle(), &change, sizeof change, &length),
            uint32_t{ROV_ERR_NO_VALUE});
}

// The blocks of these two overlap where a list's name alone chooses it.
TEST_F(Applied, ListsWhoseNamesHashAlikeStayWhole) {
  std::vector<std::string> entries;
  for (int i = 0; i < 40; i++) entries.push_back("e" + std::to_string(i));
  const Model first = model({list("acl-3229", entries)});
  const Model second = model({list("acl-12483", entries)});
  apply(first);
  apply(second);
  apply(second);
  Model both = model({list("acl-3229", entries), list("acl-12483", entries)});
  expect_stored(both);
  both.lists[1].entries.push_back(lists_test::entry("more drop"));
  apply(model({both.lists[1]}));
  expect_stored(both);
}

// A node stands in the way of each list, where its name would have it begin.
TEST_F(Applied, ManyListsThatCollideOnPurposeStayWhole) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const uint32_t count = slow ? 1000 : 10000;
  Model wanted;
  std::vector<Node> nodes;
  for (uint32_t i = 0; i < count; i++) {
    wanted.lists.push_back(list("list" + std::to_string(i), {"only"}));
    Node other;
    other.record.type = QIM_NODE_HACTION;
    other.id = qimctl::IdBlocks().take(wanted.lists.back().name, 1);
    nodes.push_back(other);
  }
  lists_test::store(database_, nodes);
  const Model half{{wanted.lists.begin(), wanted.lists.begin() + count / 2}, {}, {}};
  apply(half);
  apply(wanted);
  const qimctl::StoredModel read = stored(database_);
  ASSERT_EQ(read.lists.size(), count);
  EXPECT_TRUE(read.unreadable.empty());
  for (const auto& one : read.lists) ASSERT_TRUE(one.regular);
  for (const Node& other : nodes) {
    qim_node_t record;
    const qimctl::ReadSession session(database_);
    ASSERT_EQ(qim_node_read(session.handle(), other.id, QIM_NODE_HACTION, &record), 0u);
  }
}

TEST_F(Applied, AListMadeInAnotherWayIsMadeAnewWhenItChanges) {
  const Model wanted = policed();
  std::vector<Node> nodes = make_nodes(wanted);
  for (Node& node : nodes) {
    if (node.record.type == QIM_NODE_FILTER) node.record.body.filter.flags = 1;
    if (node.record.type == QIM_NODE_DEF) node.record.group = 9;
  }
  lists_test::store(database_, nodes);
  EXPECT_EQ(apply(wanted).edits, 0u) << "what it says is the same";
  Model other = wanted;
  other.lists[0].entries[0].forwarding = qimctl::ActionType::reject;
  other.lists[1].entries[0].log = true;
  apply(other);
  expect_stored(other);
}

TEST_F(Applied, AListThatCannotBeReadIsNotReplaced) {
  std::vector<Node> nodes = make_nodes(policed());
  std::erase_if(nodes.front().links,
                [](const qimctl::Link& link) { return link.field == QIM_LN_GROUP_DEF; });
  lists_test::store(database_, nodes);
  const auto problems = tools_test::problems_of([&] { apply(policed()); });
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0].message, HasSubstr("cannot be read as an access list"));
}

// Found by trying names: the index has 31 bits.
TEST_F(Applied, InterfacesOfOneIndexAreRefused) {
  std::map<uint32_t, std::string> seen;
  std::string name;
  uint32_t index = 0;
  for (uint32_t i = 0;; i++) {
    name = "e" + std::to_string(i);
    index = qimctl::interface_index(name);
    if (!seen.emplace(index, name).second) break;
  }
  const Model wanted = model({list("a", {})}, {"a " + name + "/in", "a " + seen[index] + "/in"});
  const auto problems = tools_test::problems_of([&] { difference({}, wanted, {}); });
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0].message, HasSubstr("have the same index"));
}

Node haction(uint32_t id, uint32_t type) {
  Node node;
  node.id = id;
  node.record.type = QIM_NODE_HACTION;
  node.record.body.haction.type = type;
  return node;
}

TEST_F(Applied, NodesThatAreTheSameAreLeftAlone) {
  Node first = haction(1, 5);
  first.links = {{QIM_LN_ACTION_NEXT, 2, 0, 0, 0}, {0x8999, 2, 1, 3, 4}};
  first.priv = {1, 2};
  first.clients = {{7, {8, 9}}};
  EXPECT_NE(apply_nodes({first, haction(2, 6)}).edits, 0u);
  EXPECT_EQ(apply_nodes({first, haction(2, 6)}).edits, 0u);
  Node other = first;
  other.links = {{QIM_LN_ACTION_NEXT, 1, 0, 0, 0}};
  EXPECT_EQ(apply_nodes({other}).edits, 2u) << "a link replaced, and one removed";
  other.record.body.haction.type = 8;
  EXPECT_EQ(apply_nodes({other}).edits, 1u);
  other.clients = {{7, {8}}};
  EXPECT_EQ(apply_nodes({other}).edits, 1u);
  other.clients = {{6, {8}}};
  EXPECT_EQ(apply_nodes({other}).edits, 1u);
}

TEST_F(Applied, NodesAreRefusedWhereTheyWouldDoHarm) {
  apply(policed());
  const qimctl::StoredModel read = stored(database_);
  const uint32_t member = read.lists[0].ids.filters[0];
  auto problems = tools_test::problems_of([&] { apply_nodes({haction(member, 1)}); });
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0].message, HasSubstr("belongs to the access list"));
  Node lost = haction(3, 1);
  lost.links = {{QIM_LN_ACTION_NEXT, 77, 78, 0, 0}};
  EXPECT_EQ(tools_test::problems_of([&] { apply_nodes({lost}); }).size(), 2u);
  apply_nodes({haction(4, 1)});
  problems = tools_test::problems_of([&] { apply_nodes({haction(4, 1)}, true); });
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0].message, HasSubstr("is in the database already"));
}

TEST_F(Applied, OnlyWhatNothingLeadsToIsGarbage) {
  std::vector<Node> nodes = make_nodes(policed());
  const uint32_t group = nodes.front().id;
  for (uint32_t id = 10; id < 15; id++) {
    nodes.push_back(haction(id, 1));
    nodes.back().record.group = group;
  }
  nodes.push_back(haction(20, 1));  // of no list, and leads to 10, which leads to 11
  const auto to = [](uint32_t id) { return qimctl::Link{QIM_LN_ACTION_NEXT, id, 0, 0, 0}; };
  nodes.back().links = {to(10)};
  nodes[nodes.size() - 6].links = {to(11)};
  nodes[nodes.size() - 4].links = {to(13)};  // 12 and 13 lead to one another
  nodes[nodes.size() - 3].links = {to(12)};
  lists_test::store(database_, nodes);
  const qimctl::StoredModel read = stored(database_);
  const qimctl::ReadSession session(database_);
  EXPECT_THAT(garbage_of(session.handle(), read), ElementsAre(12, 13, 14));
}

TEST(Ids, RunsGrowTogether) {
  qimctl::IdBlocks ids;
  ids.reserve(0x80000010, 0x80000012);
  ids.reserve(0x80000014, 0x80000014);
  EXPECT_EQ(ids.take_behind(0x80000010), 0x80000013u);
  EXPECT_EQ(ids.take_behind(0x80000010), 0x80000015u);
  ids.reserve(5, 6);
  EXPECT_EQ(ids.take_behind(5), 0x80000000u);
  ids.reserve(0xfffffff0, 0xffffffff);
  EXPECT_GE(ids.take_behind(0xfffffff5), 0x80000000u);
}

}  // namespace
