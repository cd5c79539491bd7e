// How access lists become nodes: kinds, links, names, order and identifiers.
#include <algorithm>
#include <set>

#include "policy/base/criteria.h"
#include "policy/model/name_hash.h"
#include "policy/store/id_blocks.h"
#include "tests/policy/rfc8519_support.h"

namespace {

using qimctl::ActionType;
using rfc8519_test::by_id;
using rfc8519_test::document;
using rfc8519_test::dset_of;
using rfc8519_test::entry;
using rfc8519_test::name_of;
using rfc8519_test::Node;
using rfc8519_test::of_type;
using rfc8519_test::Policy;
using rfc8519_test::read;
using rfc8519_test::target;

constexpr uint16_t next_filter = 0x081;
constexpr uint16_t next_action = 0x141;
constexpr uint16_t first_filter = 0x281;
constexpr uint16_t fallback = 0x282;
constexpr uint16_t owner = 0x2c1;

std::string list(const std::string& name, const std::string& entries,
                 const std::string& type = "ipv4-acl-type") {
  return R"({"name":")" + name + R"(","type":")" + type + R"(","aces":{"ace":[)" + entries + "]}}";
}

std::string lists(const std::string& members) {
  return R"("acl":[)" + members + "]";
}

std::string attach(const std::string& interface, const std::string& ingress,
                   const std::string& egress = "") {
  return R"({"interface-id":")" + interface + R"(","ingress":{"acl-sets":{"acl-set":[)" + ingress +
         R"(]}},"egress":{"acl-sets":{"acl-set":[)" + egress + "]}}}";
}

std::string referring(const std::string& interfaces) {
  return R"("attachment-points":{"interface":[)" + interfaces + "]}";
}

uint32_t action_of(const Policy& policy, const Node& filter) {
  return by_id(policy, target(filter, QIM_LN_FILTER_TRUE)).record.body.action.type;
}

TEST(Rfc8519Nodes, AnEmptyDocumentGivesNoNodes) {
  EXPECT_TRUE(read(document("")).nodes.empty());
  EXPECT_TRUE(read(document(R"("acl":[],"attachment-points":{})")).nodes.empty());
}

TEST(Rfc8519Nodes, AListWithoutEntriesDropsEverything) {
  const Policy policy = read(document(lists(R"({"name":"l"})")));
  ASSERT_EQ(policy.nodes.size(), 3u);
  const Node& group = policy.nodes[0];
  const Node& def = policy.nodes[1];
  EXPECT_EQ(group.record.type, uint32_t{QIM_NODE_GROUP});
  EXPECT_EQ(group.record.body.group.type, qimctl::group_access_list);
  EXPECT_EQ(group.record.body.group.subtype, 0u);
  EXPECT_EQ(name_of(policy, group), "l");
  EXPECT_EQ(target(group, first_filter), 0u);
  EXPECT_EQ(target(group, fallback), def.id);
  EXPECT_EQ(def.record.type, uint32_t{QIM_NODE_DEF});
  EXPECT_EQ(def.record.body.def.type, static_cast<uint32_t>(ActionType::drop));
  EXPECT_TRUE(def.args.empty());
  EXPECT_TRUE(def.links.empty());
  EXPECT_TRUE(def.priv.empty());
}

TEST(Rfc8519Nodes, TheSubtypeOfAGroupSaysWhatItsEntriesMayMatchOn) {
  const std::pair<const char*, uint32_t> types[] = {{"eth-acl-type", 1},
                                                    {"ipv4-acl-type", 2},
                                                    {"ipv6-acl-type", 4},
                                                    {"mixed-eth-ipv4-acl-type", 3},
                                                    {"mixed-eth-ipv6-acl-type", 5},
                                                    {"mixed-eth-ipv4-ipv6-acl-type", 7},
                                                    {"ietf-access-control-list:ipv4-acl-type", 2}};
  for (const auto& [name, subtype] : types) {
    const Policy policy = read(document(lists(list("l", "", name))));
    EXPECT_EQ(policy.nodes.at(0).record.body.group.subtype, subtype) << name;
  }
}

TEST(Rfc8519Nodes, FiltersAreChainedInTheOrderOfTheEntries) {
  const Policy policy =
      read(document(lists(list("l", entry("z") + "," + entry("a") + "," + entry("m")))));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 3u);
  const Node& group = policy.nodes[0];
  ASSERT_EQ(group.links.size(), 3u);
  EXPECT_EQ(group.links[0].field, first_filter);
  EXPECT_EQ(group.links[0].node, filters[0]->id);
  EXPECT_EQ(group.links[0].val, 3u);
  EXPECT_EQ(name_of(policy, *filters[0]), "z");
  EXPECT_EQ(name_of(policy, *filters[1]), "a");
  EXPECT_EQ(name_of(policy, *filters[2]), "m");
  EXPECT_EQ(target(*filters[0], next_filter), filters[1]->id);
  EXPECT_EQ(target(*filters[1], next_filter), filters[2]->id);
  EXPECT_EQ(target(*filters[2], next_filter), 0u);
}

TEST(Rfc8519Nodes, AMatchTakesTheTrueLinkAndNoMatchTheNextOrTheDefault) {
  const Policy policy = read(document(lists(list("l", entry("a") + "," + entry("b")))));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 2u);
  for (const Node* filter : filters) {
    EXPECT_EQ(filter->record.body.filter.match, uint32_t{QIM_LINK_TRUE});
    EXPECT_EQ(action_of(policy, *filter), static_cast<uint32_t>(ActionType::accept));
  }
  EXPECT_EQ(filters[0]->record.body.filter.nomatch, uint32_t{QIM_LINK_NEXT});
  EXPECT_EQ(filters[1]->record.body.filter.nomatch, uint32_t{QIM_LINK_NOMATCH});
}

TEST(Rfc8519Nodes, EachForwardingActionHasItsType) {
  const Policy policy = read(document(
      lists(list("l", entry("a", "", R"("forwarding":"accept")") + "," +
                          entry("d", "", R"("forwarding":"drop","logging":"log-none")") + "," +
                          entry("r", "", R"("forwarding":"ietf-access-control-list:reject")")))));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 3u);
  EXPECT_EQ(action_of(policy, *filters[0]), 1u);
  EXPECT_EQ(action_of(policy, *filters[1]), 2u);
  EXPECT_EQ(action_of(policy, *filters[2]), 3u);
  for (const Node* action : of_type(policy, QIM_NODE_ACTION)) {
    EXPECT_EQ(target(*action, next_action), 0u);
    EXPECT_TRUE(action->args.empty());
    EXPECT_TRUE(action->priv.empty());
  }
}

TEST(Rfc8519Nodes, LoggingFollowsTheForwardingAction) {
  const Policy policy = read(
      document(lists(list("l", entry("a", "", R"("forwarding":"drop","logging":"log-syslog")")))));
  const Node& filter = *of_type(policy, QIM_NODE_FILTER).at(0);
  const Node& drop = by_id(policy, target(filter, QIM_LN_FILTER_TRUE));
  EXPECT_EQ(drop.record.body.action.type, static_cast<uint32_t>(ActionType::drop));
  const Node& log = by_id(policy, target(drop, next_action));
  EXPECT_EQ(log.record.type, uint32_t{QIM_NODE_ACTION});
  EXPECT_EQ(log.record.body.action.type, static_cast<uint32_t>(ActionType::log_syslog));
  EXPECT_TRUE(log.links.empty());
}

TEST(Rfc8519Nodes, EntriesOfAListShareTheirActions) {
  const std::string drop = R"("forwarding":"drop")";
  const std::string drop_logged = R"("forwarding":"drop","logging":"log-syslog")";
  const std::string accept_logged = R"("forwarding":"accept","logging":"log-syslog")";
  const Policy policy = read(document(
      lists(list("l", entry("a", "", drop) + "," + entry("b", "", drop) + "," +
                          entry("c", "", drop_logged) + "," + entry("d", "", accept_logged)) +
            "," + list("m", entry("a", "", drop)))));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 5u);
  const auto action = [&](size_t i) { return target(*filters[i], QIM_LN_FILTER_TRUE); };
  EXPECT_EQ(action(0), action(1));
  EXPECT_NE(action(0), action(2));
  EXPECT_EQ(target(by_id(policy, action(2)), next_action),
            target(by_id(policy, action(3)), next_action));
  EXPECT_NE(action(0), action(4)) << "lists share nothing";
  EXPECT_EQ(of_type(policy, QIM_NODE_ACTION).size(), 5u);
}

TEST(Rfc8519Nodes, AnAttachmentIsAnInstanceAndADestination) {
  const Policy policy =
      read(document(lists(list("l", "")) + "," + referring(attach("te0/1", R"({"name":"l"})"))));
  ASSERT_EQ(policy.nodes.size(), 6u);
  const Node& group = policy.nodes[0];
  const Node& instance = policy.nodes[3];
  const Node& destination = policy.nodes[4];
  EXPECT_EQ(instance.record.type, uint32_t{QIM_NODE_PINST});
  EXPECT_EQ(name_of(policy, instance), "l");
  EXPECT_EQ(target(instance, owner), group.id);
  const qim_pinst_fields_t own = dset_of(instance);
  EXPECT_EQ(own.dest.gen.fmt, QIM_DEST_GEN);
  EXPECT_EQ(own.dest.gen.v32a, group.id);
  EXPECT_EQ(own.dest.gen.v32b, 0u);
  EXPECT_EQ(own.dir, QIM_DIR_IN);
  EXPECT_EQ(own.type, qimctl::policy_type_access_list | 1u);

  EXPECT_EQ(destination.record.type, uint32_t{QIM_NODE_EDEST});
  EXPECT_EQ(name_of(policy, destination), "te0/1");
  EXPECT_EQ(target(destination, owner), instance.id);
  const qim_pinst_fields_t where = dset_of(destination);
  EXPECT_EQ(where.dest.intf.fmt, QIM_DEST_IF);
  EXPECT_EQ(where.dest.intf.ifix, qimctl::interface_index("te0/1"));
  EXPECT_EQ(where.dest.intf.vrf, 0u);
  EXPECT_EQ(where.dest.intf.vlan, 0u);
  EXPECT_EQ(where.dest.intf.vdc, 0u);
  EXPECT_EQ(where.dir, own.dir) << "a destination is looked up by its instance's direction";
  EXPECT_EQ(where.type, own.type) << "and type";
}

TEST(Rfc8519Nodes, StoredNamesAreInNetworkOrder) {
  const Policy policy =
      read(document(lists(list("l", "")) + "," + referring(attach("one", "", R"({"name":"l"})"))));
  const Node& destination = *of_type(policy, QIM_NODE_EDEST).at(0);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&*destination.dset);
  const std::vector<uint8_t> name(bytes, bytes + sizeof(qim_dsetname_t));
  EXPECT_EQ(name, (std::vector<uint8_t>{1, 0x2b, 0xa5, 0xe8, 0x7f, 0, 0,
                                        0, 0,    0,    0,    0,    0, 0,
                                        0, 0,    0,    1,    0,    1, qimctl::dir_out}));
}

TEST(Rfc8519Nodes, InterfacesShareTheInstanceOfADirection) {
  const Policy policy =
      read(document(lists(list("l", "")) + "," +
                    referring(attach("a", R"({"name":"l"})", R"({"name":"l"})") + "," +
                              attach("b", R"({"name":"l"})") + "," + attach("c", "", ""))));
  const auto instances = of_type(policy, QIM_NODE_PINST);
  const auto destinations = of_type(policy, QIM_NODE_EDEST);
  ASSERT_EQ(instances.size(), 2u);
  ASSERT_EQ(destinations.size(), 3u);
  EXPECT_EQ(dset_of(*instances[0]).dir, QIM_DIR_IN);
  EXPECT_EQ(dset_of(*instances[1]).dir, qimctl::dir_out);
  EXPECT_EQ(target(*destinations[0], owner), instances[0]->id);
  EXPECT_EQ(target(*destinations[1], owner), instances[1]->id);
  EXPECT_EQ(target(*destinations[2], owner), instances[0]->id);
  EXPECT_EQ(name_of(policy, *destinations[2]), "b");
}

TEST(Rfc8519Nodes, ListsOfOneInterfaceKeepTheirOrderAsStages) {
  const Policy policy = read(document(lists(list("l", "") + "," + list("m", "")) + "," +
                                      referring(attach("a", R"({"name":"m"},{"name":"l"})") + "," +
                                                attach("b", R"({"name":"l"})"))));
  const auto destinations = of_type(policy, QIM_NODE_EDEST);
  ASSERT_EQ(destinations.size(), 3u);
  std::set<std::string> seen;
  for (const Node* destination : destinations) {
    const Node& instance = by_id(policy, target(*destination, owner));
    EXPECT_EQ(dset_of(instance).type, dset_of(*destination).type);
    seen.insert(name_of(policy, *destination) +
                std::to_string(dset_of(*destination).type & 0xffff) + name_of(policy, instance));
  }
  EXPECT_EQ(seen, (std::set<std::string>{"a1m", "a2l", "b1l"}));
  EXPECT_EQ(of_type(policy, QIM_NODE_PINST).size(), 3u);
}

TEST(Rfc8519Nodes, NoTwoNodesHaveTheSameDataSetName) {
  const Policy policy =
      read(document(lists(list("l", "") + "," + list("m", "")) + "," +
                    referring(attach("a", R"({"name":"m"},{"name":"l"})", R"({"name":"l"})") + "," +
                              attach("b", R"({"name":"l"},{"name":"m"})", R"({"name":"m"})"))));
  std::set<std::vector<uint8_t>> names;
  size_t named = 0;
  for (const Node& node : policy.nodes) {
    if (!node.dset) continue;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&*node.dset);
    names.emplace(bytes, bytes + sizeof(qim_dsetname_t));
    named++;
  }
  EXPECT_EQ(named, 12u);
  EXPECT_EQ(names.size(), named);
}

TEST(Rfc8519Nodes, MoreStagesThanANameCanTellAreRefused) {
  std::string all;
  std::string sets;
  for (uint32_t i = 0; i <= qimctl::policy_type_stages; i++) {
    const std::string name = R"({"name":")" + std::to_string(i) + "\"}";
    all += (i == 0 ? "" : ",") + name;
    sets += (i == 0 ? "" : ",") + name;
  }
  rfc8519_test::expect_problem(document(lists(all) + "," + referring(attach("a", sets))),
                               "/acl-set/65535/name", "more than 65535 access lists");
}

TEST(Rfc8519Nodes, AllNodesOfAListCarryItsGroupsIdentifierAsGroupNumber) {
  const Policy policy = read(
      document(lists(list("l", entry("a"))) + "," + referring(attach("i", R"({"name":"l"})"))));
  ASSERT_EQ(policy.nodes.size(), 8u);
  for (const Node& node : policy.nodes) {
    EXPECT_EQ(node.record.group, policy.nodes[0].id);
    EXPECT_EQ(node.record.id, node.id);
    EXPECT_EQ(node.record.flags, 0u);
  }
}

TEST(Rfc8519Nodes, IdentifiersDependOnTheNamesOfListsAlone) {
  const std::string l = list("l", entry("a") + "," + entry("b"));
  const std::string m = list("m", entry("a"));
  const Policy first = read(document(lists(l + "," + m)));
  const Policy second = read(document(lists(m + "," + l)));
  const Policy alone = read(document(lists(m)));
  ASSERT_EQ(first.nodes.size(), 11u);
  ASSERT_EQ(alone.nodes.size(), 5u);
  for (size_t i = 0; i < 5; i++) {
    EXPECT_EQ(alone.nodes[i].id, second.nodes[i].id);
    EXPECT_EQ(alone.nodes[i].id, first.nodes[i + 6].id);
  }
}

TEST(Rfc8519Nodes, IdentifiersOfAListAreConsecutiveWithBit31Set) {
  const Policy policy = read(
      document(lists(list("l", entry("a", "", R"("forwarding":"drop","logging":"log-syslog")"))) +
               "," + referring(attach("i", R"({"name":"l"})"))));
  ASSERT_EQ(policy.nodes.size(), 9u);
  for (size_t i = 0; i < policy.nodes.size(); i++) {
    EXPECT_EQ(policy.nodes[i].id, policy.nodes[0].id + i);
    EXPECT_NE(policy.nodes[i].id & 0x80000000u, 0u);
  }
}

TEST(Rfc8519Nodes, FiltersComeLastSoThatAShorterListLeavesNoNamesBehind) {
  const std::string where = referring(attach("i", R"({"name":"l"})"));
  const Policy longer =
      read(document(lists(list("l", entry("a") + "," + entry("b"))) + "," + where));
  const Policy shorter = read(document(lists(list("l", entry("a"))) + "," + where));
  ASSERT_EQ(longer.nodes.size(), shorter.nodes.size() + 1);
  for (size_t i = 0; i < shorter.nodes.size(); i++) {
    EXPECT_EQ(longer.nodes[i].id, shorter.nodes[i].id);
    EXPECT_EQ(longer.nodes[i].record.type, shorter.nodes[i].record.type);
  }
  EXPECT_EQ(longer.nodes.back().record.type, uint32_t{QIM_NODE_FILTER});
}

TEST(Rfc8519Nodes, EveryLinkLeadsToANodeOfTheInput) {
  const Policy policy = read(rfc8519_test::list_of(entry("a") + "," + entry("b")));
  for (const Node& node : policy.nodes) {
    for (const qimctl::Link& link : node.links) {
      EXPECT_NE(by_id(policy, link.node).id, 0u);
      EXPECT_EQ(link.node2, 0u);
    }
  }
}

TEST(Rfc8519Nodes, PlacesLeadToTheInput) {
  const Policy policy = read(document(
      "\n\"acl\":[\n" +
      list("l", "\n" + entry("a") + ",\n" + entry("b", "", "\"forwarding\":\"drop\"")) +
      "],\n\"attachment-points\":{\"interface\":[\n" + attach("i", "\n{\"name\":\"l\"}") + "]}"));
  const auto place = [&](size_t i) {
    const qimctl::Place& at = policy.nodes.at(i).place;
    EXPECT_EQ(at.file, rfc8519_test::file_name);
    return std::to_string(at.line) + " " + at.path;
  };
  const std::string root = "/ietf-access-control-list:acls/";
  ASSERT_EQ(policy.nodes.size(), 10u);
  for (size_t i = 0; i < 3; i++) EXPECT_EQ(place(i), "3 " + root + "acl/0");
  const std::string set = "attachment-points/interface/0/ingress/acl-sets/acl-set/0/name";
  for (size_t i = 3; i < 6; i++) EXPECT_EQ(place(i), "8 " + root + set);
  EXPECT_EQ(place(6), "4 " + root + "acl/0/aces/ace/0/actions");
  EXPECT_EQ(place(7), "5 " + root + "acl/0/aces/ace/1/actions");
  EXPECT_EQ(place(8), "4 " + root + "acl/0/aces/ace/0");
  EXPECT_EQ(place(9), "5 " + root + "acl/0/aces/ace/1");
}

// Reference values: FNV-1a of "" is 0x811c9dc5, of "foobar" 0xbf9cf968; both finalized.
TEST(Rfc8519Ids, HashIsTheSameEverywhere) {
  EXPECT_EQ(qimctl::name_hash(""), 0xab3e7c0bu);
  EXPECT_EQ(qimctl::name_hash("foobar"), 0xc0da6dcu);
  EXPECT_EQ(qimctl::interface_index("one"), 0xaba5e87fu & 0x7fffffffu);
}

TEST(Rfc8519Ids, BlocksNeverOverlap) {
  qimctl::IdBlocks blocks;
  constexpr uint32_t size = 0x01000000;
  std::vector<uint32_t> firsts;
  for (int i = 0; i < 60; i++) firsts.push_back(blocks.take("same name", size));
  std::sort(firsts.begin(), firsts.end());
  for (size_t i = 0; i < firsts.size(); i++) {
    EXPECT_GE(firsts[i], 0x80000000u);
    EXPECT_LE(firsts[i], 0xffffffffu - (size - 1));
    if (i != 0) {
      EXPECT_GE(firsts[i] - firsts[i - 1], size);
    }
  }
}

TEST(Rfc8519Ids, ABlockStartsWhereTheNameSays) {
  qimctl::IdBlocks blocks;
  EXPECT_EQ(blocks.take("foobar", 1), 0x80000000u | 0xc0da6dcu);
  EXPECT_NE(blocks.take("foobar", 1), 0x80000000u | 0xc0da6dcu);
}

}  // namespace
