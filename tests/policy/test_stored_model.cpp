// Access lists are read back from a database as they were; what is none is told, whatever it is.
#include <functional>

#include "policy/base/input_file.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "tests/policy/lists_support.h"
#include "tests/tools/support.h"

namespace {

using lists_test::list;
using lists_test::stored;
using lists_test::text_of;
using qimctl::Model;
using qimctl::Node;
using qimctl::StoredModel;

class StoredLists : public testing::Test {
 protected:
  StoredModel through_database(const std::vector<Node>& nodes) {
    lists_test::store(database_, nodes);
    StoredModel read = stored(database_);
    expect_same_outline(read);
    return read;
  }

  // Entry by entry there is the same to be read.
  void expect_same_outline(const StoredModel& whole) {
    const qimctl::ReadSession session(database_);
    StoredModel outline = read_outline(session);
    ASSERT_EQ(outline.lists.size(), whole.lists.size());
    for (size_t i = 0; i < outline.lists.size(); i++) {
      EXPECT_TRUE(outline.model.lists[i].entries.empty());
      EXPECT_EQ(outline.lists[i].entries, whole.model.lists[i].entries.size());
      each_stored_entry(session, outline.lists[i], [&](const qimctl::Entry& entry) {
        outline.model.lists[i].entries.push_back(entry);
      });
    }
    EXPECT_EQ(text_of(outline.model), text_of(whole.model));
    ASSERT_EQ(outline.unreadable.size(), whole.unreadable.size());
    for (size_t i = 0; i < outline.unreadable.size(); i++) {
      EXPECT_EQ(outline.unreadable[i].node, whole.unreadable[i].node);
      EXPECT_EQ(outline.unreadable[i].name, whole.unreadable[i].name);
      EXPECT_EQ(outline.unreadable[i].why, whole.unreadable[i].why);
    }
  }

  tools_test::TempDir dir_;
  qimctl::Database database_{dir_ / "db", qimctl::OpenMode::create};
};

Model sample() {
  Model model = lists_test::model(
      {list("guard", {"ssh port=22 log", "web port=80 police=gold", "rest drop police=gold log"}),
       list("empty", {})},
      {"guard eth0/in", "empty eth0/in", "guard eth1/out"});
  model.lists[1].default_action = qimctl::ActionType::reject;
  model.policers = {{"gold", qimctl::Policer::Unit::bytes, 1, uint64_t{1} << 40, 3, 4}};
  model.lists[0].entries[1].criteria.push_back(
      qimctl::to_criterion({"ipv4", "ietf-acldns", "dst-dnsname", "\"a\""}));
  return model;
}

TEST_F(StoredLists, AnEmptyDatabaseHasNone) {
  const StoredModel read = stored(database_);
  EXPECT_EQ(text_of(read.model), "");
  EXPECT_TRUE(read.unreadable.empty());
}

TEST_F(StoredLists, ComeBackAsTheyWere) {
  const Model model = sample();
  const StoredModel read = through_database(make_nodes(model));
  EXPECT_EQ(text_of(read.model), text_of(model));
  EXPECT_TRUE(read.unreadable.empty());
  ASSERT_EQ(read.lists.size(), 2u);
  for (const qimctl::StoredList& one : read.lists) EXPECT_TRUE(one.regular);
  EXPECT_EQ(find_stored(read, "none"), nullptr);
  EXPECT_EQ(find_stored(read, "guard")->ids.filters.size(), 3u);
}

TEST_F(StoredLists, ExamplesComeBackAsTheyWere) {
  const std::string file =
      (tools_test::source_dir() / "examples/edge-router.rfc8519.json").string();
  const Model model = qimctl::read_rfc8519(tools_test::read_text(file), file).model;
  const StoredModel read = through_database(make_nodes(model));
  EXPECT_EQ(text_of(read.model), text_of(model));
}

// What was made of the sample, with something done to one node.
struct Damage {
  const char* name;
  uint32_t type;  // of the first node that is changed
  std::function<void(Node&)> change;
  const char* why;  // "" = it is read all the same, but is not regular
};

Node* find_link(std::vector<Node>& nodes, uint32_t type) {
  for (Node& node : nodes) {
    if (node.record.type == type) return &node;
  }
  return nullptr;
}

std::function<void(Node&)> relink(uint16_t field, uint32_t target) {
  return [=](Node& node) {
    std::erase_if(node.links, [=](const qimctl::Link& link) { return link.field == field; });
    if (target != 0) node.links.push_back({field, target, 0, 0, 0});
  };
}

// Identifiers say nothing about the order of entries.
TEST_F(StoredLists, EntriesStandInTheOrderOfTheirLinks) {
  std::vector<Node> nodes = make_nodes(lists_test::model({list("guard", {"a", "b", "c", "d"})}));
  std::vector<Node*> filters;
  for (Node& node : nodes)
    if (node.record.type == QIM_NODE_FILTER) filters.push_back(&node);
  // d, a, c, b
  relink(QIM_LN_FILTER_NEXT, filters[0]->id)(*filters[3]);
  relink(QIM_LN_FILTER_NEXT, filters[2]->id)(*filters[0]);
  relink(QIM_LN_FILTER_NEXT, filters[1]->id)(*filters[2]);
  relink(QIM_LN_FILTER_NEXT, 0)(*filters[1]);
  filters[3]->record.body.filter.nomatch = QIM_LINK_NEXT;
  filters[1]->record.body.filter.nomatch = QIM_LINK_NOMATCH;
  Node& group = *find_link(nodes, QIM_NODE_GROUP);
  std::erase_if(group.links,
                [](const qimctl::Link& link) { return link.field == QIM_LN_GROUP_FIRST; });
  group.links.push_back({QIM_LN_GROUP_FIRST, filters[3]->id, 0, 4, 0});
  const StoredModel read = through_database(nodes);
  ASSERT_EQ(read.model.lists.size(), 1u);
  std::string names;
  for (const qimctl::Entry& entry : read.model.lists[0].entries) names += entry.name;
  EXPECT_EQ(names, "dacb");
  EXPECT_TRUE(read.lists[0].regular);
}

class DamagedList : public StoredLists, public testing::WithParamInterface<Damage> {};

TEST_P(DamagedList, IsToldAndLeftOut) {
  const Damage& damage = GetParam();
  std::vector<Node> nodes = make_nodes(sample());
  const uint32_t first = nodes.front().id;
  damage.change(*find_link(nodes, damage.type));
  Node other;  // of no list
  other.id = 5;
  other.record.type = QIM_NODE_HACTION;
  nodes.push_back(other);
  const StoredModel read = through_database(nodes);
  if (*damage.why == '\0') {
    EXPECT_TRUE(read.unreadable.empty()) << read.unreadable.front().why;
    EXPECT_FALSE(find_stored(read, "guard")->regular);
    return;
  }
  ASSERT_EQ(read.unreadable.size(), 1u);
  EXPECT_NE(unreadable_text(read.unreadable[0]).find(damage.why), std::string::npos)
      << read.unreadable[0].why;
  const bool list = read.unreadable[0].node == first;
  EXPECT_EQ(read.model.lists.size(), list ? 1u : 2u);
  EXPECT_EQ(read.unreadable[0].members.empty(), !list);
}

qim_dsetname_t vlan_name(qim_dsetname_t name) {
  qim_dsetname_ntoh(&name);
  name.dest.intf.vlan = 7;
  qim_dsetname_hton(&name);
  return name;
}

INSTANTIATE_TEST_SUITE_P(
    All, DamagedList,
    testing::Values(
        Damage{"noname", QIM_NODE_GROUP, relink(QIM_LN_GROUP_NAME, 0), "the list has no name"},
        Damage{"wrongname", QIM_NODE_GROUP, relink(QIM_LN_GROUP_NAME, 5), "is no name"},
        Damage{"nodefault", QIM_NODE_GROUP, relink(QIM_LN_GROUP_DEF, 0), "default, is not there"},
        Damage{"lostdefault", QIM_NODE_GROUP, relink(QIM_LN_GROUP_DEF, 77),
               "the default, node 0x0000004d, is not in the database"},
        Damage{"otherdefault", QIM_NODE_GROUP, relink(QIM_LN_GROUP_DEF, 5),
               "the default, node 0x00000005, is no Def"},
        Damage{"oddefault", QIM_NODE_DEF, [](Node& node) { node.record.body.def.type = 9; },
               "none of an access list"},
        Damage{"fulldefault", QIM_NODE_DEF, [](Node& node) { node.args = {1}; },
               "none of an access list"},
        Damage{"circle", QIM_NODE_FILTER,
               [](Node& node) { relink(QIM_LN_FILTER_NEXT, node.id)(node); }, "circular"},
        Damage{"lostentry", QIM_NODE_FILTER, relink(QIM_LN_FILTER_NEXT, 78),
               "entry 2, node 0x0000004e, is not in the database"},
        Damage{"otherentry", QIM_NODE_FILTER, relink(QIM_LN_FILTER_NEXT, 5), "is no Filter"},
        Damage{"nameless", QIM_NODE_FILTER, [](Node& node) { node.criteria.clear(); },
               "entry 1, node"},
        Damage{"samename", QIM_NODE_FILTER,
               [](Node& node) {
                 node.criteria[0].args = {'w', 'e', 'b'};
               },
               "two entries are called web"},
        Damage{"falsy", QIM_NODE_FILTER,
               [](Node& node) { node.record.body.filter.match = QIM_LINK_FALSE; },
               "does not decide"},
        Damage{"ends", QIM_NODE_FILTER,
               [](Node& node) { node.record.body.filter.nomatch = QIM_LINK_NOMATCH; },
               "does not lead on"},
        Damage{"noaction", QIM_NODE_FILTER, relink(QIM_LN_FILTER_TRUE, 0),
               "the action of entry 1, is not there"},
        Damage{"oddaction", QIM_NODE_ACTION, [](Node& node) { node.record.body.action.type = 77; },
               "is no name"},
        Damage{"oddpolice", QIM_NODE_POLICE,
               [](Node& node) { node.record.body.police.comt_bw.rate_units = 3; },
               "the policer of entry 2"},
        Damage{"twopolices", QIM_NODE_POLICE,
               [](Node& node) { node.record.body.police.comt_bw.rate = 3; },
               "two policers are called gold"},
        Damage{"policedword", QIM_NODE_POLICE, relink(QIM_LN_ACTION_NEXT, 5), "is no Action"},
        Damage{"noplace", QIM_NODE_EDEST, relink(QIM_LN_EDEST_NAME, 0),
               "the interface has no name"},
        Damage{"vlanplace", QIM_NODE_EDEST, [](Node& node) { node.dset = vlan_name(*node.dset); },
               "data-set name"},
        Damage{"groupnumber", QIM_NODE_FILTER, [](Node& node) { node.record.group = 5; }, ""},
        Damage{"count", QIM_NODE_GROUP, relink(QIM_LN_GROUP_FIRST, 0), ""},
        Damage{"flags", QIM_NODE_FILTER, [](Node& node) { node.record.body.filter.flags = 1; },
               ""}),
    [](const auto& one) { return one.param.name; });

TEST_F(StoredLists, OfOneNameAreToldApart) {
  std::vector<Node> nodes = make_nodes(lists_test::model({list("a", {})}));
  std::vector<Node> more = make_nodes(lists_test::model({list("b", {})}));
  for (Node& node : more) {
    if (node.record.body.action.type == QIM_ACTION_NAME) node.args = {'a'};
    nodes.push_back(node);
  }
  const StoredModel read = through_database(nodes);
  ASSERT_EQ(read.unreadable.size(), 1u);
  EXPECT_NE(read.unreadable[0].why.find("a list of that name"), std::string::npos);
}

}  // namespace
