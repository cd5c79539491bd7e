// Reading the native format.
#include "policy/formats/native/native.h"

#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "policy/store/database.h"
#include "schema/rows.h"
#include "tests/tools/support.h"

namespace {

using qimctl::Link;
using qimctl::Node;
using qimctl::Policy;
using qimctl::read_native;
using testing::ElementsAre;
using tools_test::brief;
using tools_test::problems_of;

Policy read(const std::string& nodes) {
  return read_native(R"({"format": "qim-policy", "version": 1, "nodes": [)" + nodes + "]}",
                     "in.json");
}

Node read_one(const std::string& members) {
  const Policy policy = read(R"({"id": "0x04100001", )" + members + "}");
  EXPECT_EQ(policy.nodes.size(), 1u);
  return policy.nodes.at(0);
}

TEST(ReadNative, takes_no_nodes) {
  EXPECT_TRUE(read("").nodes.empty());
}

TEST(ReadNative, keeps_order_and_place) {
  const Policy policy = read(R"({"id": 2, "type": 1}, {"id": 1, "type": "Action"})");
  ASSERT_EQ(policy.nodes.size(), 2u);
  EXPECT_EQ(policy.nodes[0].id, 2u);
  EXPECT_EQ(policy.nodes[1].record.type, uint32_t{QIM_NODE_ACTION});
  EXPECT_EQ(policy.nodes[1].place.file, "in.json");
  EXPECT_EQ(policy.nodes[1].place.path, "/nodes/1");
  EXPECT_TRUE(policy.findings.empty());
}

TEST(ReadNative, reads_the_head) {
  const Node node = read_one(R"("type": "Group", "group": 7, "flags": "0x80000001")");
  EXPECT_EQ(node.id, 0x04100001u);
  EXPECT_EQ(node.record.group, 7u);
  EXPECT_EQ(node.record.flags, 0x80000001u);
}

TEST(ReadNative, reads_a_filter) {
  const Node node = read_one(
      R"("type": "Filter", "body": {"flags": 3, "match": "True", "nomatch": "Next",
         "crit": [{"type": 5, "args": "0a0b0c"}, {"type": "0xffffffff"}]})");
  EXPECT_EQ(node.record.body.filter.flags, 3u);
  EXPECT_EQ(node.record.body.filter.match, uint32_t{QIM_LINK_TRUE});
  EXPECT_EQ(node.record.body.filter.nomatch, uint32_t{QIM_LINK_NEXT});
  ASSERT_EQ(node.criteria.size(), 2u);
  EXPECT_EQ(node.criteria[0].type, 5u);
  EXPECT_THAT(node.criteria[0].args, ElementsAre(0x0a, 0x0b, 0x0c));
  EXPECT_EQ(node.criteria[1].type, 0xffffffffu);
  EXPECT_TRUE(node.criteria[1].args.empty());
}

TEST(ReadNative, reads_link_kinds_by_number_too) {
  const Node node = read_one(
      R"("type": "Hfilter", "body": {"type": 9, "true_act": 1, "false_act": "0x2",
         "nomatch_act": 4294967295})");
  EXPECT_EQ(node.record.body.hfilter.type, 9u);
  EXPECT_EQ(node.record.body.hfilter.true_act, uint32_t{QIM_LINK_TRUE});
  EXPECT_EQ(node.record.body.hfilter.false_act, uint32_t{QIM_LINK_FALSE});
  EXPECT_EQ(node.record.body.hfilter.nomatch_act, 0xffffffffu);
}

TEST(ReadNative, reads_actions_defaults_groups) {
  const Node action = read_one(R"("type": "Action", "body": {"type": 1, "args": "FF00"})");
  EXPECT_EQ(action.record.body.action.type, 1u);
  EXPECT_THAT(action.args, ElementsAre(0xff, 0x00));
  const Node haction = read_one(R"("type": "Haction", "body": {"type": 2})");
  EXPECT_EQ(haction.record.body.haction.type, 2u);
  const Node def = read_one(R"("type": "Def", "body": {"type": 3, "args": "01"})");
  EXPECT_EQ(def.record.body.def.type, 3u);
  EXPECT_THAT(def.args, ElementsAre(0x01));
  const Node group = read_one(R"("type": "Group", "body": {"type": 1, "subtype": 2})");
  EXPECT_EQ(group.record.body.group.type, 1u);
  EXPECT_EQ(group.record.body.group.subtype, 2u);
}

TEST(ReadNative, reads_bandwidths_of_64_bits) {
  const Node node = read_one(
      R"("type": "Police", "body": {
         "comt_bw": {"rate_units": 1, "rate": 9007199254740991, "burst_units": 2, "burst": 3},
         "peak_bw": {"rate": "0xffffffffffffffff"}})");
  const qim_police_t& police = node.record.body.police;
  EXPECT_EQ(police.comt_bw.rate_units, 1u);
  EXPECT_EQ(police.comt_bw.rate, (uint64_t{1} << 53) - 1);
  EXPECT_EQ(police.comt_bw.burst_units, 2u);
  EXPECT_EQ(police.comt_bw.burst, 3u);
  EXPECT_EQ(police.peak_bw.rate, UINT64_MAX);
  EXPECT_EQ(police.peak_bw.burst, 0u);
}

TEST(ReadNative, reads_links_in_short_and_in_full) {
  const Node node = read_one(
      R"("type": "Ifelse", "links": {"ln_241": 5, "ln_242": "0x06",
         "0x8001": {"node": 7, "node2": 8, "val": 9, "tag": 65535}})");
  ASSERT_EQ(node.links.size(), 3u);
  const Link& full = node.links[0];  // in the order of the names
  EXPECT_EQ(full.field, 0x8001);
  EXPECT_EQ(full.node, 7u);
  EXPECT_EQ(full.node2, 8u);
  EXPECT_EQ(full.val, 9u);
  EXPECT_EQ(full.tag, 65535);
  EXPECT_EQ(node.links[1].field, 0x241);
  EXPECT_EQ(node.links[1].node, 5u);
  EXPECT_EQ(node.links[2].field, 0x242);
  EXPECT_EQ(node.links[2].node, 6u);
  EXPECT_EQ(node.links[2].node2, 0u);
}

TEST(ReadNative, takes_a_slot_by_its_code) {
  const Node node = read_one(R"("type": "Def", "links": {"0x301": 5})");
  ASSERT_EQ(node.links.size(), 1u);
  EXPECT_EQ(node.links[0].field, 0x301);
}

TEST(ReadNative, refuses_one_link_under_two_names) {
  const auto problems = problems_of(
      [] { read("{\"id\": 1, \"type\": \"Def\", \"links\": {\"0x301\": 5,\n\"ln_301\": 5}}"); });
  EXPECT_THAT(brief(problems),
              ElementsAre("2 /nodes/0/links/ln_301: is the link ln_301, which this node has "
                          "already under another spelling; remove one of the two"));
}

TEST(ReadNative, refuses_one_client_twice) {
  const auto problems = problems_of([] {
    read(R"({"id": 1, "type": "Def", "private": {"0x2": "61", "0x02": "62"}},
            {"id": 2, "type": "Def", "priv": "61",
             "private": {"0x71696d63": "62"}})");
  });
  EXPECT_THAT(brief(problems),
              ElementsAre("1 /nodes/0/private/0x2: is the private data of client 0x00000002, which "
                          "this node has already under another spelling; remove one of the two",
                          "3 /nodes/1/private/0x71696d63: is the private data of client "
                          "0x71696d63, which this node has already in the member priv; remove one "
                          "of the two"));
}

TEST(ReadNative, takes_its_own_private_data_as_a_clients) {
  const Node node = read_one(R"("type": "Def", "private": {"0x71696d63": "62"})");
  ASSERT_EQ(node.clients.size(), 1u);
  EXPECT_EQ(node.clients[0].client, qimctl::client_id);
}

TEST(ReadNative, reads_private_data_and_comments) {
  const Node node = read_one(R"("type": "Filter", "priv": "00ff", "comment": ["a", "b"])");
  EXPECT_THAT(node.priv, ElementsAre(0x00, 0xff));
}

TEST(ReadNative, reads_data_set_names) {
  const Node node = read_one(
      R"("type": "Edest", "dset": {"dest": {"fmt": "interface", "ifix": 1}, "type": 5,
         "dir": "in"})");
  ASSERT_TRUE(node.dset);
  EXPECT_EQ(node.dset->dest.fmt, QIM_DEST_IF);
  EXPECT_EQ(node.dset->dir, QIM_DIR_IN);
  EXPECT_FALSE(read_one(R"("type": "Pinst")").dset);
}

// The example is where people learn the format from, and what the demo shows.
TEST(Example, has_every_node_type_and_every_link_slot) {
  const auto file = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const Policy policy = read_native(tools_test::read_text(file), "edge-all-types.json");
  std::set<uint32_t> types;
  std::set<std::pair<uint32_t, uint16_t>> links;
  bool unfixed = false;
  bool priv = false;
  for (const Node& node : policy.nodes) {
    types.insert(node.record.type);
    for (const Link& link : node.links) {
      links.emplace(node.record.type, link.field);
      unfixed = unfixed || (link.field & 0x8000) != 0;
    }
    priv = priv || !node.priv.empty();
  }
  EXPECT_TRUE(unfixed);
  EXPECT_TRUE(priv);
  EXPECT_EQ(types.count(QIM_NODE_DSET), 1u);
  EXPECT_EQ(types.count(QIM_NODE_DSET_NONAME), 1u);
  for (const qim::schema::NodeType& type : qim::schema::tlv_types) {
    EXPECT_EQ(types.count(type.code), 1u) << type.name;
    for (const qim::schema::Row& row : *type.body) {
      if (row.slot == qim::schema::Slot::none) continue;
      EXPECT_EQ(links.count({type.code, row.link}), 1u) << type.name << " " << row.name;
    }
  }
}

}  // namespace
